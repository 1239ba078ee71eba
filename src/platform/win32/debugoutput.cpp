#include <windows.h>

#include <string>
#include <string_view>

#include "platform/debugoutputbackend.h"

namespace zor::os::detail {

void WriteDefaultNarrow(const char* text) { ::OutputDebugStringA(text); }

void WriteDefaultWide(const char16_t* text) { ::OutputDebugStringW(AsWinChars(text)); }

void ForwardNarrowToSink(const DebugSinkBinding& binding, const char* text) {
  // Narrow text is in the ANSI code page; sinks take UTF-8. A code page
  // character is never fewer bytes than UTF-16 units, so every line of the
  // log sink converts on the stack.
  constexpr size_t kStackUnits = 2048;
  const std::string_view narrow(text);
  const auto deliver = [&binding](const char* utf8) { binding.sink(binding.context, utf8, false); };
  if (narrow.size() < kStackUnits) {
    char16_t wide[kStackUnits];
    WithUtf8Line(std::u16string_view(wide, NarrowToWideInto(narrow, wide, kStackUnits)), deliver);
  } else {
    WithUtf8Line(NarrowToWide(narrow), deliver);
  }
}

}  // namespace zor::os::detail
