#include "platform/thread.h"

#include <process.h>
#include <windows.h>

namespace zor::os {

struct Thread::State {
  HANDLE handle = nullptr;
  uint32_t id = 0;
};

namespace {

struct StartRecord {
  ThreadEntry entry;
  void* arg;
};

// The runtime's thread start wants its own calling convention.
unsigned __stdcall RunThread(void* startRecord) {
  const StartRecord start = *static_cast<StartRecord*>(startRecord);
  delete static_cast<StartRecord*>(startRecord);
  return start.entry(start.arg);
}

}  // namespace

uint32_t CurrentThreadId() { return ::GetCurrentThreadId(); }

Thread::Thread() = default;

Thread::~Thread() {
  // A thread still running goes on unowned; only our handle goes.
  if (m_state) ::CloseHandle(m_state->handle);
}

bool Thread::Start(ThreadEntry entry, void* arg) {
  if (m_state || entry == nullptr) return false;
  auto* start = new StartRecord{entry, arg};
  unsigned id = 0;
  // Created suspended and resumed once its handle and id are stored, so that
  // the thread itself may ask this object for them.
  const uintptr_t handle = ::_beginthreadex(nullptr, 0, RunThread, start, CREATE_SUSPENDED, &id);
  if (handle == 0) {
    delete start;
    return false;
  }
  m_state = std::make_shared<State>();
  m_state->handle = reinterpret_cast<HANDLE>(handle);
  m_state->id = id;
  ::ResumeThread(m_state->handle);
  return true;
}

bool Thread::Join(uint32_t timeoutMs) {
  if (!m_state) return true;
  if (::WaitForSingleObject(m_state->handle, timeoutMs) != WAIT_OBJECT_0) return false;
  DWORD exitCode = 0;
  if (::GetExitCodeThread(m_state->handle, &exitCode)) m_lastExitCode = exitCode;
  ::CloseHandle(m_state->handle);
  m_state.reset();
  return true;
}

bool Thread::Terminate(uint32_t exitCode) {
  if (!m_state) return true;
  // Whatever the thread holds stays held; this is the last resort for a
  // thread that ignored every request to end.
  ::TerminateThread(m_state->handle, exitCode);
  ::WaitForSingleObject(m_state->handle, INFINITE);
  ::CloseHandle(m_state->handle);
  m_lastExitCode = exitCode;
  m_state.reset();
  return true;
}

bool Thread::Holds() const { return m_state != nullptr; }

uint32_t Thread::Id() const { return m_state ? m_state->id : 0; }

bool Thread::Running() const {
  return m_state && ::WaitForSingleObject(m_state->handle, 0) == WAIT_TIMEOUT;
}

uint32_t Thread::ExitCode() const {
  if (m_state && !Running()) {
    DWORD exitCode = 0;
    if (::GetExitCodeThread(m_state->handle, &exitCode)) return exitCode;
  }
  return m_lastExitCode;
}

}  // namespace zor::os
