#pragma once

#include <cstdint>

namespace zor::os {

// A monotonic counter and its ticks per second (Windows: the performance
// counter; POSIX: CLOCK_MONOTONIC in nanoseconds, frequency 1e9). False only
// when the platform fails to answer. Any thread, the audio thread included.
bool QueryCounter(int64_t& value);
bool QueryFrequency(int64_t& value);

}  // namespace zor::os
