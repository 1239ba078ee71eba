#pragma once

#include <cstdarg>
#include <cstddef>

// printf-style formatting into UTF-16, the same on every platform, following
// the Windows conventions for wide formats: %s, %ls, %ws are char16_t strings;
// %hs and %S are narrow strings (platform multibyte, widened); %c is a
// char16_t, %hc and %C a narrow char. Flags, width and precision (also '*'),
// the length modifiers hh h l ll z j t L I I32 I64, and the conversions
// d i u x X o c s p f F e E g G a A % are understood; numbers are formatted by
// the C library. %n writes nothing. An unknown directive is copied as it
// stands. A null string prints "(null)".
//
// Writes at most capacity - 1 units and always a terminator when capacity is
// at least 1; longer output is cut. Returns the units written without the
// terminator. Uses only the stack. Any thread.
size_t ZORFormatWideV(char16_t* buffer, size_t capacity, const char16_t* format, va_list args);
size_t ZORFormatWide(char16_t* buffer, size_t capacity, const char16_t* format, ...);
