// The delay stage: exact shifts across any block split, delay changes while
// running, channels without lines, and no allocation.
#include "audio/zoraudioprocessdelay.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "allocationcounter.h"
#include "audiotesting.h"

namespace {

using Floats = std::vector<float>;

Floats Samples(ZORAudioDataFloat& block) { return velapo::test::Interleaved(block); }

// Runs one interleaved block through the delay and returns what came out.
Floats Through(ZORAudioProcessDelay& delay, Floats samples, uint32_t channels = 1) {
  ZORAudioDataFloat block = velapo::test::Wrap(samples, channels);
  delay.Process(&block);
  return Samples(block);
}

}  // namespace

TEST(ZORAudioProcessDelay, DelaysAStreamInBlocksOfAnySizeAsAWhole) {
  // Two channels in random block sizes, some shorter and some longer than
  // the delay: the joined output is the input shifted by the delay, with
  // silence in front, on every channel.
  constexpr uint32_t kDelay = 37;
  constexpr uint32_t kChannels = 2;
  ZORAudioProcessDelay delay;
  delay.SetDelay(kDelay);
  delay.Init(kChannels, 44100);
  EXPECT_EQ(delay.GetLatency(), kDelay);

  std::mt19937 random(11);
  std::uniform_int_distribution<uint32_t> blockSize(0, 90);
  std::vector<float> input;
  std::vector<float> output;
  for (int block = 0; block < 60; ++block) {
    const uint32_t frames = blockSize(random);
    std::vector<float> samples(size_t{frames} * kChannels);
    for (float& s : samples) {
      s = static_cast<float>(input.size() + (&s - samples.data()) + 1);
    }
    input.insert(input.end(), samples.begin(), samples.end());
    ZORAudioDataFloat data;
    data.AssignMemory(samples.data(), frames, kChannels, true, 44100);
    delay.Process(&data);
    ASSERT_EQ(data.GetFrames(), frames);
    const Floats out = Samples(data);
    output.insert(output.end(), out.begin(), out.end());
  }
  ASSERT_EQ(output.size(), input.size());
  const size_t shift = size_t{kDelay} * kChannels;
  for (size_t i = 0; i < output.size(); ++i) {
    ASSERT_EQ(output[i], i < shift ? 0.0f : input[i - shift]) << "sample " << i;
  }
}

TEST(ZORAudioProcessDelay, ChangingTheDelayWhileRunning) {
  ZORAudioProcessDelay delay;
  delay.Init(1, 48000);
  delay.SetDelay(3);
  Through(delay, {1, 2, 3, 4});  // holds 2 3 4

  // Longer: silence goes after the audio held, so the held audio comes out
  // first and the gap follows it.
  delay.SetDelay(5);
  EXPECT_EQ(delay.GetLatency(), 5u);
  EXPECT_EQ(Through(delay, {5, 6, 7, 8}), (Floats{2, 3, 4, 0}));
  EXPECT_EQ(Through(delay, {9, 10, 11, 12}), (Floats{0, 5, 6, 7}));  // held: 0 5 6 7 8

  // Shorter: the newest samples go (held were 8 9 10 11 12, now 8 9).
  delay.SetDelay(2);
  EXPECT_EQ(Through(delay, {13, 14, 15}), (Floats{8, 9, 13}));

  // Delay 0 keeps what is held, and a later delay finds it again.
  delay.SetDelay(0);
  EXPECT_EQ(Through(delay, {16, 17}), (Floats{16, 17}));
  delay.SetDelay(2);
  EXPECT_EQ(Through(delay, {18, 19, 20}), (Floats{14, 15, 18}));
}

TEST(ZORAudioProcessDelay, ProcessDoesNotAllocate) {
  ZORAudioProcessDelay delay;
  delay.Init(2, 48000);
  delay.SetDelay(100);
  ZORAudioDataFloat data;
  data.Allocate(480, 2, 48000);
  data.GetData(true, false);  // both stores sized once
  data.GetData(true, true);
  data.ReleaseData();
  delay.Process(&data);

  velapo::test::AllocationCounter counter;
  for (int i = 0; i < 20; ++i) {
    float* samples = data.GetData(true, true);
    samples[0] = static_cast<float>(i);
    data.ReleaseData();
    delay.Process(&data);
  }
  EXPECT_EQ(counter.Count(), 0u);
}
