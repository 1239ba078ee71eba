#include "crossfeedprocess.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace veltech {

const ControlTable& CrossfeedProcess::Table() {
  static const ControlTable table({
      {"Crossfeed-Enable", 0, 1, 1, VELTECH_UNIT_PLAIN, OnOffNames()},
      {"Crossfeed-Feed", 100, 1500, 450, VELTECH_UNIT_HUNDREDTHS, {}},
      {"Crossfeed-Cutoff", 300, 2000, 700, VELTECH_UNIT_PLAIN, {}},
  });
  return table;
}

// The share c fed across makes the near ear (1 - c) and the far ear c at
// low frequencies; their ratio is the feed in dB.
double CrossfeedProcess::TargetShare() const {
  if (Control(kEnable) == 0) return 0.0;
  return 1.0 / (1.0 + std::pow(10.0, Control(kFeed) / 2000.0));
}

double CrossfeedProcess::TargetLogCutoff() const { return std::log2(static_cast<double>(Control(kCutoff))); }

double CrossfeedProcess::LowPassCoefficient() const {
  return 1.0 - std::exp(-2.0 * std::numbers::pi * std::exp2(m_logCutoff.Value()) / SampleRate());
}

bool CrossfeedProcess::Prepare(uint32_t, uint32_t sampleRate) {
  m_lowLeft = 0.0;
  m_lowRight = 0.0;
  m_glideSteps = (GlideFramesAt(sampleRate) + kUpdateFrames - 1) / kUpdateFrames;
  m_share.Snap(TargetShare());
  m_logCutoff.Snap(TargetLogCutoff());
  return true;
}

// audio thread
void CrossfeedProcess::Run(float* const* channels, uint32_t count, uint32_t frames) {
  if (TakeStartFlag()) {
    m_share.Snap(TargetShare());
    m_logCutoff.Snap(TargetLogCutoff());
  } else {
    m_share.SetTarget(TargetShare(), GlideFrames());
    m_logCutoff.SetTarget(TargetLogCutoff(), m_glideSteps);
  }
  if (count < 2) return;
  float* left = channels[0];
  float* right = channels[1];
  double coefficient = LowPassCoefficient();
  for (uint32_t i = 0; i < frames; ++i) {
    if (i % kUpdateFrames == 0 && m_logCutoff.IsGliding()) {
      m_logCutoff.Next();
      coefficient = LowPassCoefficient();
    }
    const double share = m_share.Next();
    const double l = left[i];
    const double r = right[i];
    m_lowLeft += coefficient * (l - m_lowLeft);
    m_lowRight += coefficient * (r - m_lowRight);
    left[i] = static_cast<float>(l + share * (m_lowRight - m_lowLeft));
    right[i] = static_cast<float>(r + share * (m_lowLeft - m_lowRight));
  }
  // The memories follow the signal; keep a silent tail from going denormal.
  if (std::fabs(m_lowLeft) < 1e-30) m_lowLeft = 0.0;
  if (std::fabs(m_lowRight) < 1e-30) m_lowRight = 0.0;
}

// audio thread
void CrossfeedProcess::TakeState(const TechProcess& other) {
  const auto& source = static_cast<const CrossfeedProcess&>(other);
  m_share = source.m_share;
  m_logCutoff = source.m_logCutoff;
  m_lowLeft = source.m_lowLeft;
  m_lowRight = source.m_lowRight;
}

}  // namespace veltech
