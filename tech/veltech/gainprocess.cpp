#include "gainprocess.h"

#include <algorithm>
#include <cmath>

namespace veltech {

const ControlTable& GainProcess::Table() {
  static const ControlTable table({
      {"Gain-Level", -12000, 2400, 0, VELTECH_UNIT_HUNDREDTHS, {}},
      {"Gain-Mute", 0, 1, 0, VELTECH_UNIT_PLAIN, OnOffNames()},
  });
  return table;
}

bool GainProcess::Prepare(uint32_t, uint32_t) {
  m_gain.Snap(TargetGain());
  return true;
}

double GainProcess::TargetGain() const {
  if (Control(kMute) != 0) return 0.0;
  return std::pow(10.0, Control(kLevel) / 2000.0);
}

// audio thread
void GainProcess::Run(float* const* channels, uint32_t count, uint32_t frames) {
  if (TakeStartFlag()) {
    m_gain.Snap(TargetGain());
  } else {
    m_gain.SetTarget(TargetGain(), GlideFrames());
  }
  // While gliding, work in short stretches so that one row of gains serves
  // every channel; once the glide ends, the rest is one constant.
  constexpr uint32_t kStretch = 64;
  float gains[kStretch];
  uint32_t done = 0;
  for (; done < frames && m_gain.IsGliding(); done += kStretch) {
    const uint32_t n = std::min(kStretch, frames - done);
    m_gain.Fill(gains, n);
    for (uint32_t c = 0; c < count; ++c) {
      float* samples = channels[c] + done;
      for (uint32_t i = 0; i < n; ++i) samples[i] *= gains[i];
    }
  }
  const auto gain = static_cast<float>(m_gain.Value());
  if (done >= frames || gain == 1.0f) return;
  for (uint32_t c = 0; c < count; ++c) {
    float* samples = channels[c];
    for (uint32_t i = done; i < frames; ++i) samples[i] *= gain;
  }
}

// audio thread
void GainProcess::TakeState(const TechProcess& other) {
  m_gain = static_cast<const GainProcess&>(other).m_gain;
}

}  // namespace veltech
