// The meters' scan against a plain reference, over every channel count the
// manager meets, block lengths around the vector lanes, and NaNs in the
// samples and in the running peaks.
#include "audio/zorpeakscan.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// A NaN anywhere sticks; otherwise the largest magnitude, the earlier peak included.
float ReferencePeak(const std::vector<float>& samples, uint32_t channels, uint32_t channel, float peak) {
  for (size_t i = channel; i < samples.size(); i += channels) {
    peak = std::isnan(peak) || std::isnan(samples[i]) ? kNaN : std::max(peak, std::fabs(samples[i]));
  }
  return peak;
}

TEST(ZORScanPeaks, MatchesTheReferenceForEveryWidthLengthAndNaN) {
  const uint32_t seed = std::random_device{}();
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> level(-2.0f, 2.0f);
  for (int round = 0; round < 2000; ++round) {
    const uint32_t channels = 1 + random() % 8;
    const uint32_t frames = random() % 40;
    std::vector<float> samples(size_t{frames} * channels);
    for (float& sample : samples) sample = random() % 97 == 0 ? kNaN : level(random);
    std::vector<float> peaks(channels);
    for (float& peak : peaks) peak = random() % 50 == 0 ? kNaN : std::fabs(level(random));
    const std::vector<float> before = peaks;
    ZORScanPeaks(samples.data(), frames, channels, peaks.data());
    for (uint32_t c = 0; c < channels; ++c) {
      const float expected = ReferencePeak(samples, channels, c, before[c]);
      if (std::isnan(expected)) {
        EXPECT_TRUE(std::isnan(peaks[c])) << "seed " << seed << " round " << round << " channel " << c;
      } else {
        EXPECT_EQ(peaks[c], expected) << "seed " << seed << " round " << round << " channel " << c;
      }
    }
  }
}

}  // namespace
