// How faithfully the stream survives conversion to the internal rate and
// back, judged by an analysis of this test's own: a least-squares fit of the
// tone that went in (sine, cosine and offset at its known frequency), and
// everything the fit leaves is distortion, noise, images or aliases.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <numbers>
#include <string>
#include <vector>

#include "audio/zoraudiodatafloat.h"
#include "audio/zoraudioprocessresamplechain.h"
#include "audio/zorresamplehandler.h"
#include "audiotesting.h"

namespace {

constexpr double kAmplitude = 0.5;
// Frames left to the filters and the cushion before the analysis starts.
constexpr size_t kStartUpFrames = 4096;
constexpr double kLimitDb = -95.0;

struct ToneFit {
  double amplitude = 0.0;
  double residualRms = 0.0;  // what is left after taking the tone away
};

// Fits a·sin + b·cos + c at `frequency` to samples[start...] of one channel
// of an interleaved stream.
ToneFit FitTone(const std::vector<float>& samples, uint32_t channels, uint32_t channel,
                double frequency, double rate) {
  const size_t frames = samples.size() / channels;
  double m[3][4] = {};
  for (size_t f = kStartUpFrames; f < frames; ++f) {
    const double phase = 2.0 * std::numbers::pi * frequency * static_cast<double>(f) / rate;
    const double basis[3] = {std::sin(phase), std::cos(phase), 1.0};
    const double x = samples[f * channels + channel];
    for (int r = 0; r < 3; ++r) {
      for (int c = 0; c < 3; ++c) {
        m[r][c] += basis[r] * basis[c];
      }
      m[r][3] += basis[r] * x;
    }
  }
  // Gaussian elimination on the normal equations; the matrix is positive
  // definite for any tone below the Nyquist rate.
  for (int p = 0; p < 3; ++p) {
    for (int r = p + 1; r < 3; ++r) {
      const double k = m[r][p] / m[p][p];
      for (int c = p; c < 4; ++c) {
        m[r][c] -= k * m[p][c];
      }
    }
  }
  double solution[3];
  for (int p = 2; p >= 0; --p) {
    double v = m[p][3];
    for (int c = p + 1; c < 3; ++c) {
      v -= m[p][c] * solution[c];
    }
    solution[p] = v / m[p][p];
  }
  double residual = 0.0;
  for (size_t f = kStartUpFrames; f < frames; ++f) {
    const double phase = 2.0 * std::numbers::pi * frequency * static_cast<double>(f) / rate;
    const double fitted =
        solution[0] * std::sin(phase) + solution[1] * std::cos(phase) + solution[2];
    const double e = samples[f * channels + channel] - fitted;
    residual += e * e;
  }
  ToneFit fit;
  fit.amplitude = std::hypot(solution[0], solution[1]);
  fit.residualRms = std::sqrt(residual / static_cast<double>(frames - kStartUpFrames));
  return fit;
}

double Db(double ratio) { return 20.0 * std::log10(ratio); }

// Residual against the tone's own level, the THD+N of the fit.
double ResidualDb(const ToneFit& fit) {
  return Db(fit.residualRms / (fit.amplitude / std::numbers::sqrt2));
}

// The stream at `rate` through a chain that runs at `internalRate`, in
// 10 ms blocks; half a second of it.
std::vector<float> RoundTrip(const std::vector<float>& input, uint32_t rate,
                             uint32_t internalRate) {
  ZORAudioProcessResampleChain chain;
  chain.SetInternalRate(internalRate);
  EXPECT_TRUE(chain.Init(2, rate));
  const uint32_t block = rate / 100;
  std::vector<float> output;
  ZORAudioDataFloat data;
  for (size_t at = 0; at + size_t{block} * 2 <= input.size(); at += size_t{block} * 2) {
    data.AssignMemory(input.data() + at, block, 2, true, rate);
    chain.Process(&data);
    const float* samples = data.GetData(false, true);
    output.insert(output.end(), samples, samples + data.GetSampleCount());
    data.ReleaseData();
  }
  EXPECT_EQ(chain.GetPaddedFrames(), 0u);
  return output;
}

// One direction only, in 10 ms blocks.
std::vector<float> OneWay(const std::vector<float>& input, uint32_t inputRate,
                          uint32_t outputRate) {
  ZORResampleHandler handler;
  EXPECT_TRUE(handler.Init(inputRate, outputRate, 2));
  const uint32_t block = inputRate / 100;
  std::vector<float> output;
  ZORAudioDataFloat in;
  ZORAudioDataFloat out;
  out.SetSampleRate(outputRate);
  for (size_t at = 0; at + size_t{block} * 2 <= input.size(); at += size_t{block} * 2) {
    in.AssignMemory(input.data() + at, block, 2, true, inputRate);
    EXPECT_TRUE(handler.Convert(in, out));
    if (const float* samples = out.GetData(false, true)) {
      output.insert(output.end(), samples, samples + out.GetSampleCount());
    }
    out.ReleaseData();
  }
  return output;
}

struct Trip {
  uint32_t rate;
  uint32_t internalRate;
};
constexpr Trip kTrips[] = {{44100, 48000}, {48000, 44100}};

}  // namespace

TEST(ZORResampleQuality, RoundTripIsFlatWithinAFifthOfADecibelTo16kHz) {
  for (const Trip& trip : kTrips) {
    for (double tone : {20.0, 100.0, 1000.0, 5000.0, 10000.0, 14000.0, 16000.0}) {
      const std::vector<float> input = velapo::test::Sine(trip.rate / 2, 2, tone, trip.rate);
      const std::vector<float> output = RoundTrip(input, trip.rate, trip.internalRate);
      const ToneFit fit = FitTone(output, 2, 0, tone, trip.rate);
      EXPECT_NEAR(Db(fit.amplitude / kAmplitude), 0.0, 0.2)
          << tone << " Hz at " << trip.rate << " via " << trip.internalRate;
      // Nor does any tone of the band pick up more than the 1 kHz one may.
      EXPECT_LE(ResidualDb(fit), kLimitDb) << tone << " Hz at " << trip.rate;
    }
  }
}

// One way at a time: up, whatever the fit of an in-band tone leaves is
// images folded back; down, a tone above 22.05 kHz has no place in the
// output and must be gone, while one in the band comes through clean.
TEST(ZORResampleQuality, ImagesUpAndAliasesDownStayBelowMinus95dB) {
  struct Case {
    uint32_t from, to;
    double tone;
  };
  const Case cases[] = {{44100, 48000, 1000.0},  {44100, 48000, 10000.0}, {44100, 48000, 20000.0},
                        {48000, 44100, 1000.0},  {48000, 44100, 16000.0}, {48000, 44100, 22100.0},
                        {48000, 44100, 23000.0}, {48000, 44100, 23900.0}};
  for (const Case& c : cases) {
    const std::vector<float> output = OneWay(velapo::test::Sine(c.from / 2, 2, c.tone, c.from), c.from, c.to);
    if (c.tone < c.to / 2) {
      EXPECT_LE(ResidualDb(FitTone(output, 2, 0, c.tone, c.to)), kLimitDb) << c.tone << " Hz";
      continue;
    }
    double energy = 0.0;
    const size_t frames = output.size() / 2;
    for (size_t f = kStartUpFrames; f < frames; ++f) energy += static_cast<double>(output[f * 2]) * output[f * 2];
    const double rms = std::sqrt(energy / static_cast<double>(frames - kStartUpFrames));
    EXPECT_LE(Db(rms / (kAmplitude / std::numbers::sqrt2)), kLimitDb) << c.tone << " Hz";
  }
}
