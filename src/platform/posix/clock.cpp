#include "platform/clock.h"

#include <time.h>

namespace zor::os {

namespace {
constexpr int64_t kTicksPerSecond = 10000000;  // 100 ns ticks
}  // namespace

bool QueryCounter(int64_t& value) {
  timespec now{};
  if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) return false;
  value = static_cast<int64_t>(now.tv_sec) * kTicksPerSecond + now.tv_nsec / 100;
  return true;
}

bool QueryFrequency(int64_t& value) {
  value = kTicksPerSecond;
  return true;
}

}  // namespace zor::os
