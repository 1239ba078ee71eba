#pragma once

#include "platform/criticalsection.h"

// Holds a critical section for a scope: locks on construction, unlocks in the
// destructor if still held, so an early return or an exception never leaves
// the section locked. Lock and Unlock in between keep track of the flag, so
// neither takes or releases the section twice. Used by one thread at a time.
class ZORScopedLock {
 public:
  explicit ZORScopedLock(zor::os::CriticalSection& section) : m_pSection(&section) { Lock(); }
  ~ZORScopedLock() { Unlock(); }
  ZORScopedLock(const ZORScopedLock&) = delete;
  ZORScopedLock& operator=(const ZORScopedLock&) = delete;

  void Lock() {
    if (!m_bHeld) {
      m_pSection->Lock();
      m_bHeld = true;
    }
  }
  void Unlock() {
    if (m_bHeld) {
      m_bHeld = false;
      m_pSection->Unlock();
    }
  }
  bool IsHeld() const { return m_bHeld; }

 private:
  zor::os::CriticalSection* m_pSection;
  bool m_bHeld = false;
};
