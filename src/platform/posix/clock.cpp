#include "platform/clock.h"

#include <time.h>

namespace zor::os {

bool QueryCounter(int64_t& value) {
  timespec now{};
  if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) return false;
  value = static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
  return true;
}

bool QueryFrequency(int64_t& value) {
  value = 1000000000;
  return true;
}

}  // namespace zor::os
