#pragma once
// limiter: a look-ahead peak limiter, linked across all channels.
//
// Controls: "Limiter-Threshold" in hundredths of a dB (-40.00 to 0.00),
// "Limiter-Release" in ms, "Limiter-Input Gain" in hundredths of a dB
// (gliding).
//
// The audio is delayed by a look-ahead of 5 ms. For each frame the gain
// that would keep it at the threshold is held as a minimum over the
// look-ahead window, released exponentially, and averaged over the same
// window. A peak's own gain is in every term of the average that meets it,
// so the output never exceeds the threshold, and the gain reaches it along a
// smooth 5 ms curve rather than a step.
//
// It asks the host for blocks of 256 frames and reports the look-ahead as
// its latency.

#include <vector>

#include "linearramp.h"
#include "techprocess.h"

namespace veltech {

class LimiterProcess : public TechProcess {
 public:
  enum ControlIndex : size_t { kThreshold, kRelease, kInputGain };
  static constexpr uint32_t kBlockFrames = 256;
  static constexpr double kLookAheadSeconds = 0.005;

  static const ControlTable& Table();

  LimiterProcess() : TechProcess(Table()) {}

  uint32_t GetBlockSize() const override { return kBlockFrames; }
  // The look-ahead in frames; 0 before Init.
  uint32_t GetLatency() const override { return m_lookAhead; }

 protected:
  bool Prepare(uint32_t channels, uint32_t sampleRate) override;
  void Run(float* const* channels, uint32_t count, uint32_t frames) override;
  void TakeState(const TechProcess& other) override;

 private:
  struct Held {
    double gain;
    uint64_t frame;
  };

  // Keeps the window's minimum of the wanted gains: a queue of rising gains
  // whose front is the minimum. Audio thread.
  double HoldMinimum(double wanted);

  uint32_t m_lookAhead = 0;  // frames the audio is delayed
  uint32_t m_window = 0;     // look-ahead + 1: the frames a peak's gain is held and averaged over
  std::vector<float> m_delay;       // channel c at c * m_window, ring at m_position
  std::vector<double> m_average;    // released gains of the window, ring at m_position
  std::vector<Held> m_held;         // ring of m_window entries
  size_t m_heldFront = 0;
  size_t m_heldCount = 0;
  uint32_t m_position = 0;
  uint64_t m_frame = 0;
  double m_sum = 0.0;       // sum of m_average
  double m_released = 1.0;  // the released gain of the last frame
  LinearRamp m_inputGain;
  int32_t m_seenThreshold = 1;
  int32_t m_seenRelease = 0;
  double m_threshold = 1.0;
  double m_releaseCoefficient = 0.0;
};

}  // namespace veltech
