// Stages at an internal rate: the host's frame count block after block, the
// FIFO cushion, short and long deliveries, and no allocation.
#include "audio/zoraudioprocessresamplechain.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "allocationcounter.h"
#include "audiotesting.h"

namespace {

using namespace velapo::test;

// Points `data` at `samples` and runs it through the chain; returns the output.
std::vector<float> Feed(ZORAudioProcessResampleChain& chain, ZORAudioDataFloat& data,
                        const std::vector<float>& samples, uint32_t channels, uint32_t rate) {
  data.AssignMemory(samples.data(), static_cast<uint32_t>(samples.size() / channels), channels,
                    true, rate);
  chain.Process(&data);
  return Interleaved(data);
}

struct StreamResult {
  std::vector<float> output;
  uint32_t minFifo = UINT32_MAX;
  uint32_t maxFifo = 0;
};

// Runs `blocks` blocks of a 1 kHz sine at `rate` through the chain and checks
// that each keeps its frame count.
StreamResult RunSine(ZORAudioProcessResampleChain& chain, uint32_t rate, uint32_t blockFrames,
                     uint32_t channels, int blocks) {
  StreamResult result;
  ZORAudioDataFloat data;
  for (int block = 0; block < blocks; ++block) {
    const std::vector<float> samples = Sine(blockFrames, channels, 1000.0, rate, size_t{blockFrames} * block);
    data.AssignMemory(samples.data(), blockFrames, channels, true, rate);
    chain.Process(&data);
    EXPECT_EQ(data.GetFrames(), blockFrames) << "block " << block;
    EXPECT_EQ(data.GetChannels(), channels);
    EXPECT_EQ(data.GetSampleRate(), rate);
    const std::vector<float> out = Interleaved(data);
    result.output.insert(result.output.end(), out.begin(), out.end());
    result.minFifo = std::min(result.minFifo, chain.GetFifoFrames());
    result.maxFifo = std::max(result.maxFifo, chain.GetFifoFrames());
  }
  return result;
}

}  // namespace

TEST(ZORAudioProcessResampleChain, WithoutAnInternalRateTheStagesGetTheHostsBlock) {
  ZORAudioProcessResampleChain chain;
  RecordingStage stage(12);
  stage.frames.reserve(4);
  chain.AddProcess(&stage);
  ASSERT_TRUE(chain.Init(2, 44100));
  EXPECT_EQ(stage.initChannels, 2u);
  EXPECT_EQ(stage.initRate, 44100u);
  EXPECT_EQ(chain.GetLatency(), 12u) << "no cushion without resampling";

  const std::vector<float> samples = Ramp(441, 2, 0);
  ZORAudioDataFloat data;
  data.AssignMemory(samples.data(), 441, 2, true, 44100);
  velapo::test::AllocationCounter counter;
  chain.Process(&data);
  EXPECT_EQ(counter.Count(), 0u);
  EXPECT_EQ(stage.seen, &data) << "the block itself, not a copy";
  EXPECT_FALSE(data.HoldsPlanar());
  EXPECT_EQ(Interleaved(data), samples);

  // Resampling adds the cushion to the stages' latency.
  chain.SetInternalRate(48000);
  EXPECT_EQ(chain.GetLatency(), 12u + 5u);
}

