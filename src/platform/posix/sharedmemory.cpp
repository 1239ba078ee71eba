#include "platform/sharedmemory.h"

#include <sys/mman.h>

#include <algorithm>

#include "platform/posix/sharedobject.h"

namespace zor::os {

struct SharedMemory::State {
  posix::SharedObjectHolder holder;
  uint32_t usableSize = 0;
  void* view = nullptr;
};

SharedMemory::SharedMemory() : m_state(std::make_unique<State>()) {}

SharedMemory::~SharedMemory() { Close(); }

SharedMemory::OpenStatus SharedMemory::Open(std::u16string_view name, uint32_t size) {
  Close();
  // The holder zero-fills a new block by setting its size from nothing.
  switch (m_state->holder.Open(posix::SharedObjectName(name, "m"), size, true)) {
    case posix::SharedObjectHolder::Outcome::Created:
      m_state->usableSize = size;
      return OpenStatus::Created;
    case posix::SharedObjectHolder::Outcome::Opened:
      m_state->usableSize =
          static_cast<uint32_t>(std::min<size_t>(size, m_state->holder.FileSize()));
      return OpenStatus::Opened;
    default:
      return OpenStatus::Failed;
  }
}

bool SharedMemory::Exists(std::u16string_view name) {
  return posix::SharedObjectHolder::Exists(posix::SharedObjectName(name, "m"));
}

bool SharedMemory::IsOpen() const { return m_state->holder.IsHeld(); }

void* SharedMemory::Map() {
  if (m_state->view != nullptr || !m_state->holder.IsHeld()) return m_state->view;
  void* view = ::mmap(nullptr, m_state->usableSize, PROT_READ | PROT_WRITE, MAP_SHARED,
                      m_state->holder.Descriptor(), 0);
  m_state->view = view == MAP_FAILED ? nullptr : view;
  return m_state->view;
}

void SharedMemory::Unmap() {
  if (m_state->view == nullptr) return;
  ::munmap(m_state->view, m_state->usableSize);
  m_state->view = nullptr;
}

void* SharedMemory::View() const { return m_state->view; }

uint32_t SharedMemory::UsableSize() const { return m_state->usableSize; }

void SharedMemory::Close() {
  Unmap();
  m_state->holder.Close();
  m_state->usableSize = 0;
}

}  // namespace zor::os
