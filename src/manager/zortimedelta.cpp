#include "manager/zortimedelta.h"

#include "platform/clock.h"

namespace {

class ZORSystemClock final : public IZORPerformanceClock {
 public:
  bool QueryCounter(int64_t& counter) override { return zor::os::QueryCounter(counter); }
  bool QueryFrequency(int64_t& frequency) override { return zor::os::QueryFrequency(frequency); }
};

}  // namespace

IZORPerformanceClock& IZORPerformanceClock::System() {
  static ZORSystemClock clock;
  return clock;
}

bool TimeDelta::Start(IZORPerformanceClock& clock) {
  int64_t now = 0;
  int64_t ticksPerSecond = 0;
  if (!clock.QueryCounter(now) || !clock.QueryFrequency(ticksPerSecond)) {
    return false;
  }
  counter = now;
  frequency = ticksPerSecond;
  return true;
}

bool ZORElapsedMilliseconds32(int64_t now, int64_t then, int64_t frequency, uint32_t& milliseconds) {
  const uint32_t divisor = static_cast<uint32_t>(frequency);
  if (divisor == 0) {
    return false;
  }
  const uint32_t ticks = static_cast<uint32_t>(now) - static_cast<uint32_t>(then);
  const float product = static_cast<float>(ticks) * 1000.0f;
  const uint32_t wrapped = static_cast<uint32_t>(static_cast<int64_t>(product));
  milliseconds = wrapped / divisor;
  return true;
}
