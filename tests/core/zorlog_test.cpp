#include "core/zorlog.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/zorapoutils.h"
#include "support/zorlogcapture.h"

namespace {

std::string Prefix(int line, const char* function) {
  return std::string(__FILE__) + "(" + std::to_string(line) + ") | " + function + " | ";
}

template <size_t N>
std::string NameOf(const char (&signature)[N]) {
  std::string name;
  zor::logdetail::ForEachNameChar(std::string_view(signature, N - 1),
                                  [&name](char c) { name.push_back(c); });
  return name;
}

}  // namespace

class LogProbe {
 public:
  static int LogNarrow() {
    const int line = __LINE__; ZOR_LOG("value %d of %s\n", 7, "seven");
    return line;
  }
  static int LogWide() {
    const int line = __LINE__; ZOR_LOGW(u"value %d of %s and %hs\n", 7, u"s\u00E9ven", "eight");
    return line;
  }
};

TEST(ZORLog, LinesArePrefixedWithFileLineAndFunction) {
  ZORLogCapture log;
  const int narrow = LogProbe::LogNarrow();
  const int wide = LogProbe::LogWide();  // Windows string conventions: %s wide, %hs narrow
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{
                             Prefix(narrow, "LogProbe::LogNarrow") + "value 7 of seven\n",
                             Prefix(wide, "LogProbe::LogWide") + "value 7 of s\xC3\xA9ven and eight\n"}));
}

TEST(ZORLog, NameIsFoundInEitherCompilersSignatures) {
  EXPECT_EQ(NameOf("static bool ZORFoo::Bar(T) [with T = int]"), "ZORFoo::Bar");
  EXPECT_EQ(NameOf("std::pair<int, int> ZORFoo<char>::Pairs(const std::vector<int>&) const"),
            "ZORFoo::Pairs");
  EXPECT_EQ(NameOf("ZORFoo::Bar<int>(int)::<lambda()>"), "ZORFoo::Bar");
  EXPECT_EQ(NameOf("auto ZORFoo::Bar()::(anonymous class)::operator()() const"), "ZORFoo::Bar");
  EXPECT_EQ(NameOf("ZORFoo::operator bool() const"), "ZORFoo::operator bool");
  EXPECT_EQ(NameOf("bool ZORFoo::operator<(const ZORFoo&) const"), "ZORFoo::operator<");
  EXPECT_EQ(NameOf("virtual ZORFoo::~ZORFoo()"), "ZORFoo::~ZORFoo");
  EXPECT_EQ(NameOf("void (* ZORFoo::Callback())(int)"), "ZORFoo::Callback");
  EXPECT_EQ(NameOf("void {anonymous}::Helper(int)"), "Helper");
  EXPECT_EQ(NameOf("void (anonymous namespace)::Helper(int)"), "Helper");
  EXPECT_EQ(NameOf("int main()"), "main");
}

TEST(ZORLog, EmptyMessagesAndNullSiteFieldsLeaveJustThePrefix) {
  ZORLogCapture log;
  const ZORLogSite site{"file.cpp", 12, "ZORFoo::Bar"};
  const ZORLogSite empty{nullptr, 0, nullptr};
  ZORLogNarrow(site, "%s", "");
  ZORLogWide(site, u"");
  ZORLogNarrow(empty, nullptr);
  ZORLogWide(empty, nullptr);
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{"file.cpp(12) | ZORFoo::Bar | ",
                                                   "file.cpp(12) | ZORFoo::Bar | ", "(0) |  | ", "(0) |  | "}));
}

TEST(ZORLog, LongMessagesAreCutToTheBufferAndTerminated) {
  ZORLogCapture log;
  const ZORLogSite site{"f.cpp", -3, "ZORFoo::Bar"};
  const std::string prefix = "f.cpp(-3) | ZORFoo::Bar | ";
  const std::string longText(5000, 'x');
  const std::u16string longWide(5000, u'w');
  ZORLogNarrow(site, "%s", longText.c_str());
  ZORLogWide(site, u"%s", longWide.c_str());
  // A line that ends in a character outside the basic plane is cut before it, never through its surrogate pair.
  std::u16string pairs;
  for (int i = 0; i < 2000; ++i) pairs += u"\U0001F600";
  ZORLogWide(site, u"%s", pairs.c_str());
  const auto lines = log.Lines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], prefix + std::string(kZORLogBufferUnits - 1 - prefix.size(), 'x'));
  EXPECT_EQ(lines[1], prefix + std::string(kZORLogBufferUnits - 1 - prefix.size(), 'w'));
  // A prefix longer than the buffer is cut too, and the message after it goes.
  const std::string longFile(2 * kZORLogBufferUnits, 'f');
  ZORLogNarrow(ZORLogSite{longFile.c_str(), 1, "F"}, "%s", "lost");
  EXPECT_EQ(log.Lines().back(), std::string(kZORLogBufferUnits - 1, 'f'));
  const size_t pairsThatFit = (kZORLogBufferUnits - 1 - prefix.size()) / 2;
  std::string expectedPairs;
  for (size_t i = 0; i < pairsThatFit; ++i) expectedPairs += "\xF0\x9F\x98\x80";
  EXPECT_EQ(lines[2], prefix + expectedPairs);
}

// As Windows prints %p, so that a line compares across platforms: glibc's
// own %p gives "0x0x12ab" and "0x(nil)" behind the messages' "0x".
TEST(ZORLog, PointersReadAsWindowsPrintsThem) {
  ZORLogCapture log;
  const ZORLogSite site{"f.cpp", 1, "F"};
  const std::string zeros(2 * sizeof(void*) - 4, '0');
  for (const auto& [pointer, digits] : {std::pair{0x12abu, "12AB"}, std::pair{0u, "0000"}}) {
    const auto* p = reinterpret_cast<const void*>(uintptr_t{pointer});
    ZORLogNarrow(site, "at 0x%s", ZORPointerText(p).text);
    ZORLogWide(site, u"at 0x%p|%20p", p, p);
    const std::string text = zeros + digits;
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{"f.cpp(1) | F | at 0x" + text,
                                                     "f.cpp(1) | F | at 0x" + text + "|" +
                                                         std::string(20 - text.size(), ' ') + text}));
    log.Clear();
  }
}

TEST(ZORAPOUtils, VersionBannerWritesFiveLines) {
  ZORLogCapture log;
  ZORAPOUtils::PrintVersionBanner("velapo-host", "0.1.0", "Nov 22 2025");
  const auto lines = log.Lines();
  ASSERT_EQ(lines.size(), 5u);
  const char* expected[] = {
      "*******************************************************************\n",
      "  Name       Version     Built \n",
      "  VEL APO    4.0.19.0      Tue Aug 14 13:17:11 2018    \n",
      "  velapo-host     0.1.0      Nov 22 2025    \n",
      "*******************************************************************\n",
  };
  const std::string marker = " | ZORAPOUtils::PrintVersionBanner | ";
  for (size_t i = 0; i < lines.size(); ++i) {
    const size_t at = lines[i].find(marker);
    ASSERT_NE(at, std::string::npos) << lines[i];
    EXPECT_EQ(lines[i].substr(at + marker.size()), expected[i]);
  }
}
