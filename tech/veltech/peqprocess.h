#pragma once
// peq: a parametric equaliser of ten bands and a preamp.
//
// Controls: "PEQ-Preamp" in hundredths of a dB; per band n from 1 to 10
// "PEQ-Band<n> Enable" (Disabled/Enabled), "PEQ-Band<n> Type" (Peak, Low
// Shelf, High Shelf, Low Pass, High Pass, Notch), "PEQ-Band<n> Frequency"
// in Hz, "PEQ-Band<n> Gain" in hundredths of a dB (peak and shelves) and
// "PEQ-Band<n> Q" in hundredths.
//
// Frequency, gain and Q glide (frequency and Q on a logarithmic scale) and
// the coefficients follow every 32 frames while they do. Switching a band on
// or off fades it in or out; changing its type fades it out, swaps the
// section and fades it back in, so nothing clicks.

#include <vector>

#include "biquad.h"
#include "linearramp.h"
#include "techprocess.h"

namespace veltech {

class PeqProcess : public TechProcess {
 public:
  static constexpr size_t kBands = 10;
  // Controls of band b (0-based) are at BandControl(b, field).
  enum BandField : size_t { kEnable, kType, kFrequency, kGain, kQ, kFieldCount };
  static constexpr size_t kPreamp = 0;
  static constexpr size_t BandControl(size_t band, BandField field) {
    return 1 + band * kFieldCount + field;
  }
  // Frames between coefficient updates while a band glides.
  static constexpr uint32_t kUpdateFrames = 32;

  static const ControlTable& Table();

  PeqProcess() : TechProcess(Table()) {}

 protected:
  bool Prepare(uint32_t channels, uint32_t sampleRate) override;
  void Run(float* const* channels, uint32_t count, uint32_t frames) override;
  void TakeState(const TechProcess& other) override;

 private:
  struct Band {
    FilterType type = FilterType::Peak;  // of the running section
    LinearRamp logFrequency;             // log2 of Hz
    LinearRamp gainDb;
    LinearRamp logQ;                     // log2 of Q
    LinearRamp mix;                      // 0 bypassed, 1 fully in
    BiquadCoefficients coefficients;
  };
  struct BandTargets {
    bool enabled = false;
    FilterType type = FilterType::Peak;
    double logFrequency = 0.0;
    double gainDb = 0.0;
    double logQ = 0.0;
  };
  // The raw control values the targets were worked out from, so that the
  // logarithms are taken only when a value changes.
  struct BandControls {
    int32_t values[kFieldCount] = {-1, -1, -1, -1, -1};
    BandTargets targets;
  };

  const BandTargets& ReadBand(size_t band);
  double ReadPreamp();
  void StartBand(size_t band, const BandTargets& targets);
  void SteerBand(size_t band, const BandTargets& targets);
  void UpdateCoefficients(Band& band) const;
  void ResetStates(size_t band);
  void RunStretch(float* const* channels, uint32_t count, uint32_t offset, uint32_t frames);

  Band m_bands[kBands];
  BandControls m_seen[kBands];
  LinearRamp m_preamp;
  int32_t m_seenPreamp = 1;  // outside the range: read afresh
  double m_preampGain = 1.0;
  // Filter memories, band-major: band b, channel c at b * channels + c.
  std::vector<BiquadState> m_states;
  uint32_t m_glideSteps = 1;  // coefficient updates per glide
};

}  // namespace veltech