TEST(ZORAudioProcessResampleChain, KeepsTheHostsFrameCountBlockAfterBlock) {
  struct Case {
    uint32_t rate, internalRate, blockFrames, internalFrames;
  };
  // The last: a block whose share at the other rate isn't whole (522.45
  // frames), so the converter alternates and the FIFO evens it out.
  for (const Case& test : {Case{44100, 48000, 441, 480}, Case{48000, 44100, 480, 441},
                           Case{44100, 48000, 480, 522}}) {
    SCOPED_TRACE(testing::Message() << test.rate << " via " << test.internalRate);
    ZORAudioProcessResampleChain chain;
    RecordingStage stage;
    chain.AddProcess(&stage);
    chain.SetInternalRate(test.internalRate);
    ASSERT_TRUE(chain.Init(2, test.rate));
    EXPECT_EQ(stage.initRate, test.internalRate) << "stages run at the internal rate";
    EXPECT_EQ(chain.GetFifoFrames(), 5u);

    const StreamResult result = RunSine(chain, test.rate, test.blockFrames, 2, 200);
    EXPECT_EQ(stage.rate, test.internalRate);
    for (uint32_t frames : stage.frames) {
      ASSERT_NEAR(frames, test.internalFrames, 1u);
    }
    for (size_t i = 0; i < 10; ++i) {
      EXPECT_EQ(result.output[i], 0.0f) << "the cushion comes out first, at " << i;
    }
    EXPECT_NE(result.output[2 * test.blockFrames - 1], 0.0f) << "audio follows in the first block";
    // The level wanders by a few frames around the cushion, never empties
    // and never grows.
    EXPECT_GE(result.minFifo, 3u);
    EXPECT_LE(result.maxFifo, 8u);
    EXPECT_EQ(chain.GetPaddedFrames(), 0u);
    EXPECT_EQ(chain.GetDroppedFrames(), 0u);
  }
}

TEST(ZORAudioProcessResampleChain, EveryInitLaysAnotherCushion) {
  // With the internal rate equal to the stream's, the conversions are
  // copies, and the output is the input late by exactly the cushion.
  ZORAudioProcessResampleChain chain;
  chain.SetInternalRate(48000);
  ASSERT_TRUE(chain.Init(2, 48000));
  ASSERT_TRUE(chain.Init(2, 48000));
  EXPECT_EQ(chain.GetFifoFrames(), 10u);
  EXPECT_EQ(chain.GetLatency(), 5u) << "the reported figure is one cushion";

  std::vector<float> input;
  std::vector<float> output;
  ZORAudioDataFloat data;
  for (uint32_t block = 0; block < 3; ++block) {
    const std::vector<float> samples = Ramp(64, 2, block * 64);
    input.insert(input.end(), samples.begin(), samples.end());
    const std::vector<float> out = Feed(chain, data, samples, 2, 48000);
    output.insert(output.end(), out.begin(), out.end());
  }
  for (size_t i = 0; i < output.size(); ++i) {
    ASSERT_EQ(output[i], i < 20 ? 0.0f : input[i - 20]) << i;
  }

  // Reset, one Init: one cushion again.
  chain.ResetFifo();
  ASSERT_TRUE(chain.Init(2, 48000));
  EXPECT_EQ(chain.GetFifoFrames(), 5u);
}

TEST(ZORAudioProcessResampleChain, AShortDeliveryIsPaddedWithSilenceAndCounted) {
  // A stage that loses 20 frames once, at equal rates: the FIFO holds the
  // cushion of 5, gets 460, and must give 480; the last 15 are silence,
  // never samples from beyond what it holds.
  ZORAudioProcessResampleChain chain;
  RecordingStage stage;
  stage.frameChange = -20;
  stage.changeOnce = 1;
  chain.AddProcess(&stage);
  chain.SetInternalRate(48000);
  ASSERT_TRUE(chain.Init(1, 48000));

  const std::vector<float> first = Ramp(480, 1, 0);
  ZORAudioDataFloat data;
  const std::vector<float> out = Feed(chain, data, first, 1, 48000);
  ASSERT_EQ(out.size(), 480u);
  for (size_t i = 0; i < 480; ++i) {
    const float expected = i < 5 ? 0.0f : i < 465 ? first[i - 5] : 0.0f;
    ASSERT_EQ(out[i], expected) << i;
  }
  EXPECT_EQ(chain.GetPaddedFrames(), 15u);
  EXPECT_EQ(chain.GetFifoFrames(), 0u);

  // From here the FIFO runs empty but whole: no more padding.
  const std::vector<float> second = Ramp(480, 1, 480);
  EXPECT_EQ(Feed(chain, data, second, 1, 48000), second);
  EXPECT_EQ(chain.GetPaddedFrames(), 15u);
}

