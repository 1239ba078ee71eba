// Tuning values: name forms, number rules, text and equality.
#include "config/zorutsvalue.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>

namespace {

TEST(ZORUTSValue, NameSplitsAtTheFirstColon) {
  const std::array<std::array<const char*, 3>, 4> cases = {{{"Control-Name", "", "Control-Name"},
                                                            {"Id:Control-Name", "Id", "Control-Name"},
                                                            {"MFX:Corvo:BEQ", "MFX", "Corvo:BEQ"},
                                                            {":x", "", "x"}}};
  for (const auto& [name, instance, control] : cases) {
    const ZORUTSValue value(name, 1);
    EXPECT_EQ(value.GetInstanceId(), instance) << name;
    EXPECT_EQ(value.GetControlName(), control) << name;
  }
  const ZORUTSValue wide("Id:Control", 1);
  EXPECT_EQ(wide.GetInstanceIdW() + u"|" + wide.GetControlNameW() + u"|" + wide.GetNameW(),
            u"Id|Control|Id:Control");
}

TEST(ZORUTSValue, TextRulesOfGetLong) {
  const std::pair<const char*, int32_t> cases[] = {
      {"Enabled", 1},   {"Disabled", 0}, {"12", 12},   {"-3", -3},      {"1.9", 1},
      {"-1.5", -1},     {"abc", -1},     {"12abc", 12}, {"+5", -1},     {".5", -1},
      {"enabled", -1},  {"Enabled ", -1}, {" 7", -1},  {"-", -1},       {"", -1},
      {"-0.9", 0},      {"1.5e3", 1500}, {"2.5e-1", 0}, {"1.5e", 1},    {"3.", 3},
      {"1e3", 1},  // no point: an integer as far as the digits go
      {"2147483647", std::numeric_limits<int32_t>::max()},
      {"2147483648", std::numeric_limits<int32_t>::max()},
      {"-2147483648", std::numeric_limits<int32_t>::min()},
      {"-99999999999", std::numeric_limits<int32_t>::min()},
      {"99999999999.5", std::numeric_limits<int32_t>::max()},
      {"1.0e999999999999", std::numeric_limits<int32_t>::max()},
      {"1.0e-999999999999", 0},
  };
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(ZORUTSValue("n", text).GetLong(), expected) << '"' << text << '"';
  }
}

// Int, Long and Float read as numbers; no value and every other kind read -1.
TEST(ZORUTSValue, KindRulesOfGetLong) {
  const std::pair<VELAnyValPtr, int32_t> cases[] = {
      {nullptr, -1},
      {std::make_shared<VELAnyValInt>(40), 40},
      {std::make_shared<VELAnyValLong>(-7), -7},
      {std::make_shared<VELAnyValFloat>(-2.9f), -2},
      {std::make_shared<VELAnyValFloat>(3e10f), std::numeric_limits<int32_t>::max()},
      {std::make_shared<VELAnyValFloat>(std::numeric_limits<float>::quiet_NaN()), -1},
      {std::make_shared<VELAnyValBool>(uint8_t{1}), -1},
      {std::make_shared<VELAnyValShort>(static_cast<int16_t>(5)), -1},
      {std::make_shared<VELAnyValDouble>(5.0), -1},
      {std::make_shared<VELAnyValWString>(std::u16string(u"5")), -1},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    ZORUTSValue value;
    value.value = cases[i].first;
    EXPECT_EQ(value.GetLong(), cases[i].second) << "case " << i;
  }
}

TEST(ZORUTSValue, CopiesShareTheValueUntilASetterReplacesIt) {
  ZORUTSValue original("a", "one");
  const ZORUTSValue copy = original;
  EXPECT_EQ(copy.value, original.value);
  original.SetText("two");
  EXPECT_EQ(copy.GetText(), "one");
  EXPECT_TRUE(original.SetTextW(u"three"));
  EXPECT_EQ(original.GetText(), "three");
  EXPECT_EQ(original.value->GetType(), VEL_ANYVAL_ASTRING);
  EXPECT_FALSE(original.NameEquals("A"));
  EXPECT_EQ(ZORUTSValue().GetText(), "");
}

TEST(ZORUTSValue, EqualityIgnoresTheKind) {
  EXPECT_EQ(ZORUTSValue("x", 1), ZORUTSValue("x", "1"));
  EXPECT_NE(ZORUTSValue("x", 1), ZORUTSValue("X", 1));
  EXPECT_NE(ZORUTSValue("x", 1), ZORUTSValue("x", "1.0"));
  const ZORUTSValue text("x", std::string("ab\0c", 4));
  EXPECT_TRUE(text.TextEquals(std::string_view("ab\0c", 4)));
  EXPECT_FALSE(text.TextEquals("ab"));  // also by length
}

}  // namespace
