#pragma once
// crossfeed: lets each ear of a headphone hear the other channel a little,
// low-passed and slightly late, as it would from speakers, on the first two
// channels.
//
// Controls: "Crossfeed-Enable" (Disabled/Enabled), "Crossfeed-Feed" in
// hundredths of a dB: how much louder the near ear stays than the far one at
// low frequencies (1.00 to 15.00 dB; smaller is stronger), "Crossfeed-Cutoff"
// in Hz: where the fed signal starts to fall off.
//
// Each output is its own channel minus the low-passed share that is fed
// across, plus the other channel's low-passed share. A centred (mono) signal
// thus comes out as it went in, while a hard-panned one reaches the far ear
// in the bass, delayed by the low-pass's own group delay (about 0.2 ms at
// the default cutoff, near the delay between the ears). All parameters
// glide; other channels pass untouched.

#include "linearramp.h"
#include "techprocess.h"

namespace veltech {

class CrossfeedProcess : public TechProcess {
 public:
  enum ControlIndex : size_t { kEnable, kFeed, kCutoff };
  static constexpr uint32_t kUpdateFrames = 32;

  static const ControlTable& Table();

  CrossfeedProcess() : TechProcess(Table()) {}

 protected:
  bool Prepare(uint32_t channels, uint32_t sampleRate) override;
  void Run(float* const* channels, uint32_t count, uint32_t frames) override;
  void TakeState(const TechProcess& other) override;

 private:
  double TargetShare() const;
  double TargetLogCutoff() const;
  double LowPassCoefficient() const;

  LinearRamp m_share;      // the share of each channel fed across, 0 when off
  LinearRamp m_logCutoff;  // log2 of Hz, stepped every kUpdateFrames
  uint32_t m_glideSteps = 1;
  double m_lowLeft = 0.0;  // one-pole low-pass memories
  double m_lowRight = 0.0;
};

}  // namespace veltech
