#pragma once

#include <cstdint>

namespace zor::os {

// A monotonic counter and its ticks per second (Windows: the performance
// counter; POSIX: CLOCK_MONOTONIC in units of 100 ns, frequency 10 MHz, the
// frequency Windows reports on current machines). The stale-stream test works
// on the low 32 bits of the counter and wraps a product of it, so its reach
// depends on the frequency: at 1 GHz no gap would ever read above 4 ms, and
// at 10 MHz both platforms detect the same stalls. False only when the
// platform fails to answer. Any thread, the audio thread included.
bool QueryCounter(int64_t& value);
bool QueryFrequency(int64_t& value);

}  // namespace zor::os
