// The example configurations in examples/ load at each location into the
// modes and chains they were written for, and every control they give
// reaches a process of its mode.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "config/zorapoconfigurationfile.h"

namespace {

constexpr uint32_t kSfx = 1;
constexpr uint32_t kMfx = 2;

std::u16string ExamplePath(const char* name) {
  return (std::filesystem::path(VELAPO_EXAMPLES_DIR) / name).u16string();
}

// Tech ids of the chain a mode runs for the layouts, or {"<none>"}.
std::vector<std::string> ChainOf(const ZORAPOOperatingMode& mode, uint32_t input,
                                 uint32_t output) {
  ZORAPOChainDesc chain;
  if (!mode.GetChainDefinition().FindChain(input, output, chain, true)) return {"<none>"};
  std::vector<std::string> techIds;
  for (const ZORAPOProcessDesc& process : chain.processes) techIds.push_back(process.techId);
  return techIds;
}

ZORAPOOperatingMode ModeOf(const ZORAPOConfigurationFile& config, const char* operatingMode,
                           const char* speakerType) {
  ZORAPOOperatingMode mode;
  EXPECT_TRUE(config.FindMode(ZORAPOModeId(operatingMode, speakerType), mode))
      << operatingMode << " " << speakerType;
  return mode;
}

// Every control of every mode names an instance of a process in that mode's
// chains at one of the locations, and a control of a chain one of its own
// processes: a misspelt instance id would silently reach nothing.
void ExpectEveryControlReachesAProcess(const char* file, std::initializer_list<uint32_t> locations) {
  std::vector<ZORAPOConfigurationFile> configs;
  for (const uint32_t location : locations) {
    configs.emplace_back();
    ASSERT_EQ(configs.back().Load(ExamplePath(file), 0, location), 0u) << file;
  }
  const size_t modeCount = configs[0].GetOperatingModes().size();
  for (size_t m = 0; m < modeCount; ++m) {
    std::set<std::string> instances;
    for (const ZORAPOConfigurationFile& config : configs) {
      for (const ZORAPOChainDesc& chain :
           config.GetOperatingModes().at(m)->GetChainDefinition().chains) {
        std::set<std::string> own;
        for (const ZORAPOProcessDesc& process : chain.processes) own.insert(process.instanceId);
        for (const auto& [name, value] : chain.controls) {
          EXPECT_TRUE(own.contains(value.GetInstanceId())) << file << ": " << name;
        }
        instances.insert(own.begin(), own.end());
      }
    }
    const ZORAPOOperatingMode& mode = *configs[0].GetOperatingModes()[m];
    for (const auto& [name, value] : mode.GetAllControls()) {
      EXPECT_TRUE(instances.contains(value.GetInstanceId()))
          << file << ": " << name << " in " << mode.GetModeId().operatingMode.GetText() << "/"
          << mode.GetModeId().speakerType.GetText();
    }
  }
}

TEST(ConfigExamples, LaptopHasThreeModesForEachSpeakerType) {
  ZORAPOConfigurationFile config;
  ASSERT_EQ(config.Load(ExamplePath("laptop.xml"), 0, kSfx), 0u);
  EXPECT_EQ(config.GetProductName(), u"Velapo Laptop Audio");
  EXPECT_EQ(config.GetDefaultMode(), ZORAPOModeId("APO4-Music", "APO4-Internal Stereo"));
  ASSERT_EQ(config.GetOperatingModes().size(), 6u);
  for (const char* speaker : {"APO4-Internal Stereo", "APO4-Headphones"}) {
    for (const char* operatingMode : {"APO4-Music", "APO4-Movie", "APO4-Voice"}) {
      const ZORAPOOperatingMode mode = ModeOf(config, operatingMode, speaker);
      EXPECT_FALSE(mode.GetPublicControls().IsEmpty()) << operatingMode << " " << speaker;
      EXPECT_FALSE(mode.GetTunedControls().IsEmpty()) << operatingMode << " " << speaker;
      EXPECT_FALSE(mode.GetAutoMic());
    }
  }
  // Content classes map to modes of the file.
  const ZORUTSValueList& properties = config.GetProperties();
  ASSERT_NE(properties.Find("APO4-ContentMode-Movie"), nullptr);
  EXPECT_EQ(properties.Find("APO4-ContentMode-Movie")->GetText(), "APO4-Movie");
  EXPECT_EQ(properties.Find("APO4-ContentMode-Communications")->GetText(), "APO4-Voice");
  EXPECT_EQ(properties.Find("APO4-Auto Content Mode Enable")->GetLong(), 1);
}

TEST(ConfigExamples, LaptopChainsAtTheStreamLocation) {
  ZORAPOConfigurationFile config;
  ASSERT_EQ(config.Load(ExamplePath("laptop.xml"), 0, kSfx), 0u);
  using Ids = std::vector<std::string>;
  const ZORAPOOperatingMode music = ModeOf(config, "APO4-Music", "APO4-Internal Stereo");
  EXPECT_EQ(ChainOf(music, kZORLayoutStereo, kZORLayoutStereo), (Ids{"peq", "widener"}));
  EXPECT_EQ(ChainOf(music, kZORLayoutMono, kZORLayoutStereo), Ids{"peq"});
  // Surround streams find no chain and take the bypass path's downmix.
  EXPECT_EQ(ChainOf(music, kZORLayout51, kZORLayoutStereo), Ids{"<none>"});
  const ZORAPOOperatingMode voice = ModeOf(config, "APO4-Voice", "APO4-Internal Stereo");
  EXPECT_EQ(ChainOf(voice, kZORLayoutMono, kZORLayoutStereo), (Ids{"peq", "widener"}));
  EXPECT_EQ(voice.GetAllControls().Find("SFX-Width:Widener-Width")->GetLong(), 0);
  const ZORAPOOperatingMode headphones = ModeOf(config, "APO4-Music", "APO4-Headphones");
  EXPECT_EQ(ChainOf(headphones, kZORLayoutStereo, kZORLayoutStereo), (Ids{"peq", "crossfeed"}));
  // The user's width is public; its tuning is not.
  EXPECT_NE(music.GetPublicControls().Find("SFX-Width:Widener-Width"), nullptr);
  EXPECT_NE(music.GetTunedControls().Find("SFX-EQ:PEQ-Band1 Frequency"), nullptr);
}

TEST(ConfigExamples, LaptopChainsAtTheModeLocation) {
  ZORAPOConfigurationFile config;
  ASSERT_EQ(config.Load(ExamplePath("laptop.xml"), 0, kMfx), 0u);
  using Ids = std::vector<std::string>;
  for (const char* operatingMode : {"APO4-Music", "APO4-Movie", "APO4-Voice"}) {
    EXPECT_EQ(ChainOf(ModeOf(config, operatingMode, "APO4-Internal Stereo"), kZORLayoutStereo,
                      kZORLayoutStereo),
              (Ids{"peq", "gain", "limiter"}));
    EXPECT_EQ(ChainOf(ModeOf(config, operatingMode, "APO4-Headphones"), kZORLayoutStereo,
                      kZORLayoutStereo),
              (Ids{"gain", "limiter"}));
  }
  // Other locations of the file have no chains.
  ZORAPOConfigurationFile atEfx;
  ASSERT_EQ(atEfx.Load(ExamplePath("laptop.xml"), 0, 3), 0u);
  for (const auto& mode : atEfx.GetOperatingModes()) {
    EXPECT_TRUE(mode->GetChainDefinition().chains.empty());
  }
}

TEST(ConfigExamples, MinimalHasOneModeAndAChainControl) {
  ZORAPOConfigurationFile config;
  ASSERT_EQ(config.Load(ExamplePath("minimal.xml"), 0, kSfx), 0u);
  ASSERT_EQ(config.GetOperatingModes().size(), 1u);
  const ZORAPOOperatingMode mode = ModeOf(config, "APO4-Default", "APO4-Any Speaker");
  EXPECT_EQ(config.GetDefaultMode(), mode.GetModeId());
  ZORAPOChainDesc surround;
  ASSERT_TRUE(mode.GetChainDefinition().FindChain(kZORLayout51, kZORLayoutStereo, surround, true));
  EXPECT_EQ(surround.controls.Find("SFX-Volume:Gain-Level")->GetLong(), -300);
  ZORAPOChainDesc stereo;
  ASSERT_TRUE(mode.GetChainDefinition().FindChain(kZORLayoutStereo, kZORLayoutStereo, stereo, true));
  EXPECT_TRUE(stereo.controls.IsEmpty());
}

TEST(ConfigExamples, EveryControlReachesAProcess) {
  ExpectEveryControlReachesAProcess("laptop.xml", {kSfx, kMfx});
  ExpectEveryControlReachesAProcess("minimal.xml", {kSfx, kMfx});
}

}  // namespace
