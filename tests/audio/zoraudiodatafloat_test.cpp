// Audio blocks: channel roles, copies and assignment, and frames kept inside the store.
#include "audio/zoraudiodatafloat.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "allocationcounter.h"

namespace {

// A value unique to frame f and channel c, so that any misplaced sample shows.
float SampleAt(uint32_t f, uint32_t c) { return static_cast<float>(f * 100 + c) + 0.25f; }

size_t At(const IZORAudioData<float>& block, bool interleaved, uint32_t f, uint32_t c) {
  return interleaved ? size_t{f} * block.GetChannels() + c : size_t{c} * block.GetFrames() + f;
}

void Fill(IZORAudioData<float>& block, bool interleaved) {
  float* samples = block.GetData(true, interleaved);
  for (uint32_t f = 0; f < block.GetFrames(); ++f) {
    for (uint32_t c = 0; c < block.GetChannels(); ++c) samples[At(block, interleaved, f, c)] = SampleAt(f, c);
  }
  block.ReleaseData();
}

// Reads in the given layout: SampleAt below channel `silentFrom`, silence from there on.
void ExpectSamples(IZORAudioData<float>& block, bool interleaved, uint32_t silentFrom) {
  const float* samples = block.GetData(false, interleaved);
  ASSERT_NE(samples, nullptr);
  for (uint32_t f = 0; f < block.GetFrames(); ++f) {
    for (uint32_t c = 0; c < block.GetChannels(); ++c) {
      ASSERT_EQ(samples[At(block, interleaved, f, c)], c < silentFrom ? SampleAt(f, c) : 0.0f)
          << "frame " << f << " channel " << c << (interleaved ? " interleaved" : " planar");
    }
  }
  block.ReleaseData();
}

}  // namespace

// Roles are capped at 12; AddChannels keeps the samples and appends one role
// entry, or without samples allocates afresh.
TEST(ZORAudioDataFloat, RolesAreCappedAndAddChannelsAppendsOne) {
  ZORAudioDataFloat wide;
  wide.Allocate(2, 14, 48000);
  EXPECT_EQ(wide.GetChannelRole(13), 12u);
  EXPECT_TRUE(wide.SetChannelRole(13, 7));
  EXPECT_FALSE(wide.SetChannelRole(14, 7));
  EXPECT_EQ(wide.GetChannelRole(14), 12u);
  for (const bool interleaved : {true, false}) {
    ZORAudioDataFloat block;
    block.Allocate(5, 3, 48000);
    block.SetChannelRole(0, 7);
    Fill(block, interleaved);
    block.AddChannels(0);
    block.AddChannels(3);
    EXPECT_EQ(block.GetChannels(), 6u);
    ExpectSamples(block, true, 3);
    EXPECT_EQ(block.GetChannelRole(0), 7u);
    EXPECT_TRUE(block.SetChannelRole(3, 1));   // the one entry appended
    EXPECT_FALSE(block.SetChannelRole(4, 1));  // none beyond it
  }
  ZORAudioDataFloat silent;
  silent.Allocate(4, 2, 44100);
  silent.SetChannelRole(1, 7);
  silent.AddChannels(2);
  EXPECT_EQ(silent.GetSampleRate(), 44100u);
  EXPECT_EQ(silent.GetChannelRole(1), 1u);
}

TEST(ZORAudioDataFloat, CopyAssignmentKeepsTargetRolesAndAssignCopiesThem) {
  ZORAudioDataFloat source;
  source.Allocate(4, 2, 44100);
  source.SetUserTag(9);
  source.SetChannelRole(0, 7);
  Fill(source, true);
  const ZORAudioDataFloat copy(source);
  EXPECT_EQ(copy.GetUserTag(), 9u);
  EXPECT_EQ(copy.GetChannelRole(0), 12u) << "a new copy has no roles";

  ZORAudioDataFloat target;
  target.Allocate(1, 2, 8000);
  target.SetChannelRole(0, 3);
  IZORAudioData<float>& asInterface = source;
  target = asInterface;
  EXPECT_EQ(target.GetChannelRole(0), 3u);
  EXPECT_FALSE(target.HoldsPlanar()) << "the stores as they stood";
  ExpectSamples(target, true, 2);

  // An interleaved source is copied through its planar layout.
  ZORAudioDataFloat assigned;
  assigned.Assign(source);
  EXPECT_EQ(assigned.GetChannelRole(0), 7u);
  EXPECT_FALSE(assigned.HoldsInterleaved());
  ExpectSamples(assigned, true, 2);
  assigned.Assign(assigned);
  ExpectSamples(assigned, false, 2);
}

TEST(ZORAudioDataFloat, SetFramesStaysInsideTheStore) {
  ZORAudioDataFloat block;
  block.Allocate(4, 2, 48000);
  Fill(block, true);
  block.SetFrames(2);
  EXPECT_EQ(block.GetSampleCount(), 4u);
  ExpectSamples(block, true, 2);
  // Raising the count past the store pads with silence rather than letting a reader run off its end.
  block.SetFrames(6);
  const float* planar = block.GetData(false, false);
  for (uint32_t f = 0; f < 6; ++f) EXPECT_EQ(planar[6 + f], f < 4 ? SampleAt(f, 1) : 0.0f);
}
