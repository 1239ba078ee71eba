// UTF-8 and UTF-16: round trips, replacement of ill-formed text, bounds.
#include "platform/text.h"

#include <gtest/gtest.h>

#include <string>

using zor::os::Utf16ToUtf8;
using zor::os::Utf8ToUtf16;

TEST(Text, Utf8AndUtf16RoundTripEveryPlane) {
  // a, e acute, euro sign, U+10FFFF and a smiley from the supplementary planes.
  const std::string utf8 = "a\xC3\xA9\xE2\x82\xAC\xF4\x8F\xBF\xBF\xF0\x9F\x98\x80";
  const std::u16string utf16 = u"a\u00E9\u20AC\U0010FFFF\U0001F600";
  EXPECT_EQ(Utf8ToUtf16(utf8), utf16);
  EXPECT_EQ(Utf16ToUtf8(utf16), utf8);
  EXPECT_EQ(zor::os::Utf8LengthOf(utf16), utf8.size());
  EXPECT_EQ(Utf8ToUtf16(""), u"");
  EXPECT_EQ(Utf16ToUtf8(u""), "");
}

TEST(Text, IllFormedTextBecomesOneReplacementPerMaximalPart) {
  // The example the Unicode standard gives for U+FFFD substitution.
  EXPECT_EQ(Utf8ToUtf16("\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64"),
            u"a\uFFFD\uFFFD\uFFFDb\uFFFDc\uFFFD\uFFFDd");
  EXPECT_EQ(Utf8ToUtf16("\xC0\xAF"), u"\uFFFD\uFFFD");               // overlong '/'
  EXPECT_EQ(Utf8ToUtf16("\xE0\x80\xAF"), u"\uFFFD\uFFFD\uFFFD");      // overlong, 3 bytes
  EXPECT_EQ(Utf8ToUtf16("\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD");      // encoded surrogate
  EXPECT_EQ(Utf8ToUtf16("\xF4\x90\x80\x80"), u"\uFFFD\uFFFD\uFFFD\uFFFD");  // past U+10FFFF
  EXPECT_EQ(Utf8ToUtf16("\xF5\xFF"), u"\uFFFD\uFFFD");
  EXPECT_EQ(Utf8ToUtf16("x\xE2\x82"), u"x\uFFFD");                   // cut at the end
  EXPECT_EQ(Utf8ToUtf16("\xF0\x9F\x98x"), u"\uFFFDx");
  // Decoding never reads past the view.
  const std::string euro = "\xE2\x82\xAC";
  EXPECT_EQ(Utf8ToUtf16(std::string_view(euro.data(), 2)), u"\uFFFD");
  const std::u16string pair = u"\U0001F600";
  EXPECT_EQ(Utf16ToUtf8(std::u16string_view(pair.data(), 1)), "\xEF\xBF\xBD");
  // Unpaired surrogates become replacements.
  const char16_t lead[] = {0xD83D, u'x', 0};
  const char16_t trail[] = {0xDE00, 0xDE00, 0};  // a trail never leads a pair
  const char16_t reversed[] = {0xDE00, 0xD83D, 0};
  EXPECT_EQ(Utf16ToUtf8(lead), "\xEF\xBF\xBDx");
  EXPECT_EQ(Utf16ToUtf8(trail), "\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(Utf16ToUtf8(reversed), "\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(zor::os::Utf8LengthOf(reversed), 6u);
}

TEST(Text, BoundedConversionsStopBeforeACharacterThatDoesNotFit) {
  char16_t wide[4] = {u'#', u'#', u'#', u'#'};
  // "ab" then a character that needs a surrogate pair: only "ab" fits in 3.
  EXPECT_EQ(zor::os::Utf8ToUtf16Into("ab\xF0\x9F\x98\x80", wide, 3), 2u);
  EXPECT_EQ(std::u16string(wide, 4), u"ab##");
  char narrow[5] = {'#', '#', '#', '#', '#'};
  // 'a' then the euro sign (3 bytes): only 'a' fits in 3.
  EXPECT_EQ(zor::os::Utf16ToUtf8Into(u"a\u20AC", narrow, 3), 1u);
  EXPECT_EQ(std::string(narrow, 5), "a####");
  EXPECT_EQ(zor::os::Utf16ToUtf8Into(u"a\u20AC", narrow, 4), 4u);
  EXPECT_EQ(zor::os::NarrowToWideInto("abc", wide, 0), 0u);
  EXPECT_EQ(zor::os::NarrowToWideInto("abcdef", wide, 3), 3u);
  EXPECT_EQ(std::u16string(wide, 3), u"abc");
}
