// veltech's control tables and how its processes take values: ranges,
// enumerated names, hundredths, text, and refusal of what they don't know.
#include <gtest/gtest.h>

#include <set>

#include "audio/zorapoprocesswrapper.h"
#include "techtesting.h"

namespace {

using techtest::Veltech;

const char* const kTechIds[] = {"gain", "peq", "limiter", "widener", "crossfeed", "passthrough"};

// The "Kind-" in front of every control name of a process.
std::string PrefixOf(const std::string& techId) {
  if (techId == "gain") return "Gain-";
  if (techId == "peq") return "PEQ-";
  if (techId == "limiter") return "Limiter-";
  if (techId == "widener") return "Widener-";
  return "Crossfeed-";
}

}  // namespace

TEST(VeltechControls, TablesAreWellFormedAndStartAtTheirDefaults) {
  for (const char* techId : kTechIds) {
    SCOPED_TRACE(techId);
    Veltech process(techId);
    ASSERT_NE(process.Get(), nullptr);
    const ZORTechControl* records = nullptr;
    const int32_t count = process.Table().GetControls(process.Get(), &records);
    if (std::string(techId) == "passthrough") {
      EXPECT_EQ(count, 0);
      continue;
    }
    ASSERT_GT(count, 0);
    ASSERT_NE(records, nullptr);
    std::set<std::string> names;
    for (int32_t i = 0; i < count; ++i) {
      const ZORTechControl& control = records[i];
      const std::string name = control.name;
      SCOPED_TRACE(name);
      EXPECT_TRUE(names.insert(name).second) << "duplicate";
      // "Kind-Name": addressable as "InstanceId:Kind-Name", so no colon.
      EXPECT_EQ(name.rfind(PrefixOf(techId), 0), 0u);
      EXPECT_EQ(name.find(':'), std::string::npos);
      EXPECT_LE(control.first, control.defaultValue);
      EXPECT_LE(control.defaultValue, control.second);
      EXPECT_EQ(process.Value(name.c_str()), control.defaultValue);
      if (control.enumCount > 0) {
        ASSERT_NE(control.enumNames, nullptr);
        EXPECT_EQ(control.first, 0);
        EXPECT_EQ(control.second, static_cast<int32_t>(control.enumCount) - 1);
        for (uint32_t v = 0; v < control.enumCount; ++v) {
          const char* valueName = nullptr;
          ASSERT_TRUE(process.Set(name.c_str(), static_cast<int32_t>(v)));
          ASSERT_TRUE(process.Table().GetControlString(process.Get(), name.c_str(), &valueName));
          EXPECT_STREQ(valueName, control.enumNames[v]);
        }
      } else {
        EXPECT_EQ(control.enumNames, nullptr);
        const char* text = nullptr;
        EXPECT_FALSE(process.Table().GetControlString(process.Get(), name.c_str(), &text));
      }
    }
  }
}

TEST(VeltechControls, ValuesAreLimitedParsedOrRefused) {
  Veltech peq("peq");
  ASSERT_NE(peq.Get(), nullptr);
  // Out of range: limited to the range, not refused.
  EXPECT_TRUE(peq.Set("PEQ-Band3 Gain", 99999));
  EXPECT_EQ(peq.Value("PEQ-Band3 Gain"), 2400);
  EXPECT_TRUE(peq.Set("PEQ-Band3 Gain", INT32_MIN));
  EXPECT_EQ(peq.Value("PEQ-Band3 Gain"), -2400);
  // Value names in any case, and whole numbers as text.
  EXPECT_TRUE(peq.SetText("PEQ-Band3 Type", "high shelf"));
  EXPECT_EQ(peq.Value("PEQ-Band3 Type"), 2);
  EXPECT_TRUE(peq.SetText("PEQ-Band3 Enable", "Enabled"));
  EXPECT_EQ(peq.Value("PEQ-Band3 Enable"), 1);
  EXPECT_TRUE(peq.SetText("PEQ-Band3 Frequency", "+1500"));
  EXPECT_EQ(peq.Value("PEQ-Band3 Frequency"), 1500);
  EXPECT_TRUE(peq.SetText("PEQ-Band3 Frequency", "99999999999999"));
  EXPECT_EQ(peq.Value("PEQ-Band3 Frequency"), 24000);
  // Anything else is refused and changes nothing.
  for (const char* junk : {"", "-", "+", "1.5", "12 dB", "Shelf", "0x10", " 5"}) {
    EXPECT_FALSE(peq.SetText("PEQ-Band3 Frequency", junk)) << '"' << junk << '"';
  }
  EXPECT_FALSE(peq.SetText("PEQ-Band3 Frequency", nullptr));
  EXPECT_EQ(peq.Value("PEQ-Band3 Frequency"), 24000);
  // Unknown names, or names in the wrong case, aren't controls.
  int32_t value = 0;
  EXPECT_FALSE(peq.Set("PEQ-Band11 Gain", 0));
  EXPECT_FALSE(peq.Set("peq-band3 gain", 0));
  EXPECT_FALSE(peq.Set(nullptr, 0));
  EXPECT_FALSE(peq.SetText("PEQ-Band0 Type", "Peak"));
  EXPECT_FALSE(peq.Table().GetControlLong(peq.Get(), "PEQ-Nothing", &value));
  EXPECT_FALSE(peq.Table().GetControlLong(peq.Get(), "PEQ-Preamp", nullptr));
}

TEST(VeltechControls, ConfigurationValuesArriveThroughTheWrapper) {
  ZORAPOProcessLibrary::SetModulePath(nullptr);
  ZORAPOProcessWrapper wrapper;
  ASSERT_TRUE(wrapper.Load("peq", "EQ", "", 0));
  // The forms a configuration writes: hundredths, value names, switches.
  EXPECT_TRUE(wrapper.SetControl(ZORUTSValue("EQ:PEQ-Band1 Gain", std::string("-350"))));
  EXPECT_TRUE(wrapper.SetControl(ZORUTSValue("EQ:PEQ-Band1 Type", std::string("Low Pass"))));
  EXPECT_TRUE(wrapper.SetControl(ZORUTSValue("PEQ-Band1 Enable", std::string("Enabled"))));
  EXPECT_FALSE(wrapper.SetControl(ZORUTSValue("EQ:PEQ-Band1 Type", std::string("Bell"))));
  EXPECT_FALSE(wrapper.SetControl(ZORUTSValue("EQ:Gain-Level", std::string("0"))));
  ZORUTSValue gain("EQ:PEQ-Band1 Gain", 0);
  ASSERT_TRUE(wrapper.GetControl(gain));
  EXPECT_EQ(gain.GetLong(), -350);
  ZORUTSValue type("PEQ-Band1 Type", 0);
  ASSERT_TRUE(wrapper.GetControl(type));
  EXPECT_EQ(type.GetLong(), 3);
  std::vector<ZORUTSControlInfo> controls;
  EXPECT_EQ(wrapper.EnumControls(controls), 51u);
  EXPECT_EQ(controls[0].name, "PEQ-Preamp");
  EXPECT_EQ(controls[0].GetScale(), 100.0f);
  EXPECT_EQ(controls[2].name, "PEQ-Band1 Type");
  EXPECT_EQ(controls[2].enumNames.size(), 6u);
}
