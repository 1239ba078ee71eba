#include "values/zorsharedmemory.h"

ZORSharedMemory::~ZORSharedMemory() { ZORSharedMemory::Close(); }

bool ZORSharedMemory::Create(std::u16string_view name, uint32_t size, bool probeOnly) {
  if (m_mapping.IsOpen()) return true;
  if (probeOnly) return Exists(name);
  // A new block comes zero-filled from the platform, before any other
  // process can see it, so there is nothing to clear here; an opener of an
  // existing block never clears it.
  if (m_mapping.Open(name, size) == zor::os::SharedMemory::OpenStatus::Failed) return false;
  m_size = m_mapping.UsableSize();
  return true;
}

bool ZORSharedMemory::Close() {
  m_mapping.Close();
  m_pView = nullptr;
  return true;
}

void* ZORSharedMemory::MapView() {
  m_pView = m_mapping.Map();
  m_size = m_mapping.IsOpen() ? m_mapping.UsableSize() : m_size;
  return m_pView;
}

bool ZORSharedMemory::Exists(std::u16string_view name) { return zor::os::SharedMemory::Exists(name); }
