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

// The laptop example picks its chains by mode, layout and location.
TEST(ConfigExamples, LaptopChainsFollowModeLayoutAndLocation) {
  const Example sfx("laptop.xml", 1);
  EXPECT_EQ(sfx.config.GetDefaultMode(), ZORAPOModeId("APO4-Music", kSpeakers));
  EXPECT_EQ(sfx.Chain("APO4-Music", kSpeakers, kZORLayoutStereo), (Strings{"peq", "widener"}));
  EXPECT_EQ(sfx.Chain("APO4-Music", kSpeakers, kZORLayoutMono), Strings{"peq"});
  EXPECT_EQ(sfx.Chain("APO4-Music", kSpeakers, kZORLayout51), Strings{});  // bypass downmixes
  EXPECT_EQ(sfx.Chain("APO4-Movie", kPhones, kZORLayoutStereo), (Strings{"peq", "crossfeed"}));
  const Example mfx("laptop.xml", 2);
  EXPECT_EQ(mfx.Chain("APO4-Voice", kSpeakers, kZORLayoutStereo), (Strings{"peq", "gain", "limiter"}));
  EXPECT_EQ(mfx.Chain("APO4-Movie", kPhones, kZORLayoutStereo), (Strings{"gain", "limiter"}));
  const Example efx("laptop.xml", 3);
  for (const auto& mode : efx.config.GetOperatingModes()) {
    EXPECT_TRUE(mode->GetChainDefinition().chains.empty());
  }
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
