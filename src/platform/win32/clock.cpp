#include "platform/clock.h"

#include <windows.h>

namespace zor::os {

bool QueryCounter(int64_t& value) {
  LARGE_INTEGER counter;
  if (!::QueryPerformanceCounter(&counter)) return false;
  value = counter.QuadPart;
  return true;
}

bool QueryFrequency(int64_t& value) {
  LARGE_INTEGER frequency;
  if (!::QueryPerformanceFrequency(&frequency)) return false;
  value = frequency.QuadPart;
  return true;
}

}  // namespace zor::os
