#include <errno.h>
#include <unistd.h>

#include <cstring>
#include <string_view>

#include "platform/debugoutputbackend.h"

namespace zor::os::detail {
namespace {

// One write per line, so lines of several threads never interleave.
void WriteToStandardError(const char* text, size_t length) {
  while (length > 0) {
    const ssize_t written = ::write(STDERR_FILENO, text, length);
    if (written < 0) {
      if (errno == EINTR) continue;
      return;
    }
    text += written;
    length -= static_cast<size_t>(written);
  }
}

}  // namespace

void WriteDefaultNarrow(const char* text) { WriteToStandardError(text, std::strlen(text)); }

void WriteDefaultWide(const char16_t* text) {
  WithUtf8Line(std::u16string_view(text),
               [](const char* utf8) { WriteToStandardError(utf8, std::strlen(utf8)); });
}

void ForwardNarrowToSink(const DebugSinkBinding& binding, const char* text) {
  binding.sink(binding.context, text, false);  // narrow text is UTF-8 here
}

}  // namespace zor::os::detail
