#include "platform/threadpriority.h"

#include <windows.h>

namespace zor::os {

ThreadPriorityBoost::ThreadPriorityBoost(int level) {
  m_savedLevel = ::GetThreadPriority(::GetCurrentThread());
  if (m_savedLevel == THREAD_PRIORITY_ERROR_RETURN) return;
  m_raised = ::SetThreadPriority(::GetCurrentThread(), level) != 0;
}

int ThreadPriorityBoost::CurrentLevel() { return ::GetThreadPriority(::GetCurrentThread()); }

void ThreadPriorityBoost::StartAtNormalPriority() {}

ThreadPriorityBoost::~ThreadPriorityBoost() {
  if (m_raised) ::SetThreadPriority(::GetCurrentThread(), m_savedLevel);
}

}  // namespace zor::os