TEST(ZORAudioProcessResampleChain, AnOverDeliveryCannotFillTheFifoWithoutEnd) {
  ZORAudioProcessResampleChain chain;
  RecordingStage stage;
  stage.frameChange = 100;  // every block comes back 100 frames longer
  chain.AddProcess(&stage);
  chain.SetInternalRate(48000);
  ASSERT_TRUE(chain.Init(2, 48000));

  ZORAudioDataFloat data;
  for (uint32_t block = 0; block < 20; ++block) {
    ASSERT_EQ(Feed(chain, data, Ramp(480, 2, block * 480), 2, 48000).size(), 960u);
    ASSERT_LE(chain.GetFifoFrames(), 480u + 5u) << "block " << block;
  }
  EXPECT_GT(chain.GetDroppedFrames(), 0u);
  EXPECT_EQ(chain.GetPaddedFrames(), 0u);
}

TEST(ZORAudioProcessResampleChain, ANewWidthStartsTheFifoAfresh) {
  ZORAudioProcessResampleChain chain;
  chain.SetInternalRate(48000);
  ASSERT_TRUE(chain.Init(2, 48000));
  ZORAudioDataFloat data;
  Feed(chain, data, Ramp(32, 2, 0), 2, 48000);
  const std::vector<float> mono = Ramp(32, 1, 100);
  const std::vector<float> out = Feed(chain, data, mono, 1, 48000);
  ASSERT_EQ(data.GetFrames(), 32u);
  ASSERT_EQ(data.GetChannels(), 1u);
  for (size_t i = 0; i < out.size(); ++i) {
    ASSERT_EQ(out[i], i < 5 ? 0.0f : mono[i - 5]) << "no stereo frames read as mono, at " << i;
  }
}

TEST(ZORAudioProcessResampleChain, BlocksItCannotConvertPassAsTheyAre) {
  ZORAudioProcessResampleChain chain;
  RecordingStage stage;
  chain.AddProcess(&stage);
  chain.SetInternalRate(48000);
  ASSERT_TRUE(chain.Init(2, 44100));
  const std::vector<float> samples = Ramp(100, 2, 0);
  ZORAudioDataFloat data;

  // A block without a rate: the way down fails and the block is left.
  EXPECT_EQ(Feed(chain, data, samples, 2, IZORAudioData<float>::kRateNotSet), samples);
  EXPECT_EQ(stage.seen, nullptr);

  // A bypassed chain touches nothing either.
  chain.SetBypass(true);
  EXPECT_EQ(Feed(chain, data, samples, 2, 44100), samples);
  EXPECT_EQ(stage.seen, nullptr);
}

TEST(ZORAudioProcessResampleChain, AFailedSetUpFailsInitYetInitialisesTheStages) {
  ZORAudioProcessResampleChain chain;
  RecordingStage stage;
  chain.AddProcess(&stage);
  chain.SetInternalRate(100);  // no converter goes that low
  EXPECT_FALSE(chain.Init(2, 44100));
  EXPECT_EQ(stage.initRate, 100u);
  EXPECT_EQ(stage.initChannels, 2u);

  // A stage that fails fails the chain too, with working converters.
  chain.SetInternalRate(48000);
  stage.initResult = false;
  EXPECT_FALSE(chain.Init(2, 44100));
  stage.initResult = true;
  EXPECT_TRUE(chain.Init(2, 44100));
}

TEST(ZORAudioProcessResampleChain, SteadyStateDoesNotAllocate) {
  ZORAudioProcessResampleChain chain;
  RecordingStage stage;
  stage.frames.reserve(64);
  chain.AddProcess(&stage);
  chain.SetInternalRate(48000);
  ASSERT_TRUE(chain.Init(2, 44100));
  const std::vector<float> samples = Ramp(441, 2, 0);
  ZORAudioDataFloat data;
  data.AssignMemory(samples.data(), 441, 2, true, 44100);
  chain.Process(&data);

  velapo::test::AllocationCounter counter;
  for (int block = 0; block < 40; ++block) {
    data.AssignMemory(samples.data(), 441, 2, true, 44100);
    chain.Process(&data);
  }
  EXPECT_EQ(counter.Count(), 0u);
}
