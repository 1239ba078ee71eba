#include "platform/criticalsection.h"

#include <mutex>

namespace zor::os {

struct CriticalSection::State {
  std::recursive_mutex mutex;
};

CriticalSection::CriticalSection() : m_state(std::make_unique<State>()) {}
CriticalSection::~CriticalSection() = default;

void CriticalSection::Lock() { m_state->mutex.lock(); }
bool CriticalSection::TryLock() { return m_state->mutex.try_lock(); }
void CriticalSection::Unlock() { m_state->mutex.unlock(); }

}  // namespace zor::os
