// Ring buffers: a bounded queue lap after lap (against a reference model),
// views of any width in lockstep, and views that run past their block.
#include "audio/zorringbuffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <numeric>
#include <random>
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

// Random writes and reads of random sizes against a queue as the reference:
// every count, every sample and the full/empty edge agree, lap after lap.
TEST(ZORRingBuffer, BehavesAsABoundedQueueUnderRandomWritesAndReads) {
  std::mt19937 random(5);
  for (const uint32_t capacity : {1u, 7u, 8u}) {
    ZORRingBuffer<float> ring;
    ASSERT_EQ(ring.Allocate(capacity, 2, false), 2u);
    std::deque<float> model;
    std::uniform_int_distribution<uint32_t> size(0, 2 * capacity + 1);
    float next = 1.0f;
    for (int step = 0; step < 400; ++step) {
      const uint32_t count = size(random);
      if (random() % 2 == 0) {
        const std::vector<float> in = Ramp(count, next);
        const uint32_t written = ring.WriteSamples(in.data(), count);
        ASSERT_EQ(written, std::min<size_t>(count, capacity - model.size())) << "step " << step;
        model.insert(model.end(), in.begin(), in.begin() + written);
        next += static_cast<float>(written);
      } else {
        std::vector<float> out(count + 1, -1.0f);
        const uint32_t read = ring.ReadSamples(out.data(), count);
        ASSERT_EQ(read, std::min<size_t>(count, model.size())) << "step " << step;
        ASSERT_TRUE(std::equal(out.begin(), out.begin() + read, model.begin())) << "step " << step;
        ASSERT_EQ(out[read], -1.0f) << "read past the count";
        model.erase(model.begin(), model.begin() + read);
      }
      ASSERT_EQ(ring.GetReadableFrames(), model.size());
      ASSERT_EQ(ring.GetWritableFrames(), capacity - model.size());
    }
  }
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
