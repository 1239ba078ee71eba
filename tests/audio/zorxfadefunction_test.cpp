// The crossfade: the dB law frame by frame after the delay, and the frames after the fade.
#include "audio/zorxfadefunction.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "audio/zoraudiodatafloat.h"

namespace {

constexpr uint64_t kFadeTime = 6400000;  // 64 ms in units of 10 ns

// The fade law written out independently: the gain rises linearly in decibels from -120 dB, in single precision.
float ReferenceGain(uint32_t intoFade, uint32_t fadeFrames) {
  const float step = 120.0f / static_cast<float>(fadeFrames);
  const float db = static_cast<float>(intoFade) * step - 120.0f;
  return std::pow(10.0f, db / 20.0f);
}

float OldSample(uint32_t f, uint32_t c) { return 0.25f + 0.001f * static_cast<float>(f) + static_cast<float>(c); }
float NewSample(uint32_t f, uint32_t c) { return -0.5f + 0.002f * static_cast<float>(f) - static_cast<float>(c); }

// Frames [start, start + frames) of a stream whose samples depend on the
// absolute frame, so that any block split must give the same stream.
ZORAudioDataFloat Block(uint32_t start, uint32_t frames, uint32_t channels,
                        float (*value)(uint32_t, uint32_t)) {
  std::vector<float> samples;
  for (uint32_t f = 0; f < frames; ++f) {
    for (uint32_t c = 0; c < channels; ++c) {
      samples.push_back(value(start + f, c));
    }
  }
  ZORAudioDataFloat block;
  block.AssignMemory(samples.data(), frames, channels, true, 48000);
  return block;
}

// Runs a whole fade in blocks of `blockFrames` and returns the interleaved result of the new side, frame by frame.
std::vector<float> RunFade(ZORXFadeFunction& fade, uint32_t totalFrames, uint32_t blockFrames,
                           uint32_t channels) {
  std::vector<float> out;
  for (uint32_t start = 0; start < totalFrames; start += blockFrames) {
    const uint32_t frames = std::min(blockFrames, totalFrames - start);
    ZORAudioDataFloat oldBlock = Block(start, frames, channels, OldSample);
    ZORAudioDataFloat newBlock = Block(start, frames, channels, NewSample);
    fade.Process(oldBlock, newBlock);
    const float* mixed = newBlock.GetData(false, true);
    out.insert(out.end(), mixed, mixed + static_cast<size_t>(frames) * channels);
    newBlock.ReleaseData();
  }
  return out;
}

}  // namespace

TEST(ZORXFadeFunction, MixesFrameByFrameAfterTheDelayAndLeavesFramesAfterTheFade) {
  struct Case {
    uint64_t delayTime;
    uint32_t delayFrames, channels, blockFrames;
  };
  // The second: 100 frames of delay at 48 kHz, so blocks of 64 straddle the
  // end of the delay (frame 100) and of the fade (frame 3172).
  for (const Case& test : {Case{0, 0, 2, 480}, Case{208334, 100, 3, 64}}) {
    SCOPED_TRACE(testing::Message() << test.delayFrames << " frames of delay");
    ZORXFadeFunction fade;
    fade.Init(48000, kFadeTime, test.delayTime);
    ASSERT_EQ(fade.GetDelayFrames(), test.delayFrames);
    const uint32_t fadeEnd = test.delayFrames + 3072;
    const uint32_t total = fadeEnd + 200;
    const std::vector<float> out = RunFade(fade, total, test.blockFrames, test.channels);
    ASSERT_EQ(out.size(), static_cast<size_t>(total) * test.channels);
    for (uint32_t f = 0; f < total; ++f) {
      for (uint32_t c = 0; c < test.channels; ++c) {
        const float s = OldSample(f, c);
        const float d = NewSample(f, c);
        float expected = d;
        if (f < test.delayFrames) {
          expected = s;
        } else if (f < fadeEnd) {
          const float g = ReferenceGain(f - test.delayFrames, 3072);
          expected = s * (1.0f - g) + g * d;
        }
        ASSERT_EQ(out[static_cast<size_t>(f) * test.channels + c], expected) << "frame " << f;
      }
    }
    EXPECT_GE(fade.GetPosition(), 1.0f);
    fade.Reset();
    EXPECT_EQ(fade.GetPosition(), 0.0f);
  }
}
