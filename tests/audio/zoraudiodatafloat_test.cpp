#include "audio/zoraudiodatafloat.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <utility>
#include <vector>

#include "allocationcounter.h"

namespace {

// A value unique to frame f and channel c, so that any misplaced sample shows.
float SampleAt(uint32_t f, uint32_t c) { return static_cast<float>(f * 100 + c) + 0.25f; }

void FillInterleaved(IZORAudioData<float>& block) {
  float* samples = block.GetData(true, true);
  for (uint32_t f = 0; f < block.GetFrames(); ++f) {
    for (uint32_t c = 0; c < block.GetChannels(); ++c) {
      samples[f * block.GetChannels() + c] = SampleAt(f, c);
    }
  }
  block.ReleaseData();
}

void FillPlanar(IZORAudioData<float>& block) {
  float* samples = block.GetData(true, false);
  for (uint32_t c = 0; c < block.GetChannels(); ++c) {
    for (uint32_t f = 0; f < block.GetFrames(); ++f) {
      samples[c * block.GetFrames() + f] = SampleAt(f, c);
    }
  }
  block.ReleaseData();
}

// Checks the first `channels` channels through a read access in the given
// layout; channels from `silentFrom` on must be silent.
void ExpectSamples(IZORAudioData<float>& block, bool interleaved, uint32_t silentFrom) {
  const uint32_t frames = block.GetFrames();
  const uint32_t channels = block.GetChannels();
  const float* samples = block.GetData(false, interleaved);
  ASSERT_NE(samples, nullptr);
  for (uint32_t f = 0; f < frames; ++f) {
    for (uint32_t c = 0; c < channels; ++c) {
      const float expected = c < silentFrom ? SampleAt(f, c) : 0.0f;
      const size_t at = interleaved ? f * channels + c : c * frames + f;
      EXPECT_EQ(samples[at], expected) << "frame " << f << " channel " << c;
    }
  }
  block.ReleaseData();
}

}  // namespace

TEST(ZORAudioDataFloat, BlocksWithoutSamplesGiveNull) {
  ZORAudioDataFloat block;
  EXPECT_EQ(block.GetSampleRate(), 0xFFFFFFFFu);
  EXPECT_EQ(block.GetData(false, true), nullptr);
  for (const auto& [frames, channels] : {std::pair{0u, 2u}, std::pair{5u, 0u}}) {
    block.Allocate(frames, channels, 48000);
    EXPECT_EQ(block.GetData(false, true), nullptr);
    EXPECT_EQ(block.GetData(true, false), nullptr);
    EXPECT_EQ(block.GetByteSize(), 0u);
  }
  block.Allocate(5, 3, 48000);
  EXPECT_EQ(block.GetSampleCount(), 15u);
  EXPECT_EQ(block.GetByteSize(), 60u);
}

TEST(ZORAudioDataFloat, AllocatedBlockReadsAsSilenceInEitherLayout) {
  ZORAudioDataFloat block;
  for (const bool interleaved : {true, false}) {
    block.Allocate(4, 2, 48000);
    FillInterleaved(block);
    // Reallocating drops the old samples even at the same size.
    block.Allocate(4, 2, 48000);
    EXPECT_FALSE(block.HoldsInterleaved() || block.HoldsPlanar());
    ExpectSamples(block, interleaved, 0);
    EXPECT_EQ(block.HoldsInterleaved(), interleaved);
    EXPECT_EQ(block.HoldsPlanar(), !interleaved);
  }
}

TEST(ZORAudioDataFloat, TransposesOddShapesBothWays) {
  ZORAudioDataFloat block;
  block.Allocate(5, 3, 48000);
  FillInterleaved(block);
  ExpectSamples(block, false, 3);
  block.Allocate(5, 3, 48000);
  FillPlanar(block);
  ExpectSamples(block, true, 3);
}

