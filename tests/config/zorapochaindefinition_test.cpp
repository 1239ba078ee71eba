// Chain lookup by layout and kind, and mode identities.
#include "config/zorapochaindefinition.h"

#include <gtest/gtest.h>

#include "config/zorapomodeid.h"
#include "config/zorutsvaluelist.h"

namespace {

ZORAPOChainDesc ChainOf(uint32_t input, uint32_t output, const char* techId, bool isRender = true) {
  ZORAPOChainDesc chain;
  chain.inputLayouts = input;
  chain.outputLayouts = output;
  chain.isRender = isRender;
  chain.processes.push_back({techId, "", ""});
  return chain;
}

TEST(ZORAPOChainDefinition, FirstFittingChainOfTheKindWins) {
  ZORAPOChainDefinition definition;
  definition.chains = {ChainOf(kZORLayoutAny, kZORLayoutAny, "capture", false),
                       ChainOf(kZORLayoutMono, kZORLayoutStereo, "mono-in"),
                       ChainOf(kZORLayoutAny, 6, "first-of-two"),
                       ChainOf(kZORLayoutAny, kZORLayout51, "second-of-two")};
  const auto find = [&](uint32_t input, uint32_t output, bool isRender = true) {
    ZORAPOChainDesc found = ChainOf(0, 0, "untouched");
    definition.FindChain(input, output, found, isRender);
    return found.processes.at(0).techId;
  };
  EXPECT_EQ(find(kZORLayoutStereo, kZORLayout51), "first-of-two");
  EXPECT_EQ(find(kZORLayoutMono, kZORLayoutStereo), "mono-in");
  EXPECT_EQ(find(kZORLayoutMono, kZORLayoutStereo, false), "capture");
  // Only the capture chain has mono at its output, and it never serves render.
  EXPECT_EQ(find(kZORLayoutStereo, kZORLayoutMono), "untouched");
  EXPECT_EQ(find(kZORLayoutStereo, kZORLayoutMono, false), "capture");
  EXPECT_EQ(find(kZORLayoutStereo, kZORLayout71), "untouched");
  // The caller's layouts must be exactly known, even against "Any".
  EXPECT_EQ(find(kZORLayoutAny, kZORLayout51), "untouched");
  EXPECT_EQ(find(kZORLayoutStereo, kZORLayoutAny, false), "untouched");
  EXPECT_EQ(find(LayoutFromChannels(3), kZORLayoutStereo, false), "untouched");
  ZORAPOChainDesc out;
  EXPECT_TRUE(definition.FindChain(kZORLayoutStereo, kZORLayout51, out, true));
  EXPECT_FALSE(definition.FindChain(0, kZORLayout51, out, true));
}

// A mode is named by both of its texts, exactly as written.
TEST(ZORAPOModeId, BothTextsNameTheMode) {
  const ZORAPOModeId music("APO4-Music", "APO4-Internal Stereo");
  EXPECT_TRUE(music.IsDefined());
  EXPECT_FALSE(ZORAPOModeId("APO4-Undefined", "APO4-Internal Stereo").IsDefined());
  EXPECT_EQ(music, ZORAPOModeId("APO4-Music", "APO4-Internal Stereo"));
  EXPECT_NE(music, ZORAPOModeId("APO4-music", "APO4-Internal Stereo"));
  EXPECT_NE(music, ZORAPOModeId("APO4-Music", "APO4-Headphones"));
  EXPECT_EQ(music.ToRegistryName(), u"ApoOpMode:APO4-Music/APO4-Internal Stereo");
}

}  // namespace
