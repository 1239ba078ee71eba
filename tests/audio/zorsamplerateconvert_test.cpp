// Sample-rate conversion: formats taken and refused, streams alike in any
// pieces, output bounds, and the resampler's format block byte for byte.
#include "audio/zorsamplerateconvert.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "audio/zoraudiodatafloat.h"
#include "audio/zorresamplehandler.h"
#include "audiotesting.h"
#include "platform/resamplerformat.h"
#include "support/zorlogcapture.h"

namespace {

using velapo::test::Sine;
using velapo::test::Wrap;

// Converts `input` in pieces of the given sizes (cycled), offering generous
// output room each time, and returns all that came out.
std::vector<float> ConvertInPieces(ZORSampleRateConvert& convert, const std::vector<float>& input,
                                   const std::vector<uint32_t>& pieces, uint32_t channels) {
  std::vector<float> output;
  std::vector<float> buffer;
  size_t at = 0;
  for (size_t i = 0; at < input.size(); ++i) {
    const uint32_t frames = pieces[i % pieces.size()];
    uint32_t inputSamples =
        static_cast<uint32_t>(std::min<size_t>(size_t{frames} * channels, input.size() - at));
    buffer.resize(size_t{frames} * 2 * channels + 64);
    uint32_t outputSamples = static_cast<uint32_t>(buffer.size());
    EXPECT_TRUE(convert.Convert(input.data() + at, inputSamples, buffer.data(), outputSamples));
    EXPECT_EQ(inputSamples % channels, 0u);
    EXPECT_EQ(outputSamples % channels, 0u);
    if (inputSamples == 0) {
      ADD_FAILURE() << "nothing consumed with room to spare";
      break;
    }
    at += inputSamples;
    output.insert(output.end(), buffer.begin(), buffer.begin() + outputSamples);
  }
  return output;
}

}  // namespace

TEST(ZORSampleRateConvert, SetFormatSetsUpOnceAndRefusesWhatNoConverterTakes) {
  ZORSampleRateConvert convert;
  EXPECT_EQ(convert.SetFormat(44100, 48000, 2), ZORSampleRateConvert::kFormatSetUp);
  EXPECT_NE(convert.GetEngine(), zor::os::Resampler::Engine::kNone);
  EXPECT_EQ(convert.SetFormat(44100, 48000, 2), ZORSampleRateConvert::kFormatUnchanged);
  EXPECT_EQ(convert.SetFormat(48000, 44100, 2), ZORSampleRateConvert::kFormatSetUp);
  EXPECT_EQ(convert.SetFormat(48000, 44100, 6), ZORSampleRateConvert::kFormatSetUp);

  struct Refused {
    uint32_t inputRate, outputRate, channels;
  };
  for (const Refused& bad : {Refused{0, 48000, 2}, Refused{44100, 0, 2}, Refused{44100, 48000, 0},
                             Refused{IZORAudioData<float>::kRateNotSet, 48000, 2},
                             Refused{44100, 48000, zor::os::kResamplerMaxChannels + 1},
                             Refused{zor::os::kResamplerMinRate - 1, 48000, 1}}) {
    convert.SetFormat(44100, 48000, 2);
    EXPECT_EQ(convert.SetFormat(bad.inputRate, bad.outputRate, bad.channels),
              ZORSampleRateConvert::kFormatFailed)
        << bad.inputRate << " -> " << bad.outputRate << " x " << bad.channels;
    EXPECT_EQ(convert.GetInputRate(), 0u) << "a failure forgets the format";
    EXPECT_EQ(convert.GetOutputRate(), 0u);
    EXPECT_EQ(convert.GetChannels(), 0u);
    float sample = 1.0f;
    float out = 0.0f;
    uint32_t in = 1;
    uint32_t room = 1;
    EXPECT_FALSE(convert.Convert(&sample, in, &out, room));
    EXPECT_EQ(in, 0u);
    EXPECT_EQ(room, 0u);
  }
  // All zeros, the format a new converter holds, isn't "unchanged" either.
  ZORSampleRateConvert fresh;
  EXPECT_EQ(fresh.SetFormat(0, 0, 0), ZORSampleRateConvert::kFormatFailed);
}

