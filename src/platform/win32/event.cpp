#include "platform/event.h"

#include <windows.h>

namespace zor::os {

struct Event::State {
  HANDLE handle = nullptr;
  bool manual = false;
};

Event::Event(EventReset reset, bool initiallySignalled) : m_state(std::make_unique<State>()) {
  m_state->manual = reset == EventReset::Manual;
  m_state->handle = ::CreateEventW(nullptr, m_state->manual ? TRUE : FALSE,
                                   initiallySignalled ? TRUE : FALSE, nullptr);
}

Event::~Event() {
  if (m_state->handle != nullptr) ::CloseHandle(m_state->handle);
}

void Event::Set() { ::SetEvent(m_state->handle); }

void Event::Reset() { ::ResetEvent(m_state->handle); }

bool Event::Wait(uint32_t timeoutMs) {
  return ::WaitForSingleObject(m_state->handle, timeoutMs) == WAIT_OBJECT_0;
}

bool Event::IsManualReset() const { return m_state->manual; }

void* Event::NativeHandle() const { return m_state->handle; }

int32_t WaitAny(Event* const* events, size_t count, uint32_t timeoutMs) {
  static_assert(kMaxWaitEvents == MAXIMUM_WAIT_OBJECTS);
  if (events == nullptr || count == 0 || count > kMaxWaitEvents) return kWaitTimeout;
  HANDLE handles[kMaxWaitEvents];
  for (size_t i = 0; i < count; ++i) handles[i] = events[i]->m_state->handle;
  const DWORD result = ::WaitForMultipleObjects(static_cast<DWORD>(count), handles, FALSE, timeoutMs);
  if (result >= WAIT_OBJECT_0 && result < WAIT_OBJECT_0 + count) {
    return static_cast<int32_t>(result - WAIT_OBJECT_0);
  }
  return kWaitTimeout;
}

}  // namespace zor::os