TEST(ZORAudioDataFloat, ReadKeepsBothStoresAndWriteDropsTheOther) {
  ZORAudioDataFloat block;
  block.Allocate(5, 3, 48000);
  float* written = block.GetData(true, true);
  FillInterleaved(block);
  ExpectSamples(block, false, 3);
  EXPECT_TRUE(block.HoldsInterleaved() && block.HoldsPlanar());
  // The third access finds the first store standing: same memory, no
  // conversion back.
  EXPECT_EQ(block.GetData(false, true), written);
  EXPECT_TRUE(block.HoldsInterleaved() && block.HoldsPlanar());

  // A planar write drops the interleaved store; the next interleaved read
  // transposes the new samples.
  float* planar = block.GetData(true, false);
  EXPECT_FALSE(block.HoldsInterleaved());
  planar[2 * 5 + 4] = -1.0f;  // channel 2, frame 4
  EXPECT_EQ(block.GetData(false, true)[4 * 3 + 2], -1.0f);

  block.GetData(true, true);
  EXPECT_FALSE(block.HoldsPlanar());
}

TEST(ZORAudioDataFloat, ClearSilencesOnlyMaterialisedStores) {
  ZORAudioDataFloat block;
  block.Allocate(5, 3, 48000);
  block.Clear();
  EXPECT_FALSE(block.HoldsInterleaved() || block.HoldsPlanar());
  FillInterleaved(block);
  ExpectSamples(block, false, 3);
  block.Clear();
  EXPECT_TRUE(block.HoldsInterleaved() && block.HoldsPlanar());
  ExpectSamples(block, true, 0);
  ExpectSamples(block, false, 0);
}

TEST(ZORAudioDataFloat, RolesAreCappedAndMissingEntriesRefuseWrites) {
  ZORAudioDataFloat block;
  block.Allocate(2, 14, 48000);
  for (uint32_t c = 0; c < 14; ++c) {
    EXPECT_EQ(block.GetChannelRole(c), c < 12 ? c : 12u);
  }
  EXPECT_TRUE(block.SetChannelRole(13, 7));
  EXPECT_EQ(block.GetChannelRole(13), 7u);
  EXPECT_FALSE(block.SetChannelRole(14, 7));
  EXPECT_EQ(block.GetChannelRole(14), 12u);
  // A smaller allocation drops the entries past its channels.
  block.Allocate(2, 1, 48000);
  EXPECT_FALSE(block.SetChannelRole(1, 3));
}

TEST(ZORAudioDataFloat, AddChannelsKeepsSamplesAndAppendsOneRole) {
  for (const bool planarHeld : {false, true}) {
    ZORAudioDataFloat block;
    block.Allocate(5, 3, 48000);
    block.SetChannelRole(0, 7);
    planarHeld ? FillPlanar(block) : FillInterleaved(block);
    block.AddChannels(3);
    EXPECT_EQ(block.GetChannels(), 6u);
    EXPECT_FALSE(block.HoldsInterleaved());
    EXPECT_TRUE(block.HoldsPlanar());
    ExpectSamples(block, false, 3);
    ExpectSamples(block, true, 3);
    EXPECT_EQ(block.GetChannelRole(0), 7u);
    EXPECT_TRUE(block.SetChannelRole(3, 1));   // the one entry appended
    EXPECT_FALSE(block.SetChannelRole(4, 1));  // none beyond it
    EXPECT_EQ(block.GetChannelRole(5), 12u);
  }

  // Without samples the block is allocated afresh, roles reset.
  ZORAudioDataFloat silent;
  silent.Allocate(4, 2, 44100);
  silent.SetChannelRole(1, 7);
  silent.AddChannels(0);
  EXPECT_EQ(silent.GetChannels(), 2u);
  silent.AddChannels(2);
  EXPECT_EQ(silent.GetChannels(), 4u);
  EXPECT_EQ(silent.GetSampleRate(), 44100u);
  for (uint32_t c = 0; c < 4; ++c) {
    EXPECT_EQ(silent.GetChannelRole(c), c);
  }
}

