#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zor::os {

// Wide text is UTF-16 on every platform (char16_t). Narrow text is the
// platform's multibyte encoding: UTF-8 on POSIX, the ANSI code page on
// Windows. Any thread.

std::u16string NarrowToWide(std::string_view narrow);
std::string WideToNarrow(std::u16string_view wide);

// Converts narrow text into out without allocating when it fits, writing at
// most `capacity` units and no terminator; returns the units written. Text
// that does not fit is cut at a character boundary.
size_t NarrowToWideInto(std::string_view narrow, char16_t* out, size_t capacity);

// UTF-8 <-> UTF-16 on every platform. Every ill-formed sequence (stray or
// missing continuation bytes, overlong forms, surrogates, values past
// U+10FFFF, unpaired surrogates) becomes U+FFFD, one per maximal ill-formed
// part; nothing is read past the input.
std::u16string Utf8ToUtf16(std::string_view utf8);
std::string Utf16ToUtf8(std::u16string_view utf16);

// Bounded forms of the same: write at most `capacity` units, never split a
// character, add no terminator, and return the units written.
size_t Utf8ToUtf16Into(std::string_view utf8, char16_t* out, size_t capacity);
size_t Utf16ToUtf8Into(std::u16string_view utf16, char* out, size_t capacity);
// Units Utf16ToUtf8 would produce.
size_t Utf8LengthOf(std::u16string_view utf16);

#if defined(_WIN32)
// Win32's W entry points take UTF-16 as wchar_t, which is 16-bit there.
static_assert(sizeof(wchar_t) == sizeof(char16_t), "Win32 wchar_t must be UTF-16");
inline const wchar_t* AsWinChars(const char16_t* text) {
  return reinterpret_cast<const wchar_t*>(text);
}
inline wchar_t* AsWinChars(char16_t* text) { return reinterpret_cast<wchar_t*>(text); }
inline const char16_t* FromWinChars(const wchar_t* text) {
  return reinterpret_cast<const char16_t*>(text);
}
#endif

}  // namespace zor::os
