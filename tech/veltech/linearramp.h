#pragma once
// A parameter that glides to a new value along a straight line instead of
// jumping, so that changes made while audio runs don't click. Each change
// starts a fresh line from wherever the value stands, over the full ramp
// length, so no step is ever larger than the distance to go divided by the
// ramp length. Audio thread, except Snap while the process isn't running.

#include <cstdint>

namespace veltech {

class LinearRamp {
 public:
  // Jumps to `value` and stops gliding.
  void Snap(double value) {
    m_value = value;
    m_target = value;
    m_remaining = 0;
  }
  // Glides to `target` over `steps` calls of Next; 0 steps jumps. A target
  // already being approached keeps its line.
  void SetTarget(double target, uint32_t steps) {
    if (target == m_target && (m_remaining > 0 || m_value == target)) return;
    if (steps == 0) {
      Snap(target);
      return;
    }
    m_target = target;
    m_step = (target - m_value) / steps;
    m_remaining = steps;
  }
  // Advances one step and returns the new value.
  double Next() {
    if (m_remaining > 0) {
      // The last step lands exactly, whatever rounding the line gathered.
      m_value = --m_remaining == 0 ? m_target : m_value + m_step;
    }
    return m_value;
  }
  // Writes the next `count` values.
  void Fill(float* out, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) out[i] = static_cast<float>(Next());
  }
  bool IsGliding() const { return m_remaining > 0; }
  double Value() const { return m_value; }
  double Target() const { return m_target; }

 private:
  double m_value = 0.0;
  double m_target = 0.0;
  double m_step = 0.0;
  uint32_t m_remaining = 0;
};

}  // namespace veltech
