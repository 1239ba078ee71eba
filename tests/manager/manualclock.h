#pragma once
// A millisecond clock the test moves by hand, and by `step` at every reading
// too. Atomic: the manager's worker reads it, so a test declares it before
// the manager, which stops its worker on the way out.
#include <atomic>
#include <cstdint>

#include "manager/zortimedelta.h"

namespace velapo::test {

class ManualClock : public IZORPerformanceClock {
 public:
  explicit ManualClock(int64_t step = 0) : m_step(step) {}
  bool QueryCounter(int64_t& counter) override { return (counter = m_counter += m_step), true; }
  bool QueryFrequency(int64_t& frequency) override { return (frequency = 1000), true; }
  void Advance(int64_t milliseconds) { m_counter += milliseconds; }

 private:
  std::atomic<int64_t> m_counter{1000000};
  const int64_t m_step;
};

}  // namespace velapo::test
