#pragma once
#include <cstdint>

// Where the manager reads the time. The system clock is the default; tests
// and hosts that replay audio faster than real time put their own in.
class IZORPerformanceClock {
 public:
  virtual ~IZORPerformanceClock() = default;
  virtual bool QueryCounter(int64_t& counter) = 0;
  virtual bool QueryFrequency(int64_t& frequency) = 0;

  // The platform's performance counter; shared, stateless.
  static IZORPerformanceClock& System();
};

// A stopwatch: a counter value and the counter's frequency.
struct TimeDelta {
  int64_t counter = 0;
  int64_t frequency = 0;

  // Takes the time; false when the clock failed, leaving the stopwatch as it was.
  bool Start(IZORPerformanceClock& clock);
};

// Milliseconds from `then` to `now` in the engine's 32-bit arithmetic: the low
// 32 bits of both counter values are subtracted, the difference times 1000.0
// in single precision is truncated to its low 32 bits and divided by the low
// 32 bits of the frequency. The product wraps, so with a 10 MHz counter a gap
// of 500 ms reads as 70 ms; stale detection and the worker's rate limit are
// tuned to exactly this reading. False when the frequency's low 32 bits are 0.
bool ZORElapsedMilliseconds32(int64_t now, int64_t then, int64_t frequency, uint32_t& milliseconds);
