#include "platform/threadpriority.h"

#include <pthread.h>
#include <sched.h>

#include <algorithm>

namespace zor::os {

ThreadPriorityBoost::ThreadPriorityBoost(int level) {
  sched_param saved{};
  if (pthread_getschedparam(pthread_self(), &m_savedPolicy, &saved) != 0) return;
  m_savedLevel = saved.sched_priority;
  sched_param raised{};
  raised.sched_priority = std::clamp(level, sched_get_priority_min(SCHED_FIFO), sched_get_priority_max(SCHED_FIFO));
  // EPERM for an unprivileged process: best effort, so nothing to undo.
  m_raised = pthread_setschedparam(pthread_self(), SCHED_FIFO, &raised) == 0;
}

int ThreadPriorityBoost::CurrentLevel() {
  int policy = 0;
  sched_param param{};
  return pthread_getschedparam(pthread_self(), &policy, &param) == 0 ? param.sched_priority : 0;
}

void ThreadPriorityBoost::StartAtNormalPriority() {
  int policy = 0;
  sched_param param{};
  if (pthread_getschedparam(pthread_self(), &policy, &param) != 0 || policy == SCHED_OTHER) return;
  param.sched_priority = 0;
  pthread_setschedparam(pthread_self(), SCHED_OTHER, &param);  // lowering is always allowed
}

ThreadPriorityBoost::~ThreadPriorityBoost() {
  if (!m_raised) return;
  sched_param saved{};
  saved.sched_priority = m_savedLevel;
  pthread_setschedparam(pthread_self(), m_savedPolicy, &saved);
}

}  // namespace zor::os
