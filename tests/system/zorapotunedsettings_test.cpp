#include "system/zorapotunedsettings.h"

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <string>

#include "system/zorapoendpointinfo.h"

namespace {

const ZORAPOEndpointInfo kEndpoint;

// A mode whose operating mode text no other test run uses, so its block is
// private to the test: public Volume 5, tuned Volume 7 and Bass 3.
ZORAPOOperatingMode UniqueMode() {
  static const uint64_t run = (uint64_t{std::random_device{}()} << 32) ^ std::random_device{}();
  static std::atomic<int> counter{0};
  ZORAPOOperatingMode mode;
  mode.id = ZORAPOModeId("APO4-Test " + std::to_string(run) + "-" + std::to_string(counter++),
                         "APO4-Internal Stereo");
  mode.publicControls.Insert(ZORUTSValue("Volume", "5"));
  mode.tunedControls.Insert(ZORUTSValue("Volume", "7"));
  mode.tunedControls.Insert(ZORUTSValue("Bass", "3"));
  return mode;
}

std::string TextIn(const ZORUTSValueList& list, const char* name) {
  const ZORUTSValue* value = list.Find(name);
  return value != nullptr ? value->GetText() : "-";
}

TEST(ZORAPOTunedSettings, AToolsBlockReachesAChainThatFollowsIt) {
  const ZORAPOOperatingMode mode = UniqueMode();
  ZORAPOTunedSettings tool;
  ZORAPOTunedSettings chain;
  ASSERT_TRUE(tool.Open(kEndpoint, mode, false));
  ASSERT_TRUE(chain.Open(kEndpoint, mode, true));
  ZORUTSValueList image;
  EXPECT_TRUE(tool.ReadAll(image, true));  // nothing written yet: the image
  EXPECT_EQ(image.Size(), 3u);
  EXPECT_EQ(TextIn(image, "Volume"), "7");
  EXPECT_EQ(TextIn(image, "APO4-Tuning Mode"), "0");

  EXPECT_FALSE(tool.WriteControl(ZORUTSValue("Treble", "1")));  // not the mode's
  EXPECT_TRUE(tool.WriteControl(ZORUTSValue("Volume", "9")));
  EXPECT_TRUE(tool.WriteControl(ZORUTSValue("APO4-Tuning Mode", 2)));
  EXPECT_EQ(chain.GetTuningMode(false), 0);
  EXPECT_EQ(chain.GetTuningMode(true), 2);
  ZORUTSValueList seen;
  seen.Insert(ZORUTSValue("Volume", "0"));
  ASSERT_TRUE(chain.ReadAll(seen, false));
  EXPECT_EQ(seen.Size(), 1u);  // a list with entries is only refreshed
  EXPECT_EQ(TextIn(seen, "Volume"), "9");

  EXPECT_EQ(tool.ClearAll(), 0u);  // length 0 reads as no change
  EXPECT_TRUE(chain.ReadAll(seen, true));  // cleared first: the whole image again
  EXPECT_EQ(seen.Size(), 3u);
  EXPECT_EQ(TextIn(seen, "Volume"), "9");
}

}  // namespace
