#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string_view>

// The one log sink. Every message goes, formatted, to the debugger output
// (zor::os::DebugOutputNarrow/Wide) as a single line of the form
//   <file>(<line>) | <Class::Method> | <message>
// in a zeroed stack buffer of kZORLogBufferUnits units (bytes for narrow,
// UTF-16 units for wide); longer lines are cut and still terminated. No line
// end is added: messages carry their own "\n". No lock, no allocation: any
// thread may log at any time.
//
// Narrow formats are C printf formats. Wide formats (u"..." literals) follow
// the Windows wide conventions of ZORFormatWideV: %s is a wide string, %hs a
// narrow one.

struct ZORLogSite {
  const char* file;
  int32_t line;
  const char* function;  // "Class::Method", or the bare name of a free function
};

inline constexpr size_t kZORLogBufferUnits = 2048;

// A pointer as Windows prints "%p": every hex digit of the pointer's width,
// upper case, no prefix ("0x%p" of 0x12ab reads 0x00000000000012AB). glibc's
// %p adds a "0x" of its own and prints null as "(nil)", so narrow messages
// pass pointers through this, and a log line compares across platforms:
//   ZOR_LOG("root 0x%s\n", ZORPointerText(root).text);
struct ZORPointerText {
  explicit ZORPointerText(const void* pointer);
  char text[2 * sizeof(void*) + 1];
};

#if defined(__MINGW32__)
// MinGW's C99 stdio (which libstdc++ selects) follows the GNU format rules.
#define ZOR_PRINTF_FORMAT(formatIndex, firstArg) \
  __attribute__((format(gnu_printf, formatIndex, firstArg)))
#elif defined(__GNUC__)
#define ZOR_PRINTF_FORMAT(formatIndex, firstArg) \
  __attribute__((format(printf, formatIndex, firstArg)))
#else
#define ZOR_PRINTF_FORMAT(formatIndex, firstArg)
#endif

void ZORLogNarrow(const ZORLogSite& site, const char* format, ...) ZOR_PRINTF_FORMAT(2, 3);
void ZORLogNarrowV(const ZORLogSite& site, const char* format, va_list args)
    ZOR_PRINTF_FORMAT(2, 0);
void ZORLogWide(const ZORLogSite& site, const char16_t* format, ...);
void ZORLogWideV(const ZORLogSite& site, const char16_t* format, va_list args);

namespace zor::logdetail {

// Where the qualified name lies in a compiler's function signature such as
// "static bool ZORFoo::Bar<int>(int) [with ...]": after the return type and
// specifiers, before the parameter list. A lambda's signature names the
// enclosing function first, so a message from a lambda reports that function.
struct NameSpan {
  size_t begin;
  size_t end;
};

constexpr bool IsOperatorAt(std::string_view text, size_t at, size_t componentStart) {
  return (at == componentStart || text[at - 1] == ':') && text.substr(at).starts_with("operator");
}

// Length of an anonymous namespace qualifier at `at` (GCC and Clang spell it
// differently), or 0.
constexpr size_t AnonymousNamespaceAt(std::string_view text, size_t at) {
  for (const std::string_view marker : {std::string_view("{anonymous}::"),
                                        std::string_view("(anonymous namespace)::")}) {
    if (text.substr(at).starts_with(marker)) return marker.size();
  }
  return 0;
}

constexpr NameSpan FindFunctionName(std::string_view signature) {
  size_t start = 0;
  int templateDepth = 0;
  for (size_t i = 0; i < signature.size(); ++i) {
    const char c = signature[i];
    if (templateDepth == 0 && IsOperatorAt(signature, i, start)) {
      // The operator's symbol belongs to the name, even "()" and "<".
      i += 8;
      if (signature.substr(i).starts_with("()")) i += 2;
      while (i < signature.size() && signature[i] != '(') ++i;
      return {start, i};
    }
    if (c == '<') {
      ++templateDepth;
    } else if (c == '>') {
      if (templateDepth > 0) --templateDepth;
    } else if (templateDepth == 0) {
      if (c == ' ' || ((c == '*' || c == '&') && i == start)) {
        start = i + 1;
      } else if (c == '(') {
        if (const size_t skip = AnonymousNamespaceAt(signature, i)) {
          i += skip - 1;
        } else if (i != start) {
          return {start, i};
        } else {
          start = i + 1;  // "(*" of a function returning a function pointer
        }
      }
    }
  }
  return {start, signature.size()};
}

// Copies the name without template argument lists and anonymous namespaces
// ("ZORFoo<int>::Bar" gives "ZORFoo::Bar"); sink receives each kept character.
template <typename Sink>
constexpr void ForEachNameChar(std::string_view signature, Sink&& sink) {
  const NameSpan span = FindFunctionName(signature);
  int templateDepth = 0;
  size_t componentStart = span.begin;
  for (size_t i = span.begin; i < span.end; ++i) {
    if (templateDepth == 0 && i == componentStart) {
      if (const size_t skip = AnonymousNamespaceAt(signature, i)) {
        i += skip - 1;
        componentStart = i + 1;
        continue;
      }
    }
    const char c = signature[i];
    if (templateDepth == 0 && IsOperatorAt(signature, i, componentStart)) {
      for (; i < span.end; ++i) sink(signature[i]);
      return;
    }
    if (c == '<') {
      ++templateDepth;
    } else if (c == '>') {
      if (templateDepth > 0) --templateDepth;
    } else if (templateDepth == 0) {
      if (c == ':') componentStart = i + 1;
      sink(c);
    }
  }
}

consteval size_t FunctionNameLength(std::string_view signature) {
  size_t length = 0;
  ForEachNameChar(signature, [&length](char) { ++length; });
  return length;
}

template <size_t Length>
struct FunctionName {
  char text[Length + 1];
};

template <size_t Length>
consteval FunctionName<Length> MakeFunctionName(std::string_view signature) {
  FunctionName<Length> name{};
  size_t at = 0;
  ForEachNameChar(signature, [&name, &at](char c) { name.text[at++] = c; });
  name.text[Length] = '\0';
  return name;
}

}  // namespace zor::logdetail

// Declares `site`, a static log site for the enclosing function, worked out
// at compile time.
#define ZOR_LOG_SITE_(site)                                                        \
  static constexpr std::string_view site##Signature_ = __PRETTY_FUNCTION__;        \
  static constexpr auto site##Function_ = ::zor::logdetail::MakeFunctionName<     \
      ::zor::logdetail::FunctionNameLength(site##Signature_)>(site##Signature_);   \
  static constexpr ZORLogSite site { __FILE__, __LINE__, site##Function_.text }

// ZOR_LOG("format", args...) with a narrow printf format.
#define ZOR_LOG(...)                                \
  do {                                              \
    ZOR_LOG_SITE_(zorLogSite);                      \
    ::ZORLogNarrow(zorLogSite, __VA_ARGS__);        \
  } while (false)

// ZOR_LOGW(u"format", args...) with a wide format.
#define ZOR_LOGW(...)                               \
  do {                                              \
    ZOR_LOG_SITE_(zorLogSite);                      \
    ::ZORLogWide(zorLogSite, __VA_ARGS__);          \
  } while (false)
