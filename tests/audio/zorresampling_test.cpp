// Resampling, over rate pairs: formats refused, output within the room given, the format
// block byte for byte, the chain's FIFO keeping the host's frames (short and long
// deliveries, failures, no allocation) and no alias on the way down.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

#include "allocationcounter.h"
#include "audio/zoraudiodatafloat.h"
#include "audio/zoraudioprocessresamplechain.h"
#include "audio/zorresamplehandler.h"
#include "audio/zorsamplerateconvert.h"
#include "audiotesting.h"
#include "platform/resamplerformat.h"

namespace {

using namespace velapo::test;

struct RatePair {
  uint32_t from, to;
};
constexpr RatePair kPairs[] = {{44100, 48000}, {48000, 44100}, {22050, 32000}};

// Frames left out while the filters settle.
constexpr size_t kSettleFrames = 4096;

std::vector<float> Feed(ZORAudioProcessResampleChain& chain, ZORAudioDataFloat& data,
                        const std::vector<float>& samples, uint32_t channels, uint32_t rate) {
  data.AssignMemory(samples.data(), static_cast<uint32_t>(samples.size() / channels), channels, true, rate);
  chain.Process(&data);
  return Interleaved(data);
}

}  // namespace

TEST(ZORSampleRateConvert, RefusesWhatNoConverterTakesAndForgetsTheFormat) {
  ZORSampleRateConvert convert;
  EXPECT_EQ(convert.SetFormat(44100, 48000, 2), ZORSampleRateConvert::kFormatSetUp);
  EXPECT_EQ(convert.SetFormat(44100, 48000, 2), ZORSampleRateConvert::kFormatUnchanged);
  struct Refused {
    uint32_t inputRate, outputRate, channels;
  };
  for (const Refused& bad : {Refused{0, 48000, 2}, Refused{44100, 0, 2}, Refused{44100, 48000, 0},
                             Refused{IZORAudioData<float>::kRateNotSet, 48000, 2},
                             Refused{44100, 48000, zor::os::kResamplerMaxChannels + 1},
                             Refused{zor::os::kResamplerMinRate - 1, 48000, 1}}) {
    convert.SetFormat(44100, 48000, 2);
    EXPECT_EQ(convert.SetFormat(bad.inputRate, bad.outputRate, bad.channels), ZORSampleRateConvert::kFormatFailed)
        << bad.inputRate << " -> " << bad.outputRate << " x " << bad.channels;
    EXPECT_EQ(convert.GetChannels(), 0u);
    float sample = 1.0f;
    uint32_t in = 1;
    uint32_t room = 1;
    EXPECT_FALSE(convert.Convert(&sample, in, &sample, room));
    EXPECT_EQ(in + room, 0u);
  }
  ZORSampleRateConvert fresh;
  EXPECT_EQ(fresh.SetFormat(0, 0, 0), ZORSampleRateConvert::kFormatFailed);
}

TEST(ZORSampleRateConvert, NeverWritesPastTheRoomGiven) {
  ZORSampleRateConvert convert;
  ASSERT_NE(convert.SetFormat(44100, 48000, 2), ZORSampleRateConvert::kFormatFailed);
  const std::vector<float> input = Sine(441, 2, 440.0, 44100.0);
  constexpr float kGuard = 1234.5f;
  std::vector<float> output(64, kGuard);
  uint32_t in = static_cast<uint32_t>(input.size());
  uint32_t out = 21;  // an odd count: only whole frames may come back
  ASSERT_TRUE(convert.Convert(input.data(), in, output.data(), out));
  EXPECT_LE(out, 20u);
  EXPECT_EQ(out % 2, 0u);
  EXPECT_LT(in, input.size()) << "with the output full, the rest of the input waits";
  EXPECT_TRUE(std::all_of(output.begin() + 20, output.end(), [](float s) { return s == kGuard; }));
}