TEST(ZORSampleRateConvert, EqualRatesCopyTheSmallerCount) {
  ZORSampleRateConvert convert;
  ASSERT_EQ(convert.SetFormat(48000, 48000, 2), ZORSampleRateConvert::kFormatSetUp);
  const std::vector<float> input{1, 2, 3, 4, 5, 6};
  std::vector<float> output(4, -1.0f);
  uint32_t in = 6;
  uint32_t out = 4;
  ASSERT_TRUE(convert.Convert(input.data(), in, output.data(), out));
  EXPECT_EQ(in, 4u);
  EXPECT_EQ(out, 4u);
  EXPECT_EQ(output, (std::vector<float>{1, 2, 3, 4}));
}

TEST(ZORSampleRateConvert, AStreamConvertsAlikeWhateverItsPieces) {
  // The filter's state carries from call to call: cutting the input into
  // pieces of odd sizes gives the same samples as cutting it evenly.
  constexpr uint32_t kChannels = 2;
  const std::vector<float> input = Sine(20000, kChannels, 997.0, 44100.0);
  ZORSampleRateConvert even;
  ZORSampleRateConvert odd;
  ASSERT_NE(even.SetFormat(44100, 48000, kChannels), ZORSampleRateConvert::kFormatFailed);
  ASSERT_NE(odd.SetFormat(44100, 48000, kChannels), ZORSampleRateConvert::kFormatFailed);
  const std::vector<float> a = ConvertInPieces(even, input, {441}, kChannels);
  const std::vector<float> b = ConvertInPieces(odd, input, {1, 17, 300, 2, 999, 64}, kChannels);

  // Nearly 48/44.1 of the input, less what the filter still holds.
  const double expectedFrames = 20000.0 * 48000.0 / 44100.0;
  EXPECT_NEAR(static_cast<double>(a.size() / kChannels), expectedFrames, 2.0);
  ASSERT_EQ(a.size(), b.size());
  for (size_t i = 0; i < a.size(); ++i) {
    ASSERT_NEAR(a[i], b[i], 1e-6f) << "sample " << i;
  }
}

TEST(ZORSampleRateConvert, NeverWritesPastTheRoomGiven) {
  ZORSampleRateConvert convert;
  ASSERT_NE(convert.SetFormat(44100, 48000, 2), ZORSampleRateConvert::kFormatFailed);
  const std::vector<float> input = Sine(441, 2, 440.0, 44100.0);
  std::vector<float> output(64, 0.0f);
  constexpr float kGuard = 1234.5f;
  std::fill(output.begin() + 20, output.end(), kGuard);
  uint32_t in = static_cast<uint32_t>(input.size());
  uint32_t out = 21;  // an odd count: only whole frames may come back
  ASSERT_TRUE(convert.Convert(input.data(), in, output.data(), out));
  EXPECT_LE(out, 20u);
  EXPECT_EQ(out % 2, 0u);
  EXPECT_LT(in, input.size()) << "with the output full, the rest of the input waits";
  for (size_t i = 20; i < output.size(); ++i) {
    ASSERT_EQ(output[i], kGuard) << "written past the room at " << i;
  }
}

TEST(ZORSampleRateConvert, LogsWhenThePlatformsObjectIsMissing) {
  // Linux has no media object to miss; Windows may lack one (or fail to
  // create it on a thread without COM), and then converts on the fallback
  // with one line in the log. Either way the format is taken.
  zor::os::Resampler probe;
  ASSERT_TRUE(probe.SetFormat(44100, 48000, 2));
  const size_t expected = probe.MediaObjectUnavailable() ? 1 : 0;

  ZORLogCapture log;
  ZORSampleRateConvert convert;
  ASSERT_EQ(convert.SetFormat(44100, 48000, 2), ZORSampleRateConvert::kFormatSetUp);
  EXPECT_EQ(log.Count("ZORSampleRateConvert::InitMediaObject Failed to initialize DMO object.\n"),
            expected);
  EXPECT_EQ(log.Lines().size(), expected);
  ASSERT_EQ(convert.SetFormat(44100, 48000, 2), ZORSampleRateConvert::kFormatUnchanged);
  EXPECT_EQ(log.Lines().size(), expected) << "an unchanged format touches nothing";
}

