#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace zor::os {

inline constexpr uint32_t kInfinite = 0xFFFFFFFFu;
inline constexpr int32_t kWaitTimeout = -1;
// Most events one WaitAny accepts, as the kernel's multi-wait allows.
inline constexpr size_t kMaxWaitEvents = 64;

enum class EventReset { Auto, Manual };

// A kernel-style event. An auto-reset event is consumed by the one wait that
// sees it signalled; a manual-reset event stays signalled until Reset.
// Any thread may call any operation. Set, Reset and Wait(0) never block, so
// the audio thread may poll and signal: on POSIX they are atomic operations,
// and Set only takes the event's internal lock for the moment it needs to wake
// a thread that is blocked in a wait on this event.
class Event {
 public:
  explicit Event(EventReset reset, bool initiallySignalled = false);
  ~Event();
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  void Set();
  void Reset();
  // True when the event was signalled within timeoutMs (kInfinite waits for
  // ever); consumes an auto-reset event. Time-outs run on the monotonic clock.
  bool Wait(uint32_t timeoutMs);
  bool IsManualReset() const;

#if defined(_WIN32)
  // The kernel event handle, for waits that mix our events with other handles.
  void* NativeHandle() const;
#endif

  struct State;  // defined by the back end

 private:
  friend int32_t WaitAny(Event* const* events, size_t count, uint32_t timeoutMs);
  std::unique_ptr<State> m_state;
};

// Waits until one of `events` is signalled and returns the lowest signalled
// index, consuming only that event if it is auto-reset; kWaitTimeout when
// none was signalled in time. count must be 1..kMaxWaitEvents and no entry may
// be null; anything else returns kWaitTimeout at once. Any thread; with a zero
// time-out it never blocks.
int32_t WaitAny(Event* const* events, size_t count, uint32_t timeoutMs);

}  // namespace zor::os
