#include "platform/text.h"

// Narrow text on POSIX is UTF-8.
namespace zor::os {

std::u16string NarrowToWide(std::string_view narrow) { return Utf8ToUtf16(narrow); }

std::string WideToNarrow(std::u16string_view wide) { return Utf16ToUtf8(wide); }

size_t NarrowToWideInto(std::string_view narrow, char16_t* out, size_t capacity) {
  return Utf8ToUtf16Into(narrow, out, capacity);
}

}  // namespace zor::os