TEST(ResamplerFormatBlock, PinsTheThreeLayoutsByteForByte) {
  const std::vector<uint8_t> stereo{
      0x03, 0x00,              // IEEE float
      0x02, 0x00,              // 2 channels
      0x44, 0xAC, 0x00, 0x00,  // 44100
      0x20, 0x62, 0x05, 0x00,  // 352800 bytes a second
      0x08, 0x00,              // 8 bytes a frame
      0x20, 0x00,              // 32 bits
      0x00, 0x00};             // no extension
  const zor::os::ResamplerFormatBlock two = zor::os::MakeResamplerFormatBlock(44100, 2);
  EXPECT_EQ(std::vector<uint8_t>(two.begin(), two.begin() + 18), stereo);
  EXPECT_TRUE(std::all_of(two.begin() + 18, two.end(), [](uint8_t b) { return b == 0; }));

  const std::vector<uint8_t> surround{
      0xFE, 0xFF,              // extensible
      0x06, 0x00,              // 6 channels
      0x80, 0xBB, 0x00, 0x00,  // 48000
      0x00, 0x94, 0x11, 0x00,  // 1152000 bytes a second
      0x18, 0x00,              // 24 bytes a frame
      0x20, 0x00,              // 32 bits
      0x16, 0x00,              // 22 bytes of extension
      0x20, 0x00,              // 32 valid bits
      0x3F, 0x00, 0x00, 0x00,  // front, centre, LFE, back
      0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00,
      0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
  const zor::os::ResamplerFormatBlock six = zor::os::MakeResamplerFormatBlock(48000, 6);
  EXPECT_EQ(std::vector<uint8_t>(six.begin(), six.end()), surround);
  // Mono is plain; three to six channels carry 5.1's mask, seven and up 7.1's.
  EXPECT_EQ(zor::os::MakeResamplerFormatBlock(8000, 1)[0], 3);
  EXPECT_EQ(zor::os::MakeResamplerFormatBlock(48000, 3)[20], 63);
  EXPECT_EQ(zor::os::MakeResamplerFormatBlock(48000, 7)[20], 0xFF);
  EXPECT_EQ(zor::os::MakeResamplerFormatBlock(48000, 12)[12], 48);
}

// The last case's block is 522.45 frames at the other rate: the converter
// alternates and the FIFO evens it out around its cushion, never emptying.
TEST(ZORAudioProcessResampleChain, KeepsTheHostsFrameCountWithoutAllocating) {
  struct Case {
    uint32_t rate, internalRate, blockFrames, internalFrames;
  };
  for (const Case& test : {Case{44100, 48000, 441, 480}, Case{48000, 44100, 480, 441}, Case{44100, 48000, 480, 522}}) {
    SCOPED_TRACE(testing::Message() << test.rate << " via " << test.internalRate);
    ZORAudioProcessResampleChain chain;
    RecordingStage stage;
    stage.frames.reserve(400);
    chain.AddProcess(&stage);
    chain.SetInternalRate(test.internalRate);
    ASSERT_TRUE(chain.Init(2, test.rate));
    EXPECT_EQ(stage.initRate, test.internalRate) << "stages run at the internal rate";
    uint32_t minFifo = UINT32_MAX;
    uint32_t maxFifo = 0;
    uint64_t allocations = 0;
    ZORAudioDataFloat data;
    for (uint32_t block = 0; block < 200; ++block) {
      const std::vector<float> samples = Sine(test.blockFrames, 2, 1000.0, test.rate, size_t{test.blockFrames} * block);
      data.AssignMemory(samples.data(), test.blockFrames, 2, true, test.rate);
      AllocationCounter counter;
      chain.Process(&data);
      allocations += block > 0 ? counter.Count() : 0;
      ASSERT_EQ(data.GetFrames(), test.blockFrames);
      const std::vector<float> out = Interleaved(data);
      if (block == 0) {
        EXPECT_EQ(out[9], 0.0f) << "the cushion comes out first";
        EXPECT_NE(out.back(), 0.0f) << "audio follows in the first block";
      }
      minFifo = std::min(minFifo, chain.GetFifoFrames());
      maxFifo = std::max(maxFifo, chain.GetFifoFrames());
    }
    for (uint32_t frames : stage.frames) ASSERT_NEAR(frames, test.internalFrames, 1u);
    EXPECT_GE(minFifo, 3u);
    EXPECT_LE(maxFifo, 8u);
    EXPECT_EQ(allocations, 0u);
    EXPECT_EQ(chain.GetPaddedFrames() + chain.GetDroppedFrames(), 0u);
  }
}

// A stage that loses 20 frames once: the FIFO holds 5, gets 460, must give
// 480, and pads the last 15 with silence, never with what it doesn't hold.
TEST(ZORAudioProcessResampleChain, AShortDeliveryIsPaddedAndALongOneBounded) {
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
  for (size_t i = 0; i < 480; ++i) ASSERT_EQ(out[i], i < 5 || i >= 465 ? 0.0f : first[i - 5]) << i;
  EXPECT_EQ(chain.GetPaddedFrames(), 15u);
  const std::vector<float> second = Ramp(480, 1, 480);
  EXPECT_EQ(Feed(chain, data, second, 1, 48000), second) << "empty but whole: no more padding";

  RecordingStage growing;
  growing.frameChange = 100;  // every block comes back 100 frames longer
  ZORAudioProcessResampleChain over;
  over.AddProcess(&growing);
  over.SetInternalRate(48000);
  ASSERT_TRUE(over.Init(2, 48000));
  for (uint32_t block = 0; block < 20; ++block) {
    ASSERT_EQ(Feed(over, data, Ramp(480, 2, block * 480), 2, 48000).size(), 960u);
    ASSERT_LE(over.GetFifoFrames(), 480u + 5u) << "block " << block;
  }
  EXPECT_GT(over.GetDroppedFrames(), 0u);
}

// A block ten times longer grows the FIFO from wherever its content starts: two blocks
// of about 480 frames first leave the cushion anywhere, wrapped round the FIFO's end too.
TEST(ZORAudioProcessResampleChain, GrowingForALongerBlockKeepsTheStreamWhole) {
  for (uint32_t before = 950; before <= 1010; ++before) {
    SCOPED_TRACE(testing::Message() << before << " frames before the long block");
    ZORAudioProcessResampleChain chain;
    RecordingStage stage;
    chain.AddProcess(&stage);
    chain.SetInternalRate(48000);
    ASSERT_TRUE(chain.Init(1, 48000));
    ZORAudioDataFloat data;
    std::vector<float> out;
    uint32_t fed = 0;
    for (const uint32_t frames : {before / 2, before - before / 2, 4790u}) {
      const std::vector<float> got = Feed(chain, data, Ramp(frames, 1, fed), 1, 48000);
      out.insert(out.end(), got.begin(), got.end());
      fed += frames;
    }
    const std::vector<float> stream = Ramp(fed, 1);
    const auto cushion = static_cast<size_t>(chain.GetLatency());
    ASSERT_EQ(out.size(), stream.size());
    for (size_t i = 0; i < out.size(); ++i) ASSERT_EQ(out[i], i < cushion ? 0.0f : stream[i - cushion]) << i;
  }
}

TEST(ZORAudioProcessResampleChain, FailuresPassTheBlockAsItIs) {
  ZORAudioProcessResampleChain chain;
  RecordingStage stage;
  chain.AddProcess(&stage);
  chain.SetInternalRate(100);  // no converter goes that low
  EXPECT_FALSE(chain.Init(2, 44100));
  EXPECT_EQ(stage.initRate, 100u) << "the stages are initialised all the same";
  chain.SetInternalRate(48000);
  stage.initResult = false;
  EXPECT_FALSE(chain.Init(2, 44100));
  stage.initResult = true;
  ASSERT_TRUE(chain.Init(2, 44100));

  const std::vector<float> samples = Ramp(100, 2, 0);
  ZORAudioDataFloat data;
  EXPECT_EQ(Feed(chain, data, samples, 2, IZORAudioData<float>::kRateNotSet), samples);
  chain.SetBypass(true);
  EXPECT_EQ(Feed(chain, data, samples, 2, 44100), samples);
  EXPECT_EQ(stage.seen, nullptr);
}


// Down to 44.1 kHz a tone above 22.05 kHz has no place in the output: this
// is what rules out the filter qualities that cut off too late.
TEST(ZORResampleQuality, AliasesDownStayBelowMinus95dB) {
  for (const double tone : {22100.0, 23000.0, 23900.0}) {
    ZORResampleHandler handler;
    ASSERT_TRUE(handler.Init(48000, 44100, 2));
    const std::vector<float> input = Sine(24000, 2, tone, 48000);
    ZORAudioDataFloat in;
    ZORAudioDataFloat out;
    out.SetSampleRate(44100);
    std::vector<float> output;
    for (size_t at = 0; at + 960 <= input.size(); at += 960) {
      in.AssignMemory(input.data() + at, 480, 2, true, 48000);
      ASSERT_TRUE(handler.Convert(in, out));
      const std::vector<float> samples = Interleaved(out);
      output.insert(output.end(), samples.begin(), samples.end());
    }
    double energy = 0.0;
    for (size_t i = 2 * kSettleFrames; i < output.size(); ++i) energy += static_cast<double>(output[i]) * output[i];
    const double rms = std::sqrt(energy / static_cast<double>(output.size() - 2 * kSettleFrames));
    EXPECT_LE(20.0 * std::log10(rms / (0.5 / std::numbers::sqrt2)), -95.0) << tone << " Hz";
  }
}