TEST(ZORResampleHandler, ConvertsBlocksOfTheStreamToTheOutputsRate) {
  ZORResampleHandler handler;
  ASSERT_TRUE(handler.Init(44100, 48000, 2));

  // 441 frames at 44.1 kHz are 480 at 48 kHz, block after block.
  const std::vector<float> stream = Sine(441 * 20, 2, 1000.0, 44100.0);
  ZORAudioDataFloat output;
  output.SetSampleRate(48000);
  for (int block = 0; block < 20; ++block) {
    ZORAudioDataFloat input = Wrap(
        std::vector<float>(stream.begin() + block * 882, stream.begin() + (block + 1) * 882), 2,
        44100);
    ASSERT_TRUE(handler.Convert(input, output));
    EXPECT_EQ(output.GetFrames(), 480u) << "block " << block;
    EXPECT_EQ(output.GetChannels(), 2u);
    EXPECT_EQ(output.GetSampleRate(), 48000u);
  }

  // An empty block gives an empty block.
  ZORAudioDataFloat empty;
  empty.Allocate(0, 2, 44100);
  ASSERT_TRUE(handler.Convert(empty, output));
  EXPECT_EQ(output.GetFrames(), 0u);

  // A new channel count is picked up from the block itself.
  ZORAudioDataFloat mono = Wrap(Sine(441, 1, 1000.0, 44100.0), 1, 44100);
  ASSERT_TRUE(handler.Convert(mono, output));
  EXPECT_EQ(output.GetChannels(), 1u);
  EXPECT_EQ(handler.GetConverter().GetChannels(), 1u);
  EXPECT_NEAR(output.GetFrames(), 480, 1);
}

TEST(ZORResampleHandler, RefusesBlocksWithoutAUsableFormat) {
  ZORResampleHandler handler;
  EXPECT_FALSE(handler.Init(44100, 48000, 0));
  EXPECT_FALSE(handler.Init(0, 48000, 2));
  ASSERT_TRUE(handler.Init(44100, 48000, 2));

  const std::vector<float> samples = Sine(100, 2, 1000.0, 44100.0);
  ZORAudioDataFloat output = Wrap(samples, 2, 48000);
  // The output's rate isn't set: nothing to convert to, and the output
  // stays as it was.
  ZORAudioDataFloat input = Wrap(samples, 2, 44100);
  ZORAudioDataFloat unset;
  unset.AssignMemory(samples.data(), 100, 2, true, IZORAudioData<float>::kRateNotSet);
  EXPECT_FALSE(handler.Convert(input, unset));
  EXPECT_EQ(unset.GetFrames(), 100u);
  EXPECT_FALSE(handler.Convert(unset, output));
  EXPECT_EQ(output.GetFrames(), 100u);
  EXPECT_EQ(output.GetSampleRate(), 48000u);
}

TEST(ResamplerFormatBlock, PinsTheThreeLayoutsByteForByte) {
  // Stereo float: the plain 18-byte format, the rest of the block zero.
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
  for (size_t i = 18; i < two.size(); ++i) {
    ASSERT_EQ(two[i], 0) << i;
  }
  const zor::os::ResamplerFormatBlock one = zor::os::MakeResamplerFormatBlock(8000, 1);
  EXPECT_EQ(one[0], 3);
  EXPECT_EQ(one[2], 1);
  EXPECT_EQ(one[12], 4);

  // 5.1 at 48 kHz: extensible, 22 bytes more, mask 63, float sub-format.
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
  EXPECT_EQ(zor::os::MakeResamplerFormatBlock(48000, 3)[20], 63);

  // Above six channels the mask is 7.1's.
  const zor::os::ResamplerFormatBlock eight = zor::os::MakeResamplerFormatBlock(48000, 8);
  EXPECT_EQ(eight[0], 0xFE);
  EXPECT_EQ(eight[20], 0xFF);
  EXPECT_EQ(eight[21], 0x00);
  EXPECT_EQ(zor::os::MakeResamplerFormatBlock(48000, 12)[20], 0xFF);
  EXPECT_EQ(zor::os::MakeResamplerFormatBlock(48000, 12)[12], 48);
}
