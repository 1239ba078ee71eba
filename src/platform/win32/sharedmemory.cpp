#include "platform/sharedmemory.h"

#include <windows.h>

#include <algorithm>
#include <string>

#include "platform/text.h"

namespace zor::os {
namespace {

// A null DACL: every account may open the object, as a service and a
// desktop program must both reach it.
struct OpenToEveryone {
  SECURITY_DESCRIPTOR descriptor{};
  SECURITY_ATTRIBUTES attributes{};
  OpenToEveryone() {
    ::InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    ::SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE);
    attributes.nLength = sizeof(attributes);
    attributes.lpSecurityDescriptor = &descriptor;
    attributes.bInheritHandle = FALSE;
  }
};

}  // namespace

struct SharedMemory::State {
  HANDLE mapping = nullptr;
  uint32_t usableSize = 0;
  void* view = nullptr;
};

SharedMemory::SharedMemory() : m_state(std::make_unique<State>()) {}

SharedMemory::~SharedMemory() { Close(); }

SharedMemory::OpenStatus SharedMemory::Open(std::u16string_view name, uint32_t size) {
  Close();
  if (size == 0) return OpenStatus::Failed;
  OpenToEveryone security;
  const std::u16string terminated(name);
  // The paging file zero-fills a new section.
  HANDLE mapping = ::CreateFileMappingW(INVALID_HANDLE_VALUE, &security.attributes, PAGE_READWRITE,
                                        0, size, AsWinChars(terminated.c_str()));
  if (mapping == nullptr) return OpenStatus::Failed;
  const bool existed = ::GetLastError() == ERROR_ALREADY_EXISTS;
  m_state->mapping = mapping;
  m_state->usableSize = size;
  return existed ? OpenStatus::Opened : OpenStatus::Created;
}

bool SharedMemory::Exists(std::u16string_view name) {
  // Opening, not creating, so that a look leaves nothing behind.
  const std::u16string terminated(name);
  HANDLE mapping = ::OpenFileMappingW(FILE_MAP_READ, FALSE, AsWinChars(terminated.c_str()));
  if (mapping != nullptr) {
    ::CloseHandle(mapping);
    return true;
  }
  return ::GetLastError() == ERROR_ACCESS_DENIED;  // there, but not for us
}

bool SharedMemory::IsOpen() const { return m_state->mapping != nullptr; }

void* SharedMemory::Map() {
  if (m_state->view != nullptr || m_state->mapping == nullptr) return m_state->view;
  void* view = ::MapViewOfFile(m_state->mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0);
  if (view == nullptr) return nullptr;
  // A section made smaller by another opener maps smaller: use no more.
  MEMORY_BASIC_INFORMATION region{};
  if (::VirtualQuery(view, &region, sizeof(region)) == 0) {
    ::UnmapViewOfFile(view);
    return nullptr;
  }
  m_state->usableSize =
      static_cast<uint32_t>(std::min<SIZE_T>(m_state->usableSize, region.RegionSize));
  m_state->view = view;
  return view;
}

void SharedMemory::Unmap() {
  if (m_state->view == nullptr) return;
  ::UnmapViewOfFile(m_state->view);
  m_state->view = nullptr;
}

void* SharedMemory::View() const { return m_state->view; }

uint32_t SharedMemory::UsableSize() const { return m_state->usableSize; }

void SharedMemory::Close() {
  Unmap();
  if (m_state->mapping != nullptr) ::CloseHandle(m_state->mapping);
  m_state->mapping = nullptr;
  m_state->usableSize = 0;
}

}  // namespace zor::os
