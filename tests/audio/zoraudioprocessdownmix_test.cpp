// The in-place downmix: kernels bit for bit at every tail length, and the stage's modes, bypass and channel checks.
#include "audio/zoraudioprocessdownmix.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "audiotesting.h"
#include "audio/zormixkernels.h"

namespace {

constexpr float k = 0.707f;

std::vector<float> Noise(size_t count, uint32_t seed) { return velapo::test::Noise(count, seed, 2.0f); }

// Runs one interleaved block through the downmix, whose channel count must stay, and returns what came out.
std::vector<float> Through(ZORAudioProcessDownmix& downmix, const std::vector<float>& samples,
                           uint32_t channels) {
  ZORAudioDataFloat block = velapo::test::Wrap(samples, channels);
  downmix.Process(&block);
  EXPECT_EQ(block.GetChannels(), channels);
  return velapo::test::Interleaved(block);
}

}  // namespace

TEST(ZORMixInPlaceKernels, MatchTheFormulasForEveryTailLength) {
  struct Case {
    void (*kernel)(float*, uint32_t);
    uint32_t channels, seed;
    void (*reference)(const float* in, float* out);  // one frame; the rest of it goes silent
  };
  const Case cases[] = {
      {&ZORMixInPlace51ToStereo, 6, 0,
       [](const float* x, float* y) {
         y[0] = (x[2] + x[4]) * k + x[0];
         y[1] = (x[2] + x[5]) * k + x[1];
       }},
      {&ZORMixInPlaceStereoToMono, 2, 100,
       [](const float* x, float* y) { y[0] = (x[1] + x[0]) * k; }},
      {&ZORMixInPlaceMonoToBoth, 2, 200, [](const float* x, float* y) { y[0] = y[1] = x[0]; }},
  };
  for (const Case& test : cases) {
    for (uint32_t frames = 0; frames < 10; ++frames) {
      // One frame more than the kernel is given: nothing past the frames is touched.
      std::vector<float> a = Noise((frames + 1) * test.channels, test.seed + frames);
      std::vector<float> expected = a;
      for (uint32_t f = 0; f < frames; ++f) {
        float* y = &expected[f * test.channels];
        std::fill(y, y + test.channels, 0.0f);
        test.reference(&a[f * test.channels], y);
      }
      test.kernel(a.data(), frames);
      ASSERT_EQ(a, expected) << test.channels << " channels, " << frames << " frames";
    }
  }
}

TEST(ZORAudioProcessDownmix, FoldsByModeAndKeepsTheChannelCount) {
  ZORAudioProcessDownmix downmix;
  EXPECT_TRUE(downmix.Init(6, 48000));
  EXPECT_EQ(downmix.GetMode(), 1u);
  EXPECT_EQ(downmix.GetLatency(), 0u);

  // Each mode runs its kernel in place and leaves the channel count.
  struct ModeCase {
    uint32_t mode, channels;
    void (*kernel)(float*, uint32_t);
  };
  for (const ModeCase& test : {ModeCase{1, 6, &ZORMixInPlace51ToStereo},
                               ModeCase{ZORAudioProcessDownmix::Mode_StereoToMono, 2, &ZORMixInPlaceStereoToMono},
                               ModeCase{ZORAudioProcessDownmix::Mode_MonoToBoth, 2, &ZORMixInPlaceMonoToBoth}}) {
    downmix.SetMode(test.mode);
    const std::vector<float> frames = Noise(test.channels * 5, test.mode);
    std::vector<float> expected = frames;
    test.kernel(expected.data(), 5);
    EXPECT_EQ(Through(downmix, frames, test.channels), expected) << "mode " << test.mode;
  }
  downmix.SetMode(1);

  // Too few channels for the mode, bypass, and an unknown mode leave the block alone.
  const std::vector<float> four = Noise(4 * 8, 1);
  EXPECT_EQ(Through(downmix, four, 4), four);
  const std::vector<float> six = Noise(6 * 8, 2);
  downmix.SetBypass(true);
  EXPECT_EQ(Through(downmix, six, 6), six);
  downmix.SetBypass(false);
  downmix.SetMode(9);
  EXPECT_EQ(Through(downmix, six, 6), six);

  // An empty block stays empty.
  ZORAudioDataFloat empty;
  empty.Allocate(0, 2, 48000);
  downmix.Process(&empty);
  EXPECT_EQ(empty.GetFrames(), 0u);
}

