#include "limiterprocess.h"

#include <algorithm>
#include <cmath>

namespace veltech {

const ControlTable& LimiterProcess::Table() {
  static const ControlTable table({
      {"Limiter-Threshold", -4000, 0, -100, VELTECH_UNIT_HUNDREDTHS, {}},
      {"Limiter-Release", 1, 2000, 100, VELTECH_UNIT_PLAIN, {}},
      {"Limiter-Input Gain", 0, 2400, 0, VELTECH_UNIT_HUNDREDTHS, {}},
  });
  return table;
}

bool LimiterProcess::Prepare(uint32_t channels, uint32_t sampleRate) {
  m_lookAhead = std::max<uint32_t>(1, static_cast<uint32_t>(std::lround(kLookAheadSeconds * sampleRate)));
  m_window = m_lookAhead + 1;
  m_delay.assign(static_cast<size_t>(channels) * m_window, 0.0f);
  m_average.assign(m_window, 1.0);
  m_held.assign(m_window, Held{1.0, 0});
  m_heldFront = 0;
  m_heldCount = 0;
  m_position = 0;
  m_frame = 0;
  m_sum = m_window;
  m_released = 1.0;
  m_seenThreshold = 1;  // outside the range: read afresh
  m_seenRelease = 0;
  m_inputGain.Snap(1.0);
  return true;
}

// audio thread
double LimiterProcess::HoldMinimum(double wanted) {
  // Ring positions wrap by comparison: a division per frame would cost more
  // than the rest of the limiter.
  const auto wrap = [this](size_t position) { return position >= m_window ? position - m_window : position; };
  // Drop what has left the window, frames older than m_window - 1, first:
  // the ring then always has room for the new entry.
  while (m_heldCount > 0 && m_held[m_heldFront].frame + m_window <= m_frame) {
    m_heldFront = wrap(m_heldFront + 1);
    --m_heldCount;
  }
  // Gains at least as large as the new one can never be the minimum again.
  while (m_heldCount > 0 && m_held[wrap(m_heldFront + m_heldCount - 1)].gain >= wanted) --m_heldCount;
  m_held[wrap(m_heldFront + m_heldCount)] = Held{wanted, m_frame};
  ++m_heldCount;
  return m_held[m_heldFront].gain;
}

// audio thread
void LimiterProcess::Run(float* const* channels, uint32_t count, uint32_t frames) {
  const int32_t threshold = Control(kThreshold);
  if (threshold != m_seenThreshold) {
    m_seenThreshold = threshold;
    m_threshold = std::pow(10.0, threshold / 2000.0);
  }
  const int32_t release = Control(kRelease);
  if (release != m_seenRelease) {
    m_seenRelease = release;
    m_releaseCoefficient = 1.0 - std::exp(-1000.0 / (release * static_cast<double>(SampleRate())));
  }
  const double inputGain = std::pow(10.0, Control(kInputGain) / 2000.0);
  if (TakeStartFlag()) {
    m_inputGain.Snap(inputGain);
  } else {
    m_inputGain.SetTarget(inputGain, GlideFrames());
  }

  const double invWindow = 1.0 / m_window;
  for (uint32_t i = 0; i < frames; ++i) {
    const double drive = m_inputGain.Next();
    double peak = 0.0;
    for (uint32_t c = 0; c < count; ++c) {
      const auto driven = static_cast<float>(channels[c][i] * drive);
      m_delay[static_cast<size_t>(c) * m_window + m_position] = driven;
      peak = std::max(peak, static_cast<double>(std::fabs(driven)));
    }
    // A channel the host left out of this block is silence here, so that
    // its delay line never holds audio the gain didn't see.
    for (uint32_t c = count; c < Channels(); ++c) m_delay[static_cast<size_t>(c) * m_window + m_position] = 0.0f;
    const double wanted = peak > m_threshold ? m_threshold / peak : 1.0;
    const double held = HoldMinimum(wanted);
    m_released = held < m_released ? held : m_released + (held - m_released) * m_releaseCoefficient;
    m_sum += m_released - m_average[m_position];
    m_average[m_position] = m_released;
    const double gain = m_sum * invWindow;

    const uint32_t oldest = m_position + 1 == m_window ? 0 : m_position + 1;
    for (uint32_t c = 0; c < count; ++c) {
      channels[c][i] = static_cast<float>(m_delay[static_cast<size_t>(c) * m_window + oldest] * gain);
    }
    m_position = oldest;
    ++m_frame;
    // A running sum gathers rounding; start it afresh once per lap.
    if (m_position == 0) {
      m_sum = 0.0;
      for (double g : m_average) m_sum += g;
    }
  }
}

// audio thread
void LimiterProcess::TakeState(const TechProcess& other) {
  const auto& source = static_cast<const LimiterProcess&>(other);
  std::copy(source.m_delay.begin(), source.m_delay.end(), m_delay.begin());
  std::copy(source.m_average.begin(), source.m_average.end(), m_average.begin());
  std::copy(source.m_held.begin(), source.m_held.end(), m_held.begin());
  m_heldFront = source.m_heldFront;
  m_heldCount = source.m_heldCount;
  m_position = source.m_position;
  m_frame = source.m_frame;
  m_sum = source.m_sum;
  m_released = source.m_released;
  m_inputGain = source.m_inputGain;
}

}  // namespace veltech
