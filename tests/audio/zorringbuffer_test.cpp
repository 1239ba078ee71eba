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

// A planar block whose channel c holds c * 100 + frame.
void FillRamps(ZORAudioDataFloat& block, uint32_t frames, uint32_t channels) {
  block.Allocate(frames, channels, 48000);
  float* planar = block.GetData(true, false);
  for (uint32_t c = 0; c < channels; ++c) {
    for (uint32_t f = 0; f < frames; ++f) {
      planar[c * frames + f] = static_cast<float>(c * 100 + f);
    }
  }
}

ptrdiff_t WriteOffset(const ZORRingBuffer<float>& ring, uint32_t channel) {
  const ZORRingChannel<float>* record = ring.GetRingChannel(channel);
  return record->write - record->begin;
}

ptrdiff_t ReadOffset(const ZORRingBuffer<float>& ring, uint32_t channel) {
  const ZORRingChannel<float>* record = ring.GetRingChannel(channel);
  return record->read - record->begin;
}

}  // namespace

TEST(ZORRingBuffer, EmptyAndFilledRingsReportTheirRoom) {
  ZORRingBuffer<float> ring;
  EXPECT_EQ(ring.Allocate(8, 2, false), 2u);
  EXPECT_EQ(ring.GetCapacity(), 8u);
  EXPECT_EQ(ring.GetReadableFrames(), 0u);
  EXPECT_EQ(ring.GetWritableFrames(), 8u);
  EXPECT_FALSE(ring.GetRingChannel(1)->wrapped);
  EXPECT_EQ(ring.GetRingChannel(2), nullptr);

  ring.Allocate(8, 2, true);
  EXPECT_EQ(ring.GetReadableFrames(), 8u);
  EXPECT_EQ(ring.GetWritableFrames(), 0u);
  for (uint32_t c = 0; c < 2; ++c) {
    EXPECT_TRUE(ring.GetRingChannel(c)->wrapped);
    EXPECT_EQ(WriteOffset(ring, c), 0);
    EXPECT_EQ(ReadOffset(ring, c), 0);
  }
  std::vector<float> out(8, 1.0f);
  EXPECT_EQ(ring.ReadSamples(out.data(), 8), 8u);
  EXPECT_EQ(out, std::vector<float>(8, 0.0f));

  EXPECT_EQ(ring.Reset(false), 2u);
  EXPECT_EQ(ring.GetRingChannel(1)->ReadableSamples(), 0u);
}

TEST(ZORRingBuffer, FullRingReadsBackEmpty) {
  ZORRingBuffer<float> ring;
  ring.Allocate(8, 1, false);
  const std::vector<float> in = Ramp(8, 1.0f);
  EXPECT_EQ(ring.WriteSamples(in.data(), 8), 8u);
  // Writing exactly to the end comes back to begin: read == write, full.
  EXPECT_EQ(WriteOffset(ring, 0), 0);
  EXPECT_TRUE(ring.GetRingChannel(0)->wrapped);
  EXPECT_EQ(ring.GetReadableFrames(), 8u);
  EXPECT_EQ(ring.WriteSamples(in.data(), 1), 0u);

  std::vector<float> out(8);
  EXPECT_EQ(ring.ReadSamples(out.data(), 9), 8u);
  EXPECT_EQ(out, in);
  EXPECT_FALSE(ring.GetRingChannel(0)->wrapped);
  EXPECT_EQ(ring.GetReadableFrames(), 0u);
  EXPECT_EQ(ring.ReadSamples(out.data(), 1), 0u);
}

TEST(ZORRingBuffer, CopiesAcrossTheEndInTwoRuns) {
  ZORRingBuffer<float> ring;
  ring.Allocate(8, 1, false);
  std::vector<float> out(8);
  const std::vector<float> first = Ramp(6, 0.0f);
  ring.WriteSamples(first.data(), 6);
  ring.ReadSamples(out.data(), 6);

  // 2 samples up to the end, 3 from the start; then a request beyond the
  // free room is cut to it.
  const std::vector<float> second = Ramp(10, 50.0f);
  EXPECT_EQ(ring.WriteSamples(second.data(), 5), 5u);
  EXPECT_EQ(WriteOffset(ring, 0), 3);
  EXPECT_TRUE(ring.GetRingChannel(0)->wrapped);
  EXPECT_EQ(ring.GetWritableFrames(), 3u);
  EXPECT_EQ(ring.WriteSamples(second.data() + 5, 5), 3u);

  EXPECT_EQ(ring.ReadSamples(out.data(), 8), 8u);
  EXPECT_EQ(out, Ramp(8, 50.0f));
  EXPECT_EQ(ReadOffset(ring, 0), 6);
  EXPECT_FALSE(ring.GetRingChannel(0)->wrapped);
}

