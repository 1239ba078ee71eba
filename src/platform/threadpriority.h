#pragma once
// Raises the calling thread's priority for a scope and puts it back after, so
// that work the engine waits for on its configuration thread (building
// chains at a lock) is over quickly. Windows takes the level as it stands
// (15 is time-critical). POSIX has no per-thread nice level an unprivileged
// process may raise: the thread asks for real-time scheduling, which only a
// privileged host gets; otherwise nothing changes. Whatever was changed is
// undone by the destructor, on the same thread.

namespace zor::os {

class ThreadPriorityBoost {
 public:
  explicit ThreadPriorityBoost(int level);
  ~ThreadPriorityBoost();
  ThreadPriorityBoost(const ThreadPriorityBoost&) = delete;
  ThreadPriorityBoost& operator=(const ThreadPriorityBoost&) = delete;

  // The system took the new priority (and the destructor will undo it).
  bool Raised() const { return m_raised; }
  // The calling thread's level as this class sets it: the Windows priority,
  // or the POSIX scheduling priority (0 under the default policy).
  static int CurrentLevel();
  // Called first on every thread this library starts: a POSIX thread inherits
  // the real-time scheduling of the thread that started it (say one boosted
  // at a lock), and a worker at real-time priority would preempt the host's
  // audio thread. Windows threads always start at normal priority.
  static void StartAtNormalPriority();

 private:
  bool m_raised = false;
  int m_savedPolicy = 0;
  int m_savedLevel = 0;
};

}  // namespace zor::os
