#pragma once

#include <string>
#include <string_view>

#include "platform/debugoutput.h"
#include "platform/text.h"

// What each back end gives the shared sink dispatch of debugoutput.cpp.
namespace zor::os::detail {

// The platform's own destination.
void WriteDefaultNarrow(const char* text);
void WriteDefaultWide(const char16_t* text);
// Hands a narrow line to an installed sink, as UTF-8.
void ForwardNarrowToSink(const DebugSinkBinding& binding, const char* text);

// Room for the UTF-8 form of any line of the log sink (2048 UTF-16 units).
inline constexpr size_t kLineStackBytes = 3 * 2048 + 1;

// Calls use(const char* utf8) with the terminated UTF-8 form of a wide text:
// on the stack when it fits, as it does for every line of the log sink.
template <typename Use>
void WithUtf8Line(std::u16string_view text, Use&& use) {
  const size_t length = Utf8LengthOf(text);
  if (length < kLineStackBytes) {
    char line[kLineStackBytes];
    line[Utf16ToUtf8Into(text, line, length)] = '\0';
    use(static_cast<const char*>(line));
  } else {
    const std::string line = Utf16ToUtf8(text);
    use(line.c_str());
  }
}

}  // namespace zor::os::detail