TEST(ZORRingBuffer, NothingMovesWithoutMemoryOrCount) {
  ZORRingBuffer<float> ring;
  float sample = 1.0f;
  EXPECT_EQ(ring.WriteSamples(&sample, 1), 0u);  // no channels yet
  EXPECT_EQ(ring.ReadSamples(&sample, 1), 0u);
  ring.Allocate(4, 1, false);
  EXPECT_EQ(ring.WriteSamples(nullptr, 4), 0u);
  EXPECT_EQ(ring.WriteSamples(&sample, 0), 0u);
  EXPECT_EQ(ring.ReadSamples(nullptr, 4), 0u);
  EXPECT_EQ(ring.GetReadableFrames(), 0u);
}

TEST(ZORRingBuffer, ViewsMoveEveryChannelFromTheirIndex) {
  ZORAudioDataFloat block;
  FillRamps(block, 5, 2);
  ZORAudioDataIndexed<float> view(&block, 1);
  ZORRingBuffer<float> ring;
  ring.Allocate(8, 2, false);
  EXPECT_EQ(ring.Write(view), 4u);
  EXPECT_EQ(view.GetIndex(), 1u);  // the caller advances
  view.Advance(4);
  EXPECT_EQ(ring.Write(view), 0u);

  ZORAudioDataFloat target;
  target.Allocate(6, 2, 48000);
  ZORAudioDataIndexed<float> targetView(&target, 2);
  EXPECT_EQ(ring.Read(targetView), 4u);
  const float* planar = target.GetData(false, false);
  for (uint32_t c = 0; c < 2; ++c) {
    EXPECT_EQ(planar[c * 6 + 1], 0.0f);
    for (uint32_t f = 0; f < 4; ++f) {
      EXPECT_EQ(planar[c * 6 + 2 + f], static_cast<float>(c * 100 + 1 + f));
    }
  }
}

TEST(ZORRingBuffer, NarrowViewKeepsChannelsInLockstep) {
  ZORRingBuffer<float> ring;
  ring.Allocate(8, 2, false);
  ZORAudioDataFloat mono;
  FillRamps(mono, 3, 1);
  ZORAudioDataIndexed<float> view(&mono);
  EXPECT_EQ(ring.Write(view), 3u);
  EXPECT_EQ(WriteOffset(ring, 0), 3);
  EXPECT_EQ(WriteOffset(ring, 1), 3);

  // A wider view gives its first two channels; the third has no ring.
  ZORAudioDataFloat wide;
  FillRamps(wide, 6, 3);
  ZORAudioDataIndexed<float> wideView(&wide);
  EXPECT_EQ(ring.Write(wideView), 5u);
  EXPECT_TRUE(ring.GetRingChannel(1)->wrapped);

  ZORAudioDataIndexed<float> readBack(&mono);
  EXPECT_EQ(ring.Read(readBack), 3u);
  EXPECT_EQ(ReadOffset(ring, 0), 3);
  EXPECT_EQ(ReadOffset(ring, 1), 3);
  EXPECT_EQ(ring.GetRingChannel(1)->ReadableSamples(), 5u);

  ZORAudioDataFloat stereo;
  stereo.Allocate(5, 2, 48000);
  ZORAudioDataIndexed<float> stereoView(&stereo);
  EXPECT_EQ(ring.Read(stereoView), 5u);
  EXPECT_EQ(stereo.GetData(false, false)[5 + 4], 104.0f);
}

TEST(ZORRingBuffer, RingWithoutChannelsPassesTheViewsLengthThrough) {
  ZORRingBuffer<float> ring;
  EXPECT_EQ(ring.Allocate(0, 2, true), 0u);
  EXPECT_EQ(ring.GetCapacity(), 0u);
  EXPECT_EQ(ring.GetWritableFrames(), 0u);
  ZORAudioDataFloat block;
  FillRamps(block, 5, 2);
  ZORAudioDataIndexed<float> view(&block, 2);
  EXPECT_EQ(ring.Write(view), 3u);
  EXPECT_EQ(ring.Read(view), 3u);
  EXPECT_EQ(block.GetData(false, false)[4], 4.0f);  // untouched
}

TEST(ZORAudioDataIndexed, PointsIntoThePlanarChannelAtItsIndex) {
  ZORAudioDataFloat block;
  FillRamps(block, 5, 3);
  block.SetUserTag(4);
  ZORAudioDataIndexed<float> view(&block, 2);
  EXPECT_EQ(view.GetChannelData(false, 1), block.GetData(false, false) + 5 + 2);
  EXPECT_EQ(*view.GetChannelData(false, 2), 202.0f);
  EXPECT_EQ(view.GetChannelData(false, 3), nullptr);
  EXPECT_EQ(view.GetChannels(), 3u);
  EXPECT_EQ(view.GetSampleRate(), 48000u);
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
  EXPECT_EQ(view.GetRemainingFrames(), 0u);

  view.Clear();
  EXPECT_EQ(block.GetData(false, false)[14], 0.0f);

  ZORAudioDataIndexed<float> none(nullptr);
  EXPECT_EQ(none.GetFrames(), 0u);
  EXPECT_EQ(none.GetChannelData(true, 0), nullptr);
}
