// Channel layouts, chain lookup by layout and kind, and mode identities.
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

TEST(ZORAPOLayout, ChannelCountsAndLayoutLists) {
  const std::pair<uint32_t, uint32_t> known[] = {{1, 1}, {2, 2}, {6, 4}, {8, 8}, {12, 16}};
  for (const auto& [channels, layout] : known) {
    EXPECT_EQ(LayoutFromChannels(channels), layout);
    EXPECT_EQ(ChannelsFromLayout(layout), channels);
  }
  for (const uint32_t other : {0u, 3u, 5u, 7u, 16u, 0xFFFFFFFFu})
    EXPECT_EQ(LayoutFromChannels(other), 0u);
  EXPECT_EQ(ChannelsFromLayout(3), 0u);  // two layouts have no one count

  // Tokens match by substring, case-sensitively, the first hit deciding;
  // empty tokens fall away and a token of no layout adds nothing.
  const std::pair<const char*, uint32_t> lists[] = {
      {"Stereo,Mono", 3},
      {"Internal Stereo", 2},
      {"Stereo;5.1 Surround", 6},
      {"7.1 Surround;11.1 Surround", 24},
      {"Mono;Any", kZORLayoutAny},
      {";;Mono,, Stereo ;", 3},
      {"stereo,MONO,any", 0},
      {"Quad", 0},
      {"", 0},
      {"Stereo to Mono", 1},
      {"Any Stereo", 2},
  };
  for (const auto& [text, mask] : lists) EXPECT_EQ(LayoutMaskFromText(text), mask) << text;
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

TEST(ZORAPOModeId, DefinedEqualNamedAndReadFromLists) {
  ZORAPOModeId id;
  EXPECT_FALSE(id.IsDefined());
  EXPECT_EQ(id.ToRegistryName(), u"ApoOpMode:APO4-Undefined/APO4-Disabled");
  id.operatingMode.SetText("APO4-Music");
  EXPECT_FALSE(id.IsDefined());  // one text alone is not enough
  EXPECT_FALSE(ZORAPOModeId("APO4-Undefined", "APO4-Internal Stereo").IsDefined());
  id.speakerType.SetText("APO4-Internal Stereo");
  EXPECT_TRUE(id.IsDefined());
  EXPECT_EQ(id, ZORAPOModeId("APO4-Music", "APO4-Internal Stereo"));
  EXPECT_NE(id, ZORAPOModeId("APO4-music", "APO4-Internal Stereo"));
  EXPECT_NE(id, ZORAPOModeId("APO4-Music", "APO4-Headphones"));  // both halves count
  EXPECT_EQ(id.ToRegistryName(), u"ApoOpMode:APO4-Music/APO4-Internal Stereo");

  ZORUTSValueList list;
  list.Insert(ZORUTSValue("leftover", "x"));
  id.ToValueList(list);
  EXPECT_EQ(list.Size(), 2u);  // emptied first
  ZORAPOModeId read;
  EXPECT_TRUE(read.FromValueList(list));
  EXPECT_EQ(read, id);
  // A number becomes its text; a missing or differently cased name is unset.
  list.Clear();
  list.Insert(ZORUTSValue("APO4-Operating Mode", int32_t{7}));
  list.Insert(ZORUTSValue("apo4-speaker type", "APO4-Headphones"));
  EXPECT_FALSE(read.FromValueList(list));
  EXPECT_EQ(read.operatingMode.GetText(), "7");
  EXPECT_EQ(read.operatingMode.name, "APO4-Operating Mode");
  EXPECT_EQ(read.speakerType.GetText(), "APO4-Disabled");
}

}  // namespace
