#include "biquad.h"

#include <cmath>
#include <numbers>

namespace veltech {

BiquadCoefficients DesignBiquad(FilterType type, double frequency, double sampleRate,
                                double gainDb, double q) {
  const double w0 = 2.0 * std::numbers::pi * frequency / sampleRate;
  const double cosW0 = std::cos(w0);
  const double alpha = std::sin(w0) / (2.0 * q);
  const double a = std::pow(10.0, gainDb / 40.0);
  double b0 = 1.0, b1 = 0.0, b2 = 0.0, a0 = 1.0, a1 = 0.0, a2 = 0.0;
  switch (type) {
    case FilterType::Peak:
      b0 = 1.0 + alpha * a;
      b1 = -2.0 * cosW0;
      b2 = 1.0 - alpha * a;
      a0 = 1.0 + alpha / a;
      a1 = -2.0 * cosW0;
      a2 = 1.0 - alpha / a;
      break;
    case FilterType::LowShelf: {
      const double twoSqrtAAlpha = 2.0 * std::sqrt(a) * alpha;
      b0 = a * ((a + 1.0) - (a - 1.0) * cosW0 + twoSqrtAAlpha);
      b1 = 2.0 * a * ((a - 1.0) - (a + 1.0) * cosW0);
      b2 = a * ((a + 1.0) - (a - 1.0) * cosW0 - twoSqrtAAlpha);
      a0 = (a + 1.0) + (a - 1.0) * cosW0 + twoSqrtAAlpha;
      a1 = -2.0 * ((a - 1.0) + (a + 1.0) * cosW0);
      a2 = (a + 1.0) + (a - 1.0) * cosW0 - twoSqrtAAlpha;
      break;
    }
    case FilterType::HighShelf: {
      const double twoSqrtAAlpha = 2.0 * std::sqrt(a) * alpha;
      b0 = a * ((a + 1.0) + (a - 1.0) * cosW0 + twoSqrtAAlpha);
      b1 = -2.0 * a * ((a - 1.0) + (a + 1.0) * cosW0);
      b2 = a * ((a + 1.0) + (a - 1.0) * cosW0 - twoSqrtAAlpha);
      a0 = (a + 1.0) - (a - 1.0) * cosW0 + twoSqrtAAlpha;
      a1 = 2.0 * ((a - 1.0) - (a + 1.0) * cosW0);
      a2 = (a + 1.0) - (a - 1.0) * cosW0 - twoSqrtAAlpha;
      break;
    }
    case FilterType::LowPass:
      b0 = (1.0 - cosW0) / 2.0;
      b1 = 1.0 - cosW0;
      b2 = (1.0 - cosW0) / 2.0;
      a0 = 1.0 + alpha;
      a1 = -2.0 * cosW0;
      a2 = 1.0 - alpha;
      break;
    case FilterType::HighPass:
      b0 = (1.0 + cosW0) / 2.0;
      b1 = -(1.0 + cosW0);
      b2 = (1.0 + cosW0) / 2.0;
      a0 = 1.0 + alpha;
      a1 = -2.0 * cosW0;
      a2 = 1.0 - alpha;
      break;
    case FilterType::Notch:
      b0 = 1.0;
      b1 = -2.0 * cosW0;
      b2 = 1.0;
      a0 = 1.0 + alpha;
      a1 = -2.0 * cosW0;
      a2 = 1.0 - alpha;
      break;
  }
  return {b0 / a0, b1 / a0, b2 / a0, a1 / a0, a2 / a0};
}

// audio thread
void RunBiquad(const BiquadCoefficients& c, BiquadState& state, float* samples, uint32_t count) {
  double s1 = state.s1;
  double s2 = state.s2;
  for (uint32_t i = 0; i < count; ++i) {
    const double x = samples[i];
    const double y = c.b0 * x + s1;
    s1 = c.b1 * x - c.a1 * y + s2;
    s2 = c.b2 * x - c.a2 * y;
    samples[i] = static_cast<float>(y);
  }
  state.s1 = s1;
  state.s2 = s2;
}

// audio thread
void RunBiquadPair(const BiquadCoefficients& c, BiquadState& firstState, BiquadState& secondState,
                   float* first, float* second, uint32_t count) {
  double s1 = firstState.s1, s2 = firstState.s2;
  double t1 = secondState.s1, t2 = secondState.s2;
  for (uint32_t i = 0; i < count; ++i) {
    const double x = first[i];
    const double u = second[i];
    const double y = c.b0 * x + s1;
    const double v = c.b0 * u + t1;
    s1 = c.b1 * x - c.a1 * y + s2;
    t1 = c.b1 * u - c.a1 * v + t2;
    s2 = c.b2 * x - c.a2 * y;
    t2 = c.b2 * u - c.a2 * v;
    first[i] = static_cast<float>(y);
    second[i] = static_cast<float>(v);
  }
  firstState = {s1, s2};
  secondState = {t1, t2};
}

// audio thread
void RunBiquadMixed(const BiquadCoefficients& c, BiquadState& state, float* samples,
                    const float* mix, uint32_t count) {
  double s1 = state.s1;
  double s2 = state.s2;
  for (uint32_t i = 0; i < count; ++i) {
    const double x = samples[i];
    const double y = c.b0 * x + s1;
    s1 = c.b1 * x - c.a1 * y + s2;
    s2 = c.b2 * x - c.a2 * y;
    samples[i] = static_cast<float>(x + mix[i] * (y - x));
  }
  state.s1 = s1;
  state.s2 = s2;
}

void FlushTinyState(BiquadState& state) {
  // Far below the quietest sample a float can hold, far above denormals.
  constexpr double kTiny = 1e-30;
  if (std::fabs(state.s1) < kTiny) state.s1 = 0.0;
  if (std::fabs(state.s2) < kTiny) state.s2 = 0.0;
}

}  // namespace veltech
