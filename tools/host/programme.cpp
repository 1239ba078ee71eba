#include "programme.h"

#include <cmath>
#include <numbers>
#include <random>

AudioClip MakeProgramme(double seconds, uint32_t rate) {
  AudioClip clip;
  clip.rate = rate;
  clip.channels = 2;
  const uint64_t frames = static_cast<uint64_t>(seconds * rate);
  clip.samples.assign(frames * 2, 0.0f);
  const double tone = std::pow(10.0, -12.0 / 20.0), noise = std::pow(10.0, -18.0 / 20.0);
  const uint64_t part = frames / 4;
  const uint64_t burst = rate / 4;
  std::minstd_rand random(20);
  std::uniform_real_distribution<double> white(-1.0, 1.0);
  double lowpass = 0, sweepPhase = 0;
  for (uint64_t i = 0; i < frames; ++i) {
    const double t = double(i) / rate;
    double left = 0, right = 0;
    if (i < part || i >= 3 * part) {
      left = tone * std::sin(2 * std::numbers::pi * 440.0 * t);
      right = tone * std::sin(2 * std::numbers::pi * 660.0 * t);
    } else if (i < 2 * part) {
      // Phase accumulated sample by sample, so the sweep has no jumps.
      const double position = double(i - part) / double(part);
      sweepPhase += 2 * std::numbers::pi * 40.0 * std::pow(16000.0 / 40.0, position) / rate;
      left = right = tone * std::sin(sweepPhase);
    } else if (((i - 2 * part) / burst) % 2 == 0) {
      lowpass = 0.7 * lowpass + 0.3 * white(random);  // softens the top of white noise
      left = noise * 2.0 * lowpass;
      right = noise * 2.0 * white(random) * 0.5;
    }
    clip.samples[2 * i] = static_cast<float>(left);
    clip.samples[2 * i + 1] = static_cast<float>(right);
  }
  return clip;
}
