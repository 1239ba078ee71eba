#pragma once
// gain: a level in decibels and a mute, both gliding.
//
// Controls: "Gain-Level" in hundredths of a dB (-120.00 to +24.00),
// "Gain-Mute" Disabled/Enabled.

#include "linearramp.h"
#include "techprocess.h"

namespace veltech {

class GainProcess : public TechProcess {
 public:
  enum ControlIndex : size_t { kLevel, kMute };
  static const ControlTable& Table();

  GainProcess() : TechProcess(Table()) {}

 protected:
  bool Prepare(uint32_t channels, uint32_t sampleRate) override;
  void Run(float* const* channels, uint32_t count, uint32_t frames) override;
  void TakeState(const TechProcess& other) override;

 private:
  double TargetGain() const;

  LinearRamp m_gain;
};

}  // namespace veltech
