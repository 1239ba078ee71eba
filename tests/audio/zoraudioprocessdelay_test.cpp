// The delay stage: exact shifts across any block split, and no allocation.
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

}  // namespace

TEST(ZORAudioProcessDelay, DelaysAStreamInBlocksOfAnySizeAsAWhole) {
  // Random block sizes around the delay: the output is the input shifted, silence in front.
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
