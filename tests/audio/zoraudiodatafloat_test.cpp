// Audio blocks: interleaved and planar stores converted on demand, roles,
// copies, borrowed memory, and no allocation for a size seen before.
#include "audio/zoraudiodatafloat.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

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

// Reads in the given layout: SampleAt below channel `silentFrom`, silence
// from there on.
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

TEST(ZORAudioDataFloat, EmptyShapesGiveNullAndNewBlocksReadAsSilence) {
  ZORAudioDataFloat block;
  EXPECT_EQ(block.GetData(false, true), nullptr);
  block.Allocate(0, 2, 48000);
  EXPECT_EQ(block.GetData(true, false), nullptr);
  block.Allocate(5, 0, 48000);
  EXPECT_EQ(block.GetByteSize(), 0u);
  for (const bool interleaved : {true, false}) {
    block.Allocate(5, 3, 48000);
    Fill(block, !interleaved);
    block.Allocate(5, 3, 48000);  // the same size drops the samples all the same
    block.Clear();                // and Clear doesn't materialise anything
    EXPECT_FALSE(block.HoldsInterleaved() || block.HoldsPlanar());
    ExpectSamples(block, interleaved, 0);
    EXPECT_EQ(block.HoldsPlanar(), !interleaved);
  }
}

// An odd shape (5 x 3) shows any mixed-up stride.
TEST(ZORAudioDataFloat, ReadsConvertOnceAndWritesDropTheOtherStore) {
  ZORAudioDataFloat block;
  block.Allocate(5, 3, 48000);
  Fill(block, true);
  const float* interleaved = block.GetData(false, true);
  ExpectSamples(block, false, 3);
  EXPECT_EQ(block.GetData(false, true), interleaved) << "the first store still stands";
  float* planar = block.GetData(true, false);
  EXPECT_FALSE(block.HoldsInterleaved());
  planar[2 * 5 + 4] = -1.0f;  // channel 2, frame 4
  EXPECT_EQ(block.GetData(false, true)[4 * 3 + 2], -1.0f);
  block.GetData(true, true);
  EXPECT_FALSE(block.HoldsPlanar());
  block.Allocate(5, 3, 48000);
  Fill(block, false);
  ExpectSamples(block, true, 3);
}

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

TEST(ZORAudioDataFloat, AssignMemoryAndSetFramesStayInsideTheirStores) {
  std::vector<float> memory(5 * 3);
  for (uint32_t i = 0; i < memory.size(); ++i) memory[i] = SampleAt(i / 3, i % 3);
  ZORAudioDataFloat block;
  block.AssignMemory(memory.data(), 5, 3, true, 32000);
  EXPECT_EQ(block.GetSampleRate(), 32000u);
  ExpectSamples(block, false, 3);
  block.AssignMemory(memory.data(), 3, 5, false, 32000);
  EXPECT_EQ(block.GetData(false, false)[7], memory[7]);
  block.AssignMemory(nullptr, 5, 3, true, 32000);
  ExpectSamples(block, true, 0);

  block.Allocate(4, 2, 48000);
  Fill(block, true);
  block.SetFrames(2);
  EXPECT_EQ(block.GetSampleCount(), 4u);
  ExpectSamples(block, true, 2);
  // Raising the count past the store pads with silence rather than letting
  // a reader run off its end.
  block.SetFrames(6);
  const float* planar = block.GetData(false, false);
  for (uint32_t f = 0; f < 6; ++f) EXPECT_EQ(planar[6 + f], f < 4 ? SampleAt(f, 1) : 0.0f);
}

TEST(ZORAudioDataFloat, BlockOfASizeSeenBeforeDoesNotAllocate) {
  ZORAudioDataFloat block;
  block.Allocate(480, 2, 48000);
  block.GetData(true, true);
  block.GetData(false, false);
  velapo::test::AllocationCounter steady;
  for (const uint32_t frames : {480u, 17u, 0u, 480u}) {
    block.Allocate(frames, 2, 48000);
    block.GetData(true, false);
    block.GetData(false, true);
  }
  EXPECT_EQ(steady.Count(), 0u);
}
