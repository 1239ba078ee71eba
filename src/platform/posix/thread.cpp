#include "platform/thread.h"

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

#include "platform/event.h"
#include "platform/threadpriority.h"

namespace zor::os {

// Co-owned by the Thread object and the thread itself, so that a thread
// left running by a destroyed Thread never touches freed memory.
struct Thread::State {
  ThreadEntry entry = nullptr;
  void* arg = nullptr;
  std::thread thread;  // touched by the owner only

  std::mutex mutex;
  std::condition_variable changed;
  uint32_t id = 0;         // guarded by mutex
  bool ended = false;      // guarded by mutex
  uint32_t exitCode = 0;   // guarded by mutex
};

namespace {

void RunThread(const std::shared_ptr<Thread::State>& state) {
  ThreadPriorityBoost::StartAtNormalPriority();
  {
    const std::lock_guard<std::mutex> lock(state->mutex);
    state->id = CurrentThreadId();
  }
  state->changed.notify_all();
  const unsigned exitCode = state->entry(state->arg);
  {
    const std::lock_guard<std::mutex> lock(state->mutex);
    state->exitCode = exitCode;
    state->ended = true;
  }
  state->changed.notify_all();
}

}  // namespace

uint32_t CurrentThreadId() { return static_cast<uint32_t>(::gettid()); }

Thread::Thread() = default;

Thread::~Thread() {
  if (!m_state) return;
  bool ended = false;
  {
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    ended = m_state->ended;
  }
  if (ended) {
    m_state->thread.join();
  } else {
    m_state->thread.detach();
  }
}

bool Thread::Start(ThreadEntry entry, void* arg) {
  if (m_state || entry == nullptr) return false;
  // Published before the thread runs, so that the thread itself may ask this
  // object for its id.
  m_state = std::make_shared<State>();
  m_state->entry = entry;
  m_state->arg = arg;
  try {
    m_state->thread = std::thread(RunThread, m_state);
  } catch (const std::system_error&) {
    m_state.reset();
    return false;
  }
  // The id is the kernel's, known only once the thread runs; it is there
  // within microseconds.
  std::unique_lock<std::mutex> lock(m_state->mutex);
  m_state->changed.wait(lock, [this] { return m_state->id != 0; });
  return true;
}

bool Thread::Join(uint32_t timeoutMs) {
  if (!m_state) return true;
  {
    std::unique_lock<std::mutex> lock(m_state->mutex);
    const auto ended = [this] { return m_state->ended; };
    if (timeoutMs == kInfinite) {
      m_state->changed.wait(lock, ended);
    } else if (!m_state->changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), ended)) {
      return false;
    }
    m_lastExitCode = m_state->exitCode;
  }
  m_state->thread.join();  // the entry has returned; this only reaps the thread
  m_state.reset();
  return true;
}

bool Thread::Terminate(uint32_t exitCode) {
  if (!m_state) return true;
  bool ended = false;
  {
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    ended = m_state->ended;
  }
  // A thread that has not ended stays held: POSIX can't kill it safely.
  if (!ended) return false;
  m_state->thread.join();
  m_lastExitCode = exitCode;
  m_state.reset();
  return true;
}

bool Thread::Holds() const { return m_state != nullptr; }

uint32_t Thread::Id() const {
  if (!m_state) return 0;
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  return m_state->id;
}

bool Thread::Running() const {
  if (!m_state) return false;
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  return !m_state->ended;
}

uint32_t Thread::ExitCode() const {
  if (m_state) {
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    if (m_state->ended) return m_state->exitCode;
  }
  return m_lastExitCode;
}

}  // namespace zor::os
