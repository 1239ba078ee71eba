#include "core/zorwideformat.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <string>

namespace {

std::u16string Format(const char16_t* format, ...) {
  char16_t buffer[512];
  va_list args;
  va_start(args, format);
  const size_t written = ZORFormatWideV(buffer, 512, format, args);
  va_end(args);
  EXPECT_EQ(buffer[written], u'\0');
  return std::u16string(buffer, written);
}

std::u16string Widen(const std::string& ascii) { return std::u16string(ascii.begin(), ascii.end()); }

}  // namespace

TEST(ZORFormatWide, IntegersHonourFlagsWidthAndPrecision) {
  EXPECT_EQ(Format(u"%d|%5d|%-5d|%05d|%+d|% d|%.3d", 42, 42, 42, 42, 42, 42, 42),
            u"42|   42|42   |00042|+42| 42|042");
  EXPECT_EQ(Format(u"%i %u %x %X %#x %o %#o", -7, 7u, 255u, 255u, 255u, 8u, 8u),
            u"-7 7 ff FF 0xff 10 010");
  EXPECT_EQ(Format(u"[%*d] [%*d] [%.*d]", 4, 1, -4, 2, 3, 5), u"[   1] [2   ] [005]");
}

TEST(ZORFormatWide, LengthModifiersReadTheRightArgumentSize) {
  EXPECT_EQ(Format(u"%lld %llu", LLONG_MIN, ULLONG_MAX),
            u"-9223372036854775808 18446744073709551615");
  EXPECT_EQ(Format(u"%I64d %I64u %I32d", static_cast<long long>(-5), 6ull, -7), u"-5 6 -7");
  EXPECT_EQ(Format(u"%zu %Iu %jd %td", SIZE_MAX, static_cast<size_t>(9), INTMAX_MIN,
                   static_cast<ptrdiff_t>(-3)),
            Widen(std::to_string(SIZE_MAX) + " 9 " + std::to_string(INTMAX_MIN) + " -3"));
  EXPECT_EQ(Format(u"%hd %hu %hhd %hhu", 65535, 65537, 255, 263), u"-1 1 -1 7");
  EXPECT_EQ(Format(u"%ld %lu %lx", -12L, 12UL, 0xABCUL), u"-12 12 abc");
}

TEST(ZORFormatWide, StringsFollowTheWindowsWideConventions) {
  EXPECT_EQ(Format(u"%s|%ls|%ws|%hs|%S", u"wide", u"long", u"w", "narrow", "capital"),
            u"wide|long|w|narrow|capital");
  EXPECT_EQ(Format(u"[%6s][%-6hs][%.2s][%.3hs][%*.*s]", u"ab", "cd", u"efgh", "ijkl", 4, 1, u"mn"),
            u"[    ab][cd    ][ef][ijk][   m]");
  EXPECT_EQ(Format(u"%s %hs", static_cast<const char16_t*>(nullptr), static_cast<const char*>(nullptr)),
            u"(null) (null)");
  EXPECT_EQ(Format(u"%s", u"\U0001F600\u00E9"), u"\U0001F600\u00E9");
  // The precision bounds what is read: an unterminated narrow array is safe.
  const char unterminated[3] = {'x', 'y', 'z'};
  EXPECT_EQ(Format(u"%.3hs", unterminated), u"xyz");
#if !defined(_WIN32)
  EXPECT_EQ(Format(u"%hs", "caf\xC3\xA9"), u"caf\u00E9");  // narrow is UTF-8 here
#endif
}

TEST(ZORFormatWide, CharactersAndFloatingPoint) {
  EXPECT_EQ(Format(u"%c%hc%C%3c", u'\u00E9', 'A', 'B', u'z'), u"\u00E9AB  z");
  EXPECT_EQ(Format(u"%.3f %e %g %G %5.1f", 3.14159, 12345.678, 0.0001, 1e-10, 2.26),
            u"3.142 1.234568e+04 0.0001 1E-10   2.3");
  EXPECT_EQ(Format(u"%Lf", 2.5L), u"2.500000");
  EXPECT_EQ(Format(u"%a", 1.0), u"0x1p+0");
}

TEST(ZORFormatWide, OddDirectivesAreCopiedAndPercentNWritesNothing) {
  int count = 99;
  EXPECT_EQ(Format(u"100%% sure %y, %n%d then %", &count, 5), u"100% sure %y, 5 then %");
  EXPECT_EQ(count, 99);
  EXPECT_EQ(Format(u"%-"), u"%-");
  EXPECT_EQ(Format(u""), u"");
}

TEST(ZORFormatWide, OutputIsCutToTheBufferAndAlwaysTerminated) {
  char16_t buffer[8];
  EXPECT_EQ(ZORFormatWide(buffer, 8, u"abcdefghij"), 7u);
  EXPECT_EQ(std::u16string(buffer), u"abcdefg");
  EXPECT_EQ(ZORFormatWide(buffer, 8, u"%d", 123456789), 7u);
  EXPECT_EQ(std::u16string(buffer), u"1234567");
  EXPECT_EQ(ZORFormatWide(buffer, 8, u"%20s", u"x"), 7u);
  EXPECT_EQ(std::u16string(buffer), u"       ");
  EXPECT_EQ(ZORFormatWide(buffer, 1, u"abc"), 0u);
  EXPECT_EQ(buffer[0], u'\0');
  EXPECT_EQ(ZORFormatWide(buffer, 0, u"abc"), 0u);
  EXPECT_EQ(ZORFormatWide(buffer, 8, nullptr), 0u);
  EXPECT_EQ(buffer[0], u'\0');
  // Huge widths and precisions fill the line and stop there.
  char16_t line[64];
  EXPECT_EQ(ZORFormatWide(line, 64, u"%99999d", 1), 63u);
  EXPECT_EQ(ZORFormatWide(line, 64, u"%.99999f", 1.0), 63u);
  EXPECT_EQ(std::u16string(line, 2), u"1.");
}
