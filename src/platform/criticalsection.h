#pragma once

#include <cstdint>
#include <memory>

namespace zor::os {

namespace detail {
inline thread_local uint64_t t_criticalSectionEntries = 0;
}  // namespace detail

// A recursive lock: the thread that holds it may lock it again and must unlock
// it as often. Any thread.
class CriticalSection {
 public:
  CriticalSection();
  ~CriticalSection();
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

  void Lock();
  bool TryLock();
  void Unlock();

  // Lock and successful TryLock calls the calling thread has made on any
  // critical section, so that tests and benchmarks can pin how often the
  // audio thread takes a lock (counted, not assumed). Any thread.
  static uint64_t EntriesOnThisThread() { return detail::t_criticalSectionEntries; }

 private:
  struct State;  // defined by the back end
  std::unique_ptr<State> m_state;
};

}  // namespace zor::os
