#include "platform/criticalsection.h"

#include <windows.h>

namespace zor::os {

struct CriticalSection::State {
  CRITICAL_SECTION section;
};

CriticalSection::CriticalSection() : m_state(std::make_unique<State>()) {
  ::InitializeCriticalSection(&m_state->section);
}

CriticalSection::~CriticalSection() { ::DeleteCriticalSection(&m_state->section); }

void CriticalSection::Lock() {
  ::EnterCriticalSection(&m_state->section);
  ++detail::t_criticalSectionEntries;
}
bool CriticalSection::TryLock() {
  const bool locked = ::TryEnterCriticalSection(&m_state->section) != FALSE;
  detail::t_criticalSectionEntries += locked ? 1 : 0;
  return locked;
}
void CriticalSection::Unlock() { ::LeaveCriticalSection(&m_state->section); }

}  // namespace zor::os
