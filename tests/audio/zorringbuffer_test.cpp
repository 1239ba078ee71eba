// Ring buffers: wrap-around, full and empty, views of any width in lockstep.
#include "audio/zorringbuffer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <vector>

#include "audio/zoraudiodatafloat.h"
#include "audio/zoraudiodataindexed.h"

namespace {

std::vector<float> Ramp(size_t count, float start) {
  std::vector<float> values(count);
  std::iota(values.begin(), values.end(), start);
  return values;
}

// A block whose channel c holds c * 100 + frame.
void FillRamps(ZORAudioDataFloat& block, uint32_t frames, uint32_t channels) {
  std::vector<float> planar;
  for (uint32_t c = 0; c < channels; ++c) {
    const std::vector<float> ramp = Ramp(frames, static_cast<float>(c * 100));
    planar.insert(planar.end(), ramp.begin(), ramp.end());
  }
  block.AssignMemory(planar.data(), frames, channels, false, 48000);
}

ptrdiff_t WriteAt(const ZORRingBuffer<float>& ring, uint32_t c) {
  return ring.GetRingChannel(c)->write - ring.GetRingChannel(c)->begin;
}
ptrdiff_t ReadAt(const ZORRingBuffer<float>& ring, uint32_t c) {
  return ring.GetRingChannel(c)->read - ring.GetRingChannel(c)->begin;
}

}  // namespace

TEST(ZORRingBuffer, FullRingReadsBackEmpty) {
  ZORRingBuffer<float> ring;
  float sample = 1.0f;
  EXPECT_EQ(ring.WriteSamples(&sample, 1), 0u);  // no channels yet
  EXPECT_EQ(ring.Allocate(8, 2, false), 2u);
  EXPECT_EQ(ring.GetReadableFrames(), 0u);
  EXPECT_EQ(ring.GetWritableFrames(), 8u);
  EXPECT_EQ(ring.WriteSamples(nullptr, 4) + ring.WriteSamples(&sample, 0), 0u);

  const std::vector<float> in = Ramp(8, 1.0f);
  EXPECT_EQ(ring.WriteSamples(in.data(), 9), 8u);
  // Writing exactly to the end comes back to begin: read == write, full.
  EXPECT_EQ(WriteAt(ring, 0), 0);
  EXPECT_TRUE(ring.GetRingChannel(0)->wrapped);
  EXPECT_EQ(ring.GetWritableFrames(), 0u);
  std::vector<float> out(8);
  EXPECT_EQ(ring.ReadSamples(out.data(), 9), 8u);
  EXPECT_EQ(out, in);
  EXPECT_FALSE(ring.GetRingChannel(0)->wrapped);
  EXPECT_EQ(ring.ReadSamples(out.data(), 1), 0u);

  ring.Allocate(8, 2, true);  // full of silence
  EXPECT_EQ(ring.GetReadableFrames(), 8u);
  EXPECT_EQ(ring.GetWritableFrames(), 0u);
  EXPECT_TRUE(ring.GetRingChannel(1)->wrapped);
  EXPECT_EQ(ring.ReadSamples(out.data(), 8), 8u);
  EXPECT_EQ(out, std::vector<float>(8, 0.0f));
  ring.Reset(false);
  EXPECT_EQ(ring.GetRingChannel(1)->ReadableSamples(), 0u);
}

TEST(ZORRingBuffer, CopiesAcrossTheEndInTwoRuns) {
  ZORRingBuffer<float> ring;
  ring.Allocate(8, 1, false);
  std::vector<float> out(8);
  ring.WriteSamples(out.data(), 6);
  ring.ReadSamples(out.data(), 6);
  // 2 samples up to the end, 3 from the start; then a request beyond the
  // free room is cut to it.
  const std::vector<float> in = Ramp(10, 50.0f);
  EXPECT_EQ(ring.WriteSamples(in.data(), 5), 5u);
  EXPECT_EQ(WriteAt(ring, 0), 3);
  EXPECT_TRUE(ring.GetRingChannel(0)->wrapped);
  EXPECT_EQ(ring.WriteSamples(in.data() + 5, 5), 3u);
  EXPECT_EQ(ring.ReadSamples(out.data(), 8), 8u);
  EXPECT_EQ(out, Ramp(8, 50.0f));
  EXPECT_EQ(ReadAt(ring, 0), 6);
}

