#include "platform/criticalsection.h"

#include <mutex>

namespace zor::os {

struct CriticalSection::State {
  std::recursive_mutex mutex;
};

CriticalSection::CriticalSection() : m_state(std::make_unique<State>()) {}
CriticalSection::~CriticalSection() = default;

void CriticalSection::Lock() {
  m_state->mutex.lock();
  ++detail::t_criticalSectionEntries;
}
bool CriticalSection::TryLock() {
  const bool locked = m_state->mutex.try_lock();
  detail::t_criticalSectionEntries += locked ? 1 : 0;
  return locked;
}
void CriticalSection::Unlock() { m_state->mutex.unlock(); }

}  // namespace zor::os
