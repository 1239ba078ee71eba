#include "system/zorfindmutex.h"

#include <utility>

#include "platform/namedmutex.h"

ZORFindMutex::~ZORFindMutex() { Stop(); }

void ZORFindMutex::Configure(std::u16string name, uint32_t pollMs) {
  m_name = std::move(name);
  m_pollMs = pollMs;
}

bool ZORFindMutex::Start(IZORFindMutexNotify* notify) {
  m_thread.Stop(0);
  m_state = kStateUnknown;
  m_pNotify = notify;
  Check(false);
  return m_thread.Start(this);
}

void ZORFindMutex::Stop() {
  m_thread.Stop(0);
  m_pNotify = nullptr;
  m_state = kStateUnknown;
}

bool ZORFindMutex::IsPresent() { return Check(true) == kNowPresent; }

uint32_t ZORFindMutex::Check(bool force) {
  if (force) {
    m_state = kStateUnknown;
  }
  // Denied counts as present: a mutex this account may not open exists.
  const bool present = zor::os::NamedMutex::Probe(m_name) != zor::os::NamedMutex::Presence::Absent;
  const int32_t now = present ? kStatePresent : kStateAbsent;
  if (m_state.exchange(now) == now) {
    return kNoChange;
  }
  if (IZORFindMutexNotify* notify = m_pNotify.load()) {
    notify->OnMutexChanged(*this, present);
  }
  return static_cast<uint32_t>(now);
}

bool ZORFindMutex::Run(ZORThreadBasic& /*thread*/, zor::os::Event& stopEvent) {
  while (!stopEvent.Wait(m_pollMs)) {
    Check(false);
  }
  return true;
}
