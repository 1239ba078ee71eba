// The example configurations in examples/ load at each location into the
// modes and chains they were written for, and every control they give
// reaches a process of its mode.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "config/zorapoconfigurationfile.h"

namespace {

using Strings = std::vector<std::string>;

struct Example {
  explicit Example(const char* name, uint32_t location) {
    const auto path = std::filesystem::path(VELAPO_EXAMPLES_DIR) / name;
    EXPECT_EQ(config.Load(path.u16string(), 0, location), 0u) << name;
  }
  ZORAPOOperatingMode Mode(const char* operatingMode, const char* speakerType) const {
    ZORAPOOperatingMode mode;
    EXPECT_TRUE(config.FindMode(ZORAPOModeId(operatingMode, speakerType), mode)) << operatingMode;
    return mode;
  }
  // Tech ids of the chain a mode runs for the layouts.
  Strings Chain(const char* operatingMode, const char* speakerType, uint32_t input) const {
    ZORAPOChainDesc chain;
    Strings techIds;
    if (Mode(operatingMode, speakerType)
            .GetChainDefinition()
            .FindChain(input, kZORLayoutStereo, chain, true)) {
      for (const ZORAPOProcessDesc& process : chain.processes) techIds.push_back(process.techId);
    }
    return techIds;
  }
  ZORAPOConfigurationFile config;
};

constexpr const char* kSpeakers = "APO4-Internal Stereo";
constexpr const char* kPhones = "APO4-Headphones";

TEST(ConfigExamples, LaptopModesAndChainsAtSfxAndMfx) {
  const Example sfx("laptop.xml", 1);
  EXPECT_EQ(sfx.config.GetProductName(), u"Velapo Laptop Audio");
  EXPECT_EQ(sfx.config.GetDefaultMode(), ZORAPOModeId("APO4-Music", kSpeakers));
  EXPECT_EQ(sfx.config.GetOperatingModes().size(), 6u);
  EXPECT_EQ(sfx.config.GetProperties().Find("APO4-ContentMode-Movie")->GetText(), "APO4-Movie");
  EXPECT_EQ(sfx.config.GetProperties().Find("APO4-ContentMode-Communications")->GetText(),
            "APO4-Voice");
  EXPECT_EQ(sfx.Chain("APO4-Music", kSpeakers, kZORLayoutStereo), (Strings{"peq", "widener"}));
  EXPECT_EQ(sfx.Chain("APO4-Music", kSpeakers, kZORLayoutMono), Strings{"peq"});
  EXPECT_EQ(sfx.Chain("APO4-Music", kSpeakers, kZORLayout51), Strings{});  // bypass downmixes
  EXPECT_EQ(sfx.Chain("APO4-Movie", kPhones, kZORLayoutStereo), (Strings{"peq", "crossfeed"}));
  EXPECT_EQ(sfx.Chain("APO4-Voice", kSpeakers, kZORLayoutMono), (Strings{"peq", "widener"}));
  const ZORAPOOperatingMode voice = sfx.Mode("APO4-Voice", kSpeakers);
  EXPECT_EQ(voice.GetAllControls().Find("SFX-Width:Widener-Width")->GetLong(), 0);  // mono voice
  const ZORAPOOperatingMode music = sfx.Mode("APO4-Music", kSpeakers);
  EXPECT_NE(music.GetPublicControls().Find("SFX-Width:Widener-Width"), nullptr);
  EXPECT_NE(music.GetTunedControls().Find("SFX-EQ:PEQ-Band1 Frequency"), nullptr);

  const Example mfx("laptop.xml", 2);
  for (const char* operatingMode : {"APO4-Music", "APO4-Movie", "APO4-Voice"}) {
    EXPECT_EQ(mfx.Chain(operatingMode, kSpeakers, kZORLayoutStereo),
              (Strings{"peq", "gain", "limiter"}));
    EXPECT_EQ(mfx.Chain(operatingMode, kPhones, kZORLayoutStereo), (Strings{"gain", "limiter"}));
  }
  const Example efx("laptop.xml", 3);
  for (const auto& mode : efx.config.GetOperatingModes()) {
    EXPECT_TRUE(mode->GetChainDefinition().chains.empty());
  }
}

TEST(ConfigExamples, MinimalHasOneModeAndAChainControl) {
  const Example sfx("minimal.xml", 1);
  ASSERT_EQ(sfx.config.GetOperatingModes().size(), 1u);
  const ZORAPOOperatingMode mode = sfx.Mode("APO4-Default", "APO4-Any Speaker");
  EXPECT_EQ(sfx.config.GetDefaultMode(), mode.GetModeId());
  ZORAPOChainDesc surround;
  ASSERT_TRUE(mode.GetChainDefinition().FindChain(kZORLayout51, kZORLayoutStereo, surround, true));
  EXPECT_EQ(surround.controls.Find("SFX-Volume:Gain-Level")->GetLong(), -300);
}

// A misspelt instance id would silently reach nothing: every control of a
// mode names a process of the mode's chains, and a chain's control one of
// its own.
TEST(ConfigExamples, EveryControlReachesAProcess) {
  for (const char* file : {"laptop.xml", "minimal.xml"}) {
    const Example sfx(file, 1);
    const Example mfx(file, 2);
    for (size_t m = 0; m < sfx.config.GetOperatingModes().size(); ++m) {
      std::set<std::string> instances;
      for (const Example* example : {&sfx, &mfx}) {
        for (const auto& chain :
             example->config.GetOperatingModes().at(m)->GetChainDefinition().chains) {
          std::set<std::string> own;
          for (const auto& process : chain.processes) own.insert(process.instanceId);
          for (const auto& [name, value] : chain.controls) {
            EXPECT_TRUE(own.contains(value.GetInstanceId())) << file << ": " << name;
          }
          instances.insert(own.begin(), own.end());
        }
      }
      for (const auto& [name, value] : sfx.config.GetOperatingModes()[m]->GetAllControls()) {
        EXPECT_TRUE(instances.contains(value.GetInstanceId())) << file << ": " << name;
      }
    }
  }
}

}  // namespace
