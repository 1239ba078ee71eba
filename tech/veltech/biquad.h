#pragma once
// Second-order filter sections after the well-known audio EQ cookbook
// formulas (R. Bristow-Johnson), run in transposed direct form II in double
// precision, which keeps low bands at high rates quiet and tolerates
// coefficients that change between stretches of audio.

#include <cstdint>

namespace veltech {

enum class FilterType : int32_t {
  Peak = 0,
  LowShelf = 1,
  HighShelf = 2,
  LowPass = 3,
  HighPass = 4,
  Notch = 5,
};
inline constexpr int32_t kFilterTypeCount = 6;

// Normalised so that a0 is 1.
struct BiquadCoefficients {
  double b0 = 1.0;
  double b1 = 0.0;
  double b2 = 0.0;
  double a1 = 0.0;
  double a2 = 0.0;
};

// The section of `type` at `frequency` Hz for `sampleRate`, with `gainDb`
// (peak and shelves only) and quality `q`. The frequency must lie below half
// the rate and q above 0; callers keep them there.
BiquadCoefficients DesignBiquad(FilterType type, double frequency, double sampleRate,
                                double gainDb, double q);

struct BiquadState {
  double s1 = 0.0;
  double s2 = 0.0;
};

// Filters `count` samples in place. Audio thread.
void RunBiquad(const BiquadCoefficients& c, BiquadState& state, float* samples, uint32_t count);
// The same for two channels at once, with identical results.
void RunBiquadPair(const BiquadCoefficients& c, BiquadState& firstState, BiquadState& secondState,
                   float* first, float* second, uint32_t count);
// The same, with the output blended into the input by `mix` per sample (0
// dry, 1 filtered), for fading a section in or out.
void RunBiquadMixed(const BiquadCoefficients& c, BiquadState& state, float* samples,
                    const float* mix, uint32_t count);
// Lets a state that has decayed to nothing be exactly zero, before it turns
// into denormal numbers that slow the processor down.
void FlushTinyState(BiquadState& state);

}  // namespace veltech
