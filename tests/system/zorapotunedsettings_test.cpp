#include "system/zorapotunedsettings.h"

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <string>

#include "system/zorapoendpointinfo.h"

namespace {

// A mode whose operating mode text no other test run uses, so its block
// name is private to this test.
ZORAPOOperatingMode UniqueMode(const char* speakerType = "APO4-Internal Stereo") {
  static const uint64_t run = (uint64_t{std::random_device{}()} << 32) ^ std::random_device{}();
  static std::atomic<int> counter{0};
  ZORAPOOperatingMode mode;
  mode.id = ZORAPOModeId("APO4-Test " + std::to_string(run) + "-" + std::to_string(counter++),
                         speakerType);
  mode.publicControls.Insert(ZORUTSValue("MFX:Corvo-BEQ Enable", "1"));
  mode.publicControls.Insert(ZORUTSValue("Volume", "5"));
  mode.tunedControls.Insert(ZORUTSValue("Volume", "7"));
  mode.tunedControls.Insert(ZORUTSValue("Bass", "3"));
  return mode;
}

std::string TextIn(const ZORUTSValueList& list, const char* name) {
  const ZORUTSValue* value = list.Find(name);
  return value != nullptr ? value->GetText() : "<absent>";
}

const ZORAPOEndpointInfo kEndpoint;

TEST(ZORAPOTunedSettings, WithoutABlockAnExistingOnlyOpenFailsAndLeavesNothing) {
  const ZORAPOOperatingMode mode = UniqueMode();
  const std::u16string name =
      ZORAPOTunedSettings::BlockName(kEndpoint.GetEndpointGuid().Text(), mode.id);
  EXPECT_EQ(name, u"Global\\" + kEndpoint.GetEndpointGuid().Text() + mode.id.ToRegistryName());
  ZORAPOTunedSettings chain;
  EXPECT_FALSE(chain.Open(kEndpoint, mode, true));
  EXPECT_FALSE(chain.IsOpen());
  EXPECT_FALSE(ZORSharedMemory::Exists(name));
}

TEST(ZORAPOTunedSettings, AToolsBlockReachesAChainThatFollowsIt) {
  const ZORAPOOperatingMode mode = UniqueMode();
  ZORAPOTunedSettings tool;
  ASSERT_TRUE(tool.Open(kEndpoint, mode, false));
  ZORAPOTunedSettings chain;
  ASSERT_TRUE(chain.Open(kEndpoint, mode, true));

  // The image is the public controls overlaid by the tuned ones, plus the
  // tuning mode at 0; it reaches the block with the first write.
  ZORUTSValueList image;
  EXPECT_TRUE(tool.ReadAll(image, true));
  EXPECT_EQ(image.Size(), 4u);
  EXPECT_EQ(TextIn(image, "Volume"), "7");
  EXPECT_EQ(TextIn(image, "APO4-Tuning Mode"), "0");

  EXPECT_FALSE(tool.WriteControl(ZORUTSValue("Treble", "1")));  // not a control of the mode
  EXPECT_TRUE(tool.WriteControl(ZORUTSValue("Volume", "9")));
  EXPECT_TRUE(tool.WriteControl(ZORUTSValue("APO4-Tuning Mode", 2)));
  EXPECT_EQ(chain.GetTuningMode(false), 0);
  EXPECT_EQ(chain.GetTuningMode(true), 2);
  ZORUTSValueList seen;
  seen.Insert(ZORUTSValue("Volume", "0"));
  ASSERT_TRUE(chain.ReadAll(seen, false));
  EXPECT_EQ(seen.Size(), 1u);  // a list with entries is only refreshed
  EXPECT_EQ(TextIn(seen, "Volume"), "9");

  // A cleared block has length 0, which reads as no change.
  EXPECT_EQ(tool.ClearAll(), 0u);
  EXPECT_TRUE(chain.ReadAll(seen, true));
  EXPECT_EQ(TextIn(seen, "Volume"), "9");
  EXPECT_EQ(chain.GetTuningMode(true), 2);
}

TEST(ZORAPOTunedSettings, TwoModesOfOneEndpointHaveTwoBlocks) {
  const ZORAPOOperatingMode playing = UniqueMode("APO4-Internal Stereo");
  ZORAPOOperatingMode idle = playing;
  idle.id = ZORAPOModeId(playing.id.operatingMode.GetText(), "APO4-Headphones");
  ZORAPOTunedSettings tool;
  ZORAPOTunedSettings chain;
  ASSERT_TRUE(tool.Open(kEndpoint, idle, false));
  ASSERT_TRUE(chain.Open(kEndpoint, playing, false));
  ZORUTSValueList values;
  values.Insert(ZORUTSValue("Volume", "1"));
  ASSERT_TRUE(tool.WriteAll(values));
  ZORUTSValueList seen;
  EXPECT_TRUE(chain.ReadAll(seen, true));
  EXPECT_EQ(TextIn(seen, "Volume"), "7");  // its own image, untouched
}

// Stacking by tuning mode: the chain's controls know Volume and Bass; the
// block and the public settings disagree on Volume, and each adds a name the
// mode does not know.
struct StackCase {
  int32_t tuningMode;
  const char* volume;
  const char* bass;
};

class ZORAPOTunedSettingsStacking : public testing::TestWithParam<StackCase> {};

TEST_P(ZORAPOTunedSettingsStacking, FollowsTheTuningMode) {
  ZORUTSValueList controls;
  controls.Insert(ZORUTSValue("Volume", "5"));
  controls.Insert(ZORUTSValue("Bass", "0"));
  ZORUTSValueList tuned;
  tuned.Insert(ZORUTSValue("Volume", "7"));
  tuned.Insert(ZORUTSValue("Bass", "3"));
  tuned.Insert(ZORUTSValue("Unknown", "1"));
  ZORUTSValueList publicSettings;
  publicSettings.Insert(ZORUTSValue("Volume", "2"));
  publicSettings.Insert(ZORUTSValue("Other", "1"));
  ZORAPOTunedSettings::StackOnto(GetParam().tuningMode, tuned, publicSettings, controls);
  EXPECT_EQ(controls.Size(), 2u);
  EXPECT_EQ(TextIn(controls, "Volume"), GetParam().volume);
  EXPECT_EQ(TextIn(controls, "Bass"), GetParam().bass);
}

INSTANTIATE_TEST_SUITE_P(Modes, ZORAPOTunedSettingsStacking,
                         testing::Values(StackCase{0, "2", "0"},   // public only
                                         StackCase{1, "2", "3"},   // the user wins
                                         StackCase{2, "7", "3"},   // tuning wins
                                         StackCase{3, "5", "0"},   // neither
                                         StackCase{-1, "5", "0"}));

}  // namespace
