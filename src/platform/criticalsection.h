#pragma once

#include <memory>

namespace zor::os {

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

 private:
  struct State;  // defined by the back end
  std::unique_ptr<State> m_state;
};

}  // namespace zor::os
