#pragma once

#include <cstdint>
#include <memory>

namespace zor::os {

using ThreadEntry = unsigned (*)(void* arg);

// The id of the calling thread as the OS knows it (the kernel thread id on
// Linux), the same number Thread::Id gives for that thread. Any thread.
uint32_t CurrentThreadId();

// One OS thread at the platform's default stack size. The object is owned by
// one thread, which alone calls Start, Join and Terminate; the started thread
// may also call Holds, Id and Running on it while it runs.
//
// A Thread holds its thread from Start until Join has seen it end or until
// Terminate; while it holds one, Start refuses to start another. Destroying a
// Thread that still holds a running thread lets that thread run on unowned.
class Thread {
 public:
  Thread();
  ~Thread();
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  // Runs entry(arg) on a new thread; false when the thread could not be made
  // or this object already holds one.
  bool Start(ThreadEntry entry, void* arg);
  // Waits up to timeoutMs (kInfinite: for ever) for the thread to end. True
  // when it has ended or there is none; then the thread is released, and
  // ExitCode keeps its exit code.
  bool Join(uint32_t timeoutMs);
  // Kills a thread that will not end, where the platform can: Windows kills
  // it, the object is free again and ExitCode reads exitCode, and the result
  // is true. POSIX has no safe way to kill a thread: a thread still running
  // stays held and the result is false, so that the caller can Join it.
  bool Terminate(uint32_t exitCode);

  bool Holds() const;       // a thread was started and not yet released
  uint32_t Id() const;      // 0 while no thread is held
  bool Running() const;     // a held thread whose entry has not returned
  // The entry's result once the thread has ended (also after Join), or the
  // code given to Terminate; 0 before any thread ended.
  uint32_t ExitCode() const;

  struct State;  // defined by the back end

 private:
  std::shared_ptr<State> m_state;
  uint32_t m_lastExitCode = 0;
};

}  // namespace zor::os
