// Channel layouts, chain lookup by layout and kind, and mode identities.
#include "config/zorapochaindefinition.h"

#include <gtest/gtest.h>

#include "config/zorapomodeid.h"
#include "config/zorutsvaluelist.h"

namespace {

ZORAPOChainDesc ChainOf(uint32_t input, uint32_t output, const char* techId,
                        bool isRender = true) {
  ZORAPOChainDesc chain;
  chain.inputLayouts = input;
  chain.outputLayouts = output;
  chain.isRender = isRender;
  chain.processes.push_back({techId, "", ""});
  return chain;
}

TEST(ZORAPOLayout, ChannelCountsMapToTheirBitAndNothingElse) {
  const std::pair<uint32_t, uint32_t> known[] = {{1, 1}, {2, 2}, {6, 4}, {8, 8}, {12, 16}};
  for (const auto& [channels, layout] : known) {
    EXPECT_EQ(LayoutFromChannels(channels), layout) << channels;
    EXPECT_EQ(ChannelsFromLayout(layout), channels) << layout;
  }
  for (const uint32_t channels : {0u, 3u, 4u, 5u, 7u, 16u, 0xFFFFFFFFu}) {
    EXPECT_EQ(LayoutFromChannels(channels), 0u) << channels;
  }
  EXPECT_EQ(ChannelsFromLayout(3), 0u);  // a mask of two layouts has no one count
  EXPECT_EQ(ChannelsFromLayout(kZORLayoutAny), 0u);
}

TEST(ZORAPOLayout, ListTokensMatchBySubstringFirstHitDeciding) {
  EXPECT_EQ(LayoutMaskFromText("Stereo,Mono"), 3u);
  EXPECT_EQ(LayoutMaskFromText("Internal Stereo"), 2u);
  EXPECT_EQ(LayoutMaskFromText("Stereo;5.1 Surround"), 6u);
  EXPECT_EQ(LayoutMaskFromText("7.1 Surround;11.1 Surround"), 24u);
  EXPECT_EQ(LayoutMaskFromText("Any"), kZORLayoutAny);
  EXPECT_EQ(LayoutMaskFromText("Mono;Any"), kZORLayoutAny);
  // Empty tokens fall away; blanks around a token do no harm.
  EXPECT_EQ(LayoutMaskFromText(";;Mono,, Stereo ;"), 3u);
  // Case counts, and a token of no known layout adds nothing.
  EXPECT_EQ(LayoutMaskFromText("stereo,MONO,any"), 0u);
  EXPECT_EQ(LayoutMaskFromText("Quad"), 0u);
  EXPECT_EQ(LayoutMaskFromText(""), 0u);
  EXPECT_EQ(LayoutMaskFromText(",;"), 0u);
  // One token holding two layout names counts once, for the first tested.
  EXPECT_EQ(LayoutMaskFromText("Stereo to Mono"), 1u);
  EXPECT_EQ(LayoutMaskFromText("Any Stereo"), 2u);
}

TEST(ZORAPOChainDefinition, FirstChainSharingABitWins) {
  ZORAPOChainDefinition definition;
  definition.chains.push_back(ChainOf(kZORLayoutMono, kZORLayoutStereo, "mono-in"));
  definition.chains.push_back(ChainOf(kZORLayoutAny, 6, "first-of-two"));
  definition.chains.push_back(ChainOf(kZORLayoutAny, kZORLayout51, "second-of-two"));

  ZORAPOChainDesc found;
  ASSERT_TRUE(definition.FindChain(kZORLayoutStereo, kZORLayout51, found, true));
  EXPECT_EQ(found.processes.at(0).techId, "first-of-two");
  ASSERT_TRUE(definition.FindChain(kZORLayoutMono, kZORLayoutStereo, found, true));
  EXPECT_EQ(found.processes.at(0).techId, "mono-in");
  // No chain has 7.1 at its output.
  found.processes.clear();
  EXPECT_FALSE(definition.FindChain(kZORLayoutStereo, kZORLayout71, found, true));
  EXPECT_TRUE(found.processes.empty());
}

TEST(ZORAPOChainDefinition, UnknownLayoutsAndOtherKindFindNothing) {
  ZORAPOChainDefinition definition;
  definition.chains.push_back(ChainOf(kZORLayoutAny, kZORLayoutAny, "capture", false));
  ZORAPOChainDesc found;
  // A render endpoint never gets a capture chain, though the masks fit.
  EXPECT_FALSE(definition.FindChain(kZORLayoutStereo, kZORLayoutStereo, found, true));
  EXPECT_TRUE(definition.FindChain(kZORLayoutStereo, kZORLayoutStereo, found, false));
  EXPECT_FALSE(found.isRender);

  definition.chains.push_back(ChainOf(kZORLayoutAny, kZORLayoutAny, "render"));
  // The caller's layouts must be exactly known, even against "Any".
  EXPECT_FALSE(definition.FindChain(kZORLayoutAny, kZORLayoutStereo, found, true));
  EXPECT_FALSE(definition.FindChain(kZORLayoutStereo, kZORLayoutAny, found, true));
  EXPECT_FALSE(definition.FindChain(0, kZORLayoutStereo, found, true));
  // Three channels have no layout and so no chain.
  EXPECT_FALSE(definition.FindChain(LayoutFromChannels(3), kZORLayoutStereo, found, true));
  EXPECT_TRUE(definition.FindChain(kZORLayoutStereo, kZORLayoutStereo, found, true));
  EXPECT_EQ(found.processes.at(0).techId, "render");
}

TEST(ZORAPOModeId, DefinedOnlyWithBothTextsSet) {
  ZORAPOModeId id;
  EXPECT_FALSE(id.IsDefined());
  EXPECT_EQ(id.operatingMode.GetText(), "APO4-Undefined");
  EXPECT_EQ(id.speakerType.GetText(), "APO4-Disabled");
  EXPECT_EQ(id.operatingMode.name, "APO4-Operating Mode");
  EXPECT_EQ(id.speakerType.name, "APO4-Speaker Type");

  id.operatingMode.SetText("APO4-Music");
  EXPECT_FALSE(id.IsDefined());
  ZORAPOModeId other;
  other.speakerType.SetText("APO4-Internal Stereo");
  EXPECT_FALSE(other.IsDefined());
  id.speakerType.SetText("APO4-Internal Stereo");
  EXPECT_TRUE(id.IsDefined());
}

TEST(ZORAPOModeId, EqualityAndRegistryName) {
  const ZORAPOModeId music("APO4-Music", "APO4-Internal Stereo");
  EXPECT_EQ(music, ZORAPOModeId("APO4-Music", "APO4-Internal Stereo"));
  EXPECT_NE(music, ZORAPOModeId("APO4-Music", "APO4-Headphones"));
  EXPECT_NE(music, ZORAPOModeId("APO4-music", "APO4-Internal Stereo"));  // texts are exact
  EXPECT_EQ(music.ToRegistryName(), u"ApoOpMode:APO4-Music/APO4-Internal Stereo");
  EXPECT_EQ(ZORAPOModeId().ToRegistryName(), u"ApoOpMode:APO4-Undefined/APO4-Disabled");
}

TEST(ZORAPOModeId, ValueListRoundTripTakesAnyKindAsText) {
  ZORUTSValueList list;
  list.Insert(ZORUTSValue("leftover", "x"));
  ZORAPOModeId("APO4-Movie", "APO4-Headphones").ToValueList(list);
  EXPECT_EQ(list.Size(), 2u);  // emptied first
  ZORAPOModeId read;
  EXPECT_TRUE(read.FromValueList(list));
  EXPECT_EQ(read, ZORAPOModeId("APO4-Movie", "APO4-Headphones"));

  // A number becomes its text; a missing name gives the unset text.
  ZORUTSValueList numbers;
  numbers.Insert(ZORUTSValue("APO4-Operating Mode", int32_t{7}));
  EXPECT_FALSE(read.FromValueList(numbers));
  EXPECT_EQ(read.operatingMode.GetText(), "7");
  EXPECT_EQ(read.operatingMode.name, "APO4-Operating Mode");
  EXPECT_EQ(read.speakerType.GetText(), "APO4-Disabled");
  // Names compare exactly: another case is another name.
  ZORUTSValueList folded;
  folded.Insert(ZORUTSValue("apo4-operating mode", "APO4-Music"));
  folded.Insert(ZORUTSValue("APO4-Speaker Type", "APO4-Internal Stereo"));
  EXPECT_FALSE(read.FromValueList(folded));
  EXPECT_EQ(read.operatingMode.GetText(), "APO4-Undefined");
}

}  // namespace
