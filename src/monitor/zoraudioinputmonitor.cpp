#include "monitor/izoraudioinputmonitor.h"

bool IZORAudioInputMonitor::CanChangeState(uint32_t from, uint32_t to) {
  if (from == to || from == kNotInitialised) return true;
  switch (from) {
    case kOpen:
      return to == kClosed || to == kRunning || to == kStopped;
    case kClosed:
      return to == kOpen;
    case kRunning:
      return to == kStopped;
    case kStopped:
      return to == kClosed || to == kRunning;
    default:
      return false;
  }
}