TEST(ZORRingBuffer, ViewsOfAnyWidthKeepTheChannelsInLockstep) {
  ZORRingBuffer<float> ring;
  ring.Allocate(8, 2, false);
  ZORAudioDataFloat mono;
  FillRamps(mono, 4, 1);
  ZORAudioDataIndexed<float> monoView(&mono, 1);
  EXPECT_EQ(ring.Write(monoView), 3u);
  EXPECT_EQ(monoView.GetIndex(), 1u);  // the caller advances
  EXPECT_EQ(WriteAt(ring, 1), 3);      // the channel the view lacks moves too

  // A wider view gives its first two channels; its third has no ring.
  ZORAudioDataFloat wide;
  FillRamps(wide, 6, 3);
  ZORAudioDataIndexed<float> wideView(&wide);
  EXPECT_EQ(ring.Write(wideView), 5u);
  EXPECT_TRUE(ring.GetRingChannel(1)->wrapped);

  monoView.SetIndex(1);
  EXPECT_EQ(ring.Read(monoView), 3u);
  EXPECT_EQ(ReadAt(ring, 1), 3);
  ZORAudioDataFloat stereo;
  stereo.Allocate(6, 2, 48000);
  ZORAudioDataIndexed<float> stereoView(&stereo, 1);
  EXPECT_EQ(ring.Read(stereoView), 5u);
  const float* planar = stereo.GetData(false, false);
  EXPECT_EQ(std::vector<float>(planar, planar + 12),
            (std::vector<float>{0, 0, 1, 2, 3, 4, 0, 100, 101, 102, 103, 104}));
}

TEST(ZORRingBuffer, RingWithoutChannelsPassesTheViewsLengthThrough) {
  ZORRingBuffer<float> ring;
  EXPECT_EQ(ring.Allocate(0, 2, true), 0u);
  EXPECT_EQ(ring.GetCapacity() + ring.GetWritableFrames(), 0u);
  ZORAudioDataFloat block;
  FillRamps(block, 5, 2);
  ZORAudioDataIndexed<float> view(&block, 2);
  EXPECT_EQ(ring.Write(view), 3u);
  EXPECT_EQ(ring.Read(view), 3u);
  EXPECT_EQ(block.GetData(false, false)[4], 4.0f);  // untouched
}

TEST(ZORAudioDataIndexed, PointsIntoThePlanarChannelAndNeverPastTheBlock) {
  ZORAudioDataFloat block;
  FillRamps(block, 5, 3);
  block.SetUserTag(4);
  ZORAudioDataIndexed<float> view(&block, 2);
  EXPECT_EQ(view.GetChannelData(false, 1), block.GetData(false, false) + 5 + 2);
  EXPECT_EQ(*view.GetChannelData(false, 2), 202.0f);
  EXPECT_EQ(view.GetChannelData(false, 3), nullptr);
  EXPECT_EQ(view.GetUserTag(), 4u);
  EXPECT_EQ(view.GetRemainingFrames(), 3u);

  // Past the end the count wraps as an unsigned number, but no samples are
  // handed out there, so a ring trusting the count moves nothing.
  view.Advance(4);
  EXPECT_EQ(view.GetRemainingFrames(), 0xFFFFFFFFu);
  EXPECT_EQ(view.GetChannelData(false, 0), nullptr);
  ZORRingBuffer<float> ring;
  ring.Allocate(8, 3, false);
  EXPECT_EQ(ring.Write(view), 0u);
  EXPECT_EQ(ring.GetReadableFrames(), 0u);
  view.Rewind();
  EXPECT_EQ(view.GetIndex(), 5u);

  ZORAudioDataIndexed<float> none(nullptr);
  EXPECT_EQ(none.GetFrames(), 0u);
  EXPECT_EQ(none.GetChannelData(true, 0), nullptr);
}
