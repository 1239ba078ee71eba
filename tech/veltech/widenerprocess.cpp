#include "widenerprocess.h"

namespace veltech {

const ControlTable& WidenerProcess::Table() {
  static const ControlTable table({
      {"Widener-Width", 0, 200, 100, VELTECH_UNIT_PLAIN, {}},
  });
  return table;
}

bool WidenerProcess::Prepare(uint32_t, uint32_t) {
  m_width.Snap(Control(kWidth) / 100.0);
  return true;
}

// audio thread
void WidenerProcess::Run(float* const* channels, uint32_t count, uint32_t frames) {
  const double width = Control(kWidth) / 100.0;
  if (TakeStartFlag()) {
    m_width.Snap(width);
  } else {
    m_width.SetTarget(width, GlideFrames());
  }
  if (count < 2) return;
  if (!m_width.IsGliding() && m_width.Value() == 1.0) return;
  float* left = channels[0];
  float* right = channels[1];
  for (uint32_t i = 0; i < frames; ++i) {
    const auto w = static_cast<float>(m_width.Next());
    const float mid = 0.5f * (left[i] + right[i]);
    const float side = 0.5f * (left[i] - right[i]) * w;
    left[i] = mid + side;
    right[i] = mid - side;
  }
}

// audio thread
void WidenerProcess::TakeState(const TechProcess& other) {
  m_width = static_cast<const WidenerProcess&>(other).m_width;
}

}  // namespace veltech