TEST(ZORAudioDataFloat, CopyAssignmentKeepsTargetRolesAndAssignCopiesThem) {
  ZORAudioDataFloat source;
  source.Allocate(4, 2, 44100);
  source.SetUserTag(9);
  source.SetChannelRole(0, 7);
  FillInterleaved(source);

  const ZORAudioDataFloat copy(source);
  EXPECT_EQ(copy.GetFrames(), 4u);
  EXPECT_EQ(copy.GetSampleRate(), 44100u);
  EXPECT_EQ(copy.GetUserTag(), 9u);
  EXPECT_EQ(copy.GetChannelRole(0), 12u);

  ZORAudioDataFloat target;
  target.Allocate(1, 2, 8000);
  target.SetChannelRole(0, 3);
  IZORAudioData<float>& asInterface = source;
  target = asInterface;
  EXPECT_EQ(target.GetChannelRole(0), 3u);
  EXPECT_EQ(target.GetFrames(), 4u);
  EXPECT_TRUE(target.HoldsInterleaved());
  EXPECT_FALSE(target.HoldsPlanar());  // the stores as they stood
  ExpectSamples(target, true, 2);

  // An interleaved source is copied through its planar layout, so both end
  // up with planar samples and the source keeps its interleaved ones too.
  ZORAudioDataFloat assigned;
  assigned.Assign(source);
  EXPECT_EQ(assigned.GetChannelRole(0), 7u);
  EXPECT_EQ(assigned.GetChannelRole(1), 1u);
  EXPECT_TRUE(source.HoldsInterleaved() && source.HoldsPlanar());
  EXPECT_TRUE(assigned.HoldsPlanar());
  EXPECT_FALSE(assigned.HoldsInterleaved());
  ExpectSamples(assigned, true, 2);

  // A planar-only source goes through the interleaved layout.
  ZORAudioDataFloat planarSource;
  planarSource.Allocate(3, 5, 48000);
  FillPlanar(planarSource);
  assigned.Assign(planarSource);
  EXPECT_TRUE(assigned.HoldsInterleaved());
  EXPECT_FALSE(assigned.HoldsPlanar());
  ExpectSamples(assigned, false, 5);

  assigned.Assign(assigned);  // assigning itself keeps the samples
  ExpectSamples(assigned, true, 5);
}

TEST(ZORAudioDataFloat, AssignMemoryCopiesIntoTheNamedLayout) {
  std::vector<float> interleaved(5 * 3);
  for (uint32_t f = 0; f < 5; ++f) {
    for (uint32_t c = 0; c < 3; ++c) {
      interleaved[f * 3 + c] = SampleAt(f, c);
    }
  }
  ZORAudioDataFloat block;
  EXPECT_TRUE(block.AssignMemory(interleaved.data(), 5, 3, true, 32000));
  EXPECT_EQ(block.GetSampleRate(), 32000u);
  EXPECT_FALSE(block.HoldsPlanar());
  ExpectSamples(block, false, 3);

  // The same memory taken as planar is a differently shaped block.
  EXPECT_TRUE(block.AssignMemory(interleaved.data(), 3, 5, false, 32000));
  EXPECT_FALSE(block.HoldsInterleaved());
  EXPECT_EQ(block.GetData(false, false)[7], interleaved[7]);

  EXPECT_TRUE(block.AssignMemory(nullptr, 5, 3, true, 32000));
  ExpectSamples(block, true, 0);
}

TEST(ZORAudioDataFloat, SetFramesChangesTheCountOnly) {
  ZORAudioDataFloat block;
  block.Allocate(4, 2, 48000);
  FillInterleaved(block);
  block.SetFrames(2);
  EXPECT_EQ(block.GetSampleCount(), 4u);
  ExpectSamples(block, true, 2);
  // Raising the count past the store pads it with silence instead of
  // letting a reader run off its end.
  block.SetFrames(6);
  const float* planar = block.GetData(false, false);
  for (uint32_t f = 0; f < 6; ++f) {
    EXPECT_EQ(planar[6 + f], f < 4 ? SampleAt(f, 1) : 0.0f);
  }
}

TEST(ZORAudioDataFloat, BlockOfASizeSeenBeforeDoesNotAllocate) {
  ZORAudioDataFloat block;
  velapo::test::AllocationCounter first;
  block.Allocate(480, 2, 48000);
  block.GetData(true, true);
  block.GetData(false, false);
  EXPECT_GT(first.Count(), 0u);

  velapo::test::AllocationCounter steady;
  for (const uint32_t frames : {480u, 17u, 0u, 480u}) {
    block.Allocate(frames, 2, 48000);
    block.GetData(true, false);
    block.GetData(false, true);
    block.Clear();
  }
  EXPECT_EQ(steady.Count(), 0u);
}
