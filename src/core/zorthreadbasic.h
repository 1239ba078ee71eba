#pragma once

#include <cstdint>

#include "platform/event.h"
#include "platform/thread.h"

class ZORThreadBasic;

// A background activity run by ZORThreadBasic.
class IZORThreadBasicWorker {
 public:
  virtual ~IZORThreadBasicWorker() = default;
  // On the worker thread. Returns once stopEvent is signalled, or earlier by
  // its own decision; true gives the thread exit code 1, false 0xFFFFFFFF.
  virtual bool Run(ZORThreadBasic& thread, zor::os::Event& stopEvent) = 0;
};

// The one thread wrapper: owns a thread and a manual-reset stop event, and
// runs a worker until told to stop. Start and Stop belong to the owner's
// thread; the object has no lock. Owners stop it first thing in their
// destructor, before they destroy anything the worker uses.
//
// No thread outlives its Stop. Workers use their owner (the manager's chains
// and events, a property set's `this`), so a Stop that returned while the
// worker still ran would hand it freed memory. Windows kills a worker that
// ignores the stop event for the whole wait; POSIX has no safe way to kill a
// thread, so there Stop logs that the wait ran out and goes on waiting until
// the worker ends: a stop that returns late beats one that returns early.
class ZORThreadBasic {
 public:
  static constexpr uint32_t kDefaultStopWaitMs = 5000;
  static constexpr uint32_t kExitRunSucceeded = 1;
  static constexpr uint32_t kExitRunFailed = 0xFFFFFFFFu;

  ZORThreadBasic();
  // Stops with the default wait.
  virtual ~ZORThreadBasic();
  ZORThreadBasic(const ZORThreadBasic&) = delete;
  ZORThreadBasic& operator=(const ZORThreadBasic&) = delete;

  // A non-null worker replaces the stored one; null keeps it. Resets the stop
  // event and starts the thread. False when the thread could not be started,
  // when no worker is stored (Stop forgets it), or when a thread is still
  // held: call Stop first.
  virtual bool Start(IZORThreadBasicWorker* worker);
  // Signals the stop event and waits up to waitMs (0: kDefaultStopWaitMs) for
  // the thread to end. A thread that does not end in time is killed where the
  // platform can (its exit code then reads kExitRunFailed) and waited for to
  // the end where it cannot (see above). Then the thread and the worker are
  // forgotten. The stop event stays signalled until the next Start. Called by
  // the worker itself it only sets the stop event, since it cannot wait for
  // its own end.
  virtual void Stop(uint32_t waitMs = 0);

  bool IsStarted() const { return m_thread.Holds(); }   // between Start and Stop
  bool IsRunning() const { return m_thread.Running(); } // and Run has not returned
  uint32_t ThreadId() const { return m_thread.Id(); }   // 0 when not started
  // Exit code of the last thread that ended (1, or 0xFFFFFFFF); 0 before.
  uint32_t ExitCode() const { return m_thread.ExitCode(); }
  zor::os::Event& StopEvent() { return m_stopEvent; }

 private:
  static unsigned RunWorker(void* self);

  zor::os::Event m_stopEvent{zor::os::EventReset::Manual, false};
  zor::os::Thread m_thread;
  IZORThreadBasicWorker* m_pWorker = nullptr;
};
