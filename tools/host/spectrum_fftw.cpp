#include <fftw3.h>

#include <cmath>
#include <numbers>
#include <memory>

#include "spectrum.h"

bool Spectrum::Available() { return true; }

std::vector<double> Spectrum::Of(const AudioClip& clip) {
  const uint64_t frames = clip.Frames();
  if (frames < kSize) return {};
  const size_t bins = kSize / 2 + 1;
  std::unique_ptr<float, decltype(&fftwf_free)> in(fftwf_alloc_real(kSize), &fftwf_free);
  std::unique_ptr<fftwf_complex, decltype(&fftwf_free)> out(fftwf_alloc_complex(bins), &fftwf_free);
  fftwf_plan plan = fftwf_plan_dft_r2c_1d(int(kSize), in.get(), out.get(), FFTW_ESTIMATE);
  std::vector<double> power(bins, 0.0);
  size_t windows = 0;
  for (uint64_t start = 0; start + kSize <= frames; start += kSize / 2, ++windows) {
    for (size_t i = 0; i < kSize; ++i) {
      double mixed = 0;
      for (uint32_t c = 0; c < clip.channels; ++c) mixed += clip.samples[(start + i) * clip.channels + c];
      const double hann = 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * double(i) / double(kSize));
      in.get()[i] = static_cast<float>(hann * mixed / clip.channels);
    }
    fftwf_execute(plan);
    for (size_t b = 0; b < bins; ++b) {
      const double re = out.get()[b][0], im = out.get()[b][1];
      power[b] += re * re + im * im;
    }
  }
  fftwf_destroy_plan(plan);
  // Full scale sine -> 0 dB: a Hann window's coherent gain is 1/2.
  const double scale = 4.0 / (double(kSize) * double(kSize) * double(windows));
  for (double& p : power) p = 10.0 * std::log10(p * scale + 1e-20);
  return power;
}
