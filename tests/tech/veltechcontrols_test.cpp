// veltech's control tables and how its processes take values: ranges,
// enumerated names, hundredths, text, and refusal of what they don't know.
#include <gtest/gtest.h>

#include <set>

#include "audio/zorapoprocesswrapper.h"
#include "techtesting.h"

using techtest::Veltech;

TEST(VeltechControls, TablesAreWellFormedAndStartAtTheirDefaults) {
  const std::pair<const char*, const char*> kinds[] = {{"gain", "Gain-"},         {"peq", "PEQ-"},
                                                       {"limiter", "Limiter-"},   {"widener", "Widener-"},
                                                       {"crossfeed", "Crossfeed-"}, {"passthrough", ""}};
  for (const auto& [techId, prefix] : kinds) {
    SCOPED_TRACE(techId);
    Veltech process(techId);
    ASSERT_NE(process.Get(), nullptr);
    const ZORTechControl* records = nullptr;
    const int32_t count = process.Table().GetControls(process.Get(), &records);
    EXPECT_EQ(count == 0, std::string(techId) == "passthrough");
    std::set<std::string> names;
    for (int32_t i = 0; i < count; ++i) {
      const ZORTechControl& control = records[i];
      const std::string name = control.name;
      SCOPED_TRACE(name);
      EXPECT_TRUE(names.insert(name).second) << "duplicate";
      // "Kind-Name", addressable as "InstanceId:Kind-Name": no colon.
      EXPECT_EQ(name.rfind(prefix, 0), 0u);
      EXPECT_EQ(name.find(':'), std::string::npos);
      EXPECT_LE(control.first, control.defaultValue);
      EXPECT_LE(control.defaultValue, control.second);
      EXPECT_EQ(process.Value(name.c_str()), control.defaultValue);
      const char* valueName = nullptr;
      EXPECT_EQ(control.enumNames == nullptr, control.enumCount == 0);
      if (control.enumCount == 0) {
        EXPECT_FALSE(process.Table().GetControlString(process.Get(), name.c_str(), &valueName));
        continue;
      }
      EXPECT_EQ(control.first, 0);
      EXPECT_EQ(control.second, static_cast<int32_t>(control.enumCount) - 1);
      for (uint32_t v = 0; v < control.enumCount; ++v) {
        ASSERT_TRUE(process.Set(name.c_str(), static_cast<int32_t>(v)));
        ASSERT_TRUE(process.Table().GetControlString(process.Get(), name.c_str(), &valueName));
        EXPECT_STREQ(valueName, control.enumNames[v]);
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
  EXPECT_FALSE(peq.Table().GetControlLong(peq.Get(), "PEQ-Nothing", &value));
  EXPECT_FALSE(peq.Table().GetControlLong(peq.Get(), "PEQ-Preamp", nullptr));

  // The forms a configuration writes, through the wrapper: hundredths,
  // value names, switches.
  ZORAPOProcessLibrary::SetModulePath(nullptr);
  ZORAPOProcessWrapper wrapper;
  ASSERT_TRUE(wrapper.Load("peq", "EQ", "", 0));
  EXPECT_TRUE(wrapper.SetControl(ZORUTSValue("EQ:PEQ-Band1 Type", std::string("Low Pass"))));
  EXPECT_TRUE(wrapper.SetControl(ZORUTSValue("PEQ-Band1 Enable", std::string("Enabled"))));
  EXPECT_FALSE(wrapper.SetControl(ZORUTSValue("EQ:PEQ-Band1 Type", std::string("Bell"))));
  ZORUTSValue type("PEQ-Band1 Type", 0);
  ASSERT_TRUE(wrapper.GetControl(type));
  EXPECT_EQ(type.GetLong(), 3);
  std::vector<ZORUTSControlInfo> controls;
  EXPECT_EQ(wrapper.EnumControls(controls), 51u);
  EXPECT_EQ(controls[0].GetScale(), 100.0f);  // PEQ-Preamp, in hundredths
}
