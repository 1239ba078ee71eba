#include "core/zorlog.h"

#include <cstdint>
#include <cstdio>

#include "core/zorwideformat.h"
#include "platform/debugoutput.h"

namespace {

const char* OrEmpty(const char* text) { return text != nullptr ? text : ""; }

}  // namespace

ZORPointerText::ZORPointerText(const void* pointer) {
  auto value = reinterpret_cast<uintptr_t>(pointer);
  for (size_t i = sizeof text - 1; i-- > 0; value >>= 4) text[i] = "0123456789ABCDEF"[value & 0xF];
  text[sizeof text - 1] = '\0';
}

void ZORLogNarrowV(const ZORLogSite& site, const char* format, va_list args) {
  char line[kZORLogBufferUnits] = {};
  const int prefix = std::snprintf(line, sizeof line, "%s(%d) | %s | ", OrEmpty(site.file),
                                   static_cast<int>(site.line), OrEmpty(site.function));
  size_t used = prefix < 0 ? 0 : static_cast<size_t>(prefix);
  if (used > sizeof line - 1) used = sizeof line - 1;
  if (format != nullptr && used < sizeof line - 1) {
    std::vsnprintf(line + used, sizeof line - used, format, args);
  }
  zor::os::DebugOutputNarrow(line);
}

void ZORLogNarrow(const ZORLogSite& site, const char* format, ...) {
  va_list args;
  va_start(args, format);
  ZORLogNarrowV(site, format, args);
  va_end(args);
}

void ZORLogWideV(const ZORLogSite& site, const char16_t* format, va_list args) {
  char16_t line[kZORLogBufferUnits] = {};
  const size_t used = ZORFormatWide(line, kZORLogBufferUnits, u"%hs(%d) | %hs | ", OrEmpty(site.file),
                                    static_cast<int>(site.line), OrEmpty(site.function));
  if (format != nullptr) ZORFormatWideV(line + used, kZORLogBufferUnits - used, format, args);
  zor::os::DebugOutputWide(line);
}

void ZORLogWide(const ZORLogSite& site, const char16_t* format, ...) {
  va_list args;
  va_start(args, format);
  ZORLogWideV(site, format, args);
  va_end(args);
}
