// veltech's control tables and how its processes take values: ranges,
// enumerated names, hundredths, text, and refusal of what they don't know.
#include <gtest/gtest.h>

#include <set>

#include "techtesting.h"

using techtest::Veltech;

TEST(VeltechControls, TablesAreWellFormedAndStartAtTheirDefaults) {
  for (const char* techId : {"gain", "peq", "limiter", "widener", "crossfeed", "passthrough"}) {
    SCOPED_TRACE(techId);
    Veltech process(techId);
    const ZORTechControl* records = nullptr;
    const int32_t count = process.Table().GetControls(process.Get(), &records);
    EXPECT_EQ(count == 0, std::string(techId) == "passthrough");
    std::set<std::string> names;
    for (const ZORTechControl& control : std::vector<ZORTechControl>(records, records + count)) {
      const std::string name = control.name;
      SCOPED_TRACE(name);
      EXPECT_TRUE(names.insert(name).second) << "duplicate";
      EXPECT_EQ(name.find(':'), std::string::npos);  // addressable as "InstanceId:Kind-Name"
      EXPECT_LE(control.first, control.defaultValue);
      EXPECT_LE(control.defaultValue, control.second);
      EXPECT_EQ(process.Value(name.c_str()), control.defaultValue);
      const char* valueName = nullptr;
      EXPECT_EQ(control.enumCount == 0 ? 0 : control.second + 1, static_cast<int32_t>(control.enumCount));
      EXPECT_EQ(process.Table().GetControlString(process.Get(), name.c_str(), &valueName) != 0, control.enumCount > 0);
      for (uint32_t v = 0; v < control.enumCount; ++v) {
        ASSERT_TRUE(process.Set(name.c_str(), static_cast<int32_t>(v)));
        ASSERT_TRUE(process.Table().GetControlString(process.Get(), name.c_str(), &valueName));
        EXPECT_STREQ(valueName, control.enumNames[v]);
      }
    }
  }
}

// Numbers are limited to the range, text parsed or refused; refusals change nothing.
TEST(VeltechControls, ValuesAreLimitedParsedOrRefused) {
  struct Row {
    const char* name;
    const char* text;  // nullptr: the number below
    int32_t number;
    bool taken;
    int32_t stored;
  };
  const Row rows[] = {
      {"PEQ-Band3 Gain", nullptr, 99999, true, 2400},         {"PEQ-Band3 Gain", nullptr, INT32_MIN, true, -2400},
      {"PEQ-Band3 Type", "high shelf", 0, true, 2},           {"PEQ-Band3 Frequency", "+1500", 0, true, 1500},
      {"PEQ-Band3 Frequency", "99999999999999", 0, true, 24000}, {"PEQ-Band3 Type", "Bell", 0, false, 2},
      {"PEQ-Band11 Gain", nullptr, 0, false, 0},              {"peq-band3 gain", nullptr, 0, false, 0},
  };
  Veltech peq("peq");
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(row.text != nullptr ? peq.SetText(row.name, row.text) : peq.Set(row.name, row.number), row.taken);
    if (row.taken || row.stored != 0) {
      EXPECT_EQ(peq.Value(row.name), row.stored);
    }
  }
  for (const char* junk : {"", "-", "+", "1.5", "12 dB", "Shelf", "0x10", " 5", "5:"}) {
    EXPECT_FALSE(peq.SetText("PEQ-Band3 Frequency", junk)) << '"' << junk << '"';
  }
  int32_t value = 0;
  EXPECT_FALSE(peq.SetText("PEQ-Band3 Frequency", nullptr) || peq.Set(nullptr, 0));
  EXPECT_FALSE(peq.Table().GetControlLong(peq.Get(), "PEQ-Nothing", &value));
  EXPECT_FALSE(peq.Table().GetControlLong(peq.Get(), "PEQ-Preamp", nullptr));
  EXPECT_EQ(peq.Value("PEQ-Band3 Frequency"), 24000);
}
