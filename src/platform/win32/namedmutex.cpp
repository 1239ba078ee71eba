#include "platform/namedmutex.h"

#include <windows.h>

#include <string>

#include "platform/text.h"

namespace zor::os {

struct NamedMutex::State {
  HANDLE handle = nullptr;
};

NamedMutex::NamedMutex() : m_state(std::make_unique<State>()) {}

NamedMutex::~NamedMutex() { Close(); }

NamedMutex::OpenStatus NamedMutex::Create(std::u16string_view name) {
  Close();
  SECURITY_DESCRIPTOR descriptor{};
  ::InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
  ::SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE);  // every account
  SECURITY_ATTRIBUTES attributes{sizeof(attributes), &descriptor, FALSE};
  const std::u16string terminated(name);
  m_state->handle = ::CreateMutexW(&attributes, FALSE, AsWinChars(terminated.c_str()));
  if (m_state->handle != nullptr) return OpenStatus::Ok;
  return ::GetLastError() == ERROR_ACCESS_DENIED ? OpenStatus::AccessDenied : OpenStatus::Failed;
}

NamedMutex::OpenStatus NamedMutex::OpenExisting(std::u16string_view name) {
  Close();
  const std::u16string terminated(name);
  m_state->handle = ::OpenMutexW(MUTEX_ALL_ACCESS, FALSE, AsWinChars(terminated.c_str()));
  if (m_state->handle != nullptr) return OpenStatus::Ok;
  return ::GetLastError() == ERROR_ACCESS_DENIED ? OpenStatus::AccessDenied : OpenStatus::Failed;
}

bool NamedMutex::IsOpen() const { return m_state->handle != nullptr; }

NamedMutex::Presence NamedMutex::Probe(std::u16string_view name) {
  // The least access there is (query state): an account that may not even
  // query is told ERROR_ACCESS_DENIED, which proves the mutex exists.
  constexpr DWORD kQueryState = 0x0001;
  const std::u16string terminated(name);
  const HANDLE handle = ::OpenMutexW(kQueryState, FALSE, AsWinChars(terminated.c_str()));
  if (handle != nullptr) {
    ::CloseHandle(handle);
    return Presence::Present;
  }
  return ::GetLastError() == ERROR_ACCESS_DENIED ? Presence::Denied : Presence::Absent;
}

NamedMutex::WaitResult NamedMutex::Wait(uint32_t timeoutMs) {
  if (m_state->handle == nullptr) return WaitResult::Failed;
  switch (::WaitForSingleObject(m_state->handle, timeoutMs)) {
    case WAIT_OBJECT_0:
      return WaitResult::Acquired;
    case WAIT_ABANDONED:
      return WaitResult::Abandoned;
    case WAIT_TIMEOUT:
      return WaitResult::TimedOut;
    default:
      return WaitResult::Failed;
  }
}

void NamedMutex::Release() {
  if (m_state->handle != nullptr) ::ReleaseMutex(m_state->handle);
}

void NamedMutex::Close() {
  if (m_state->handle != nullptr) ::CloseHandle(m_state->handle);
  m_state->handle = nullptr;
}

}  // namespace zor::os
