#include "values/zorpropertysetsharedmem.h"

#include <cstring>
#include <vector>

#include "core/zorlog.h"
#include "platform/littleendian.h"

ZORPropertySetSharedMem::~ZORPropertySetSharedMem() {
  ZORPropertySetSharedMem::Close();
  m_mutex.Close();
}

bool ZORPropertySetSharedMem::Close() { return ZORSharedMemory::Close(); }

void ZORPropertySetSharedMem::SetPropertySet(ZORPropertySet* set) { m_pSet = set; }

bool ZORPropertySetSharedMem::Open(std::u16string_view name, uint32_t size) {
  m_name.clear();
  ZORSharedMemory::Close();
  if (!Create(name, size == 0 ? kDefaultSize : size, false)) return false;
  if (MapView() == nullptr || GetSize() < kLengthFieldSize) {
    ZORSharedMemory::Close();
    return false;
  }
  m_name = name;
  AcquireMutex();
  return true;
}

void ZORPropertySetSharedMem::AcquireMutex() {
  const std::u16string mutexName = m_name + std::u16string(kMutexSuffix);
  // A set moved to another block (tuned settings follow the mode) must lock
  // that block's writers out, not the ones of the block it left.
  if (m_mutex.IsOpen() && mutexName == m_mutexName) return;
  m_mutex.Close();
  m_mutexName = mutexName;
  if (m_mutex.Create(mutexName) == zor::os::NamedMutex::OpenStatus::AccessDenied) {
    ZOR_LOG("Access denied acquiring mutex during create.\n");
    m_mutex.OpenExisting(mutexName);
  }
}

const std::u16string& ZORPropertySetSharedMem::GetName() const { return m_name; }

bool ZORPropertySetSharedMem::IsOpen() const { return m_pView != nullptr; }

bool ZORPropertySetSharedMem::WaitForMutex() {
  const zor::os::NamedMutex::WaitResult result = m_mutex.Wait(kMutexWaitMs);
  if (result == zor::os::NamedMutex::WaitResult::Abandoned) m_mutex.Release();
  return result == zor::os::NamedMutex::WaitResult::Acquired;
}

uint32_t ZORPropertySetSharedMem::ReadBlock(std::span<const uint8_t> block, ZORPropertySet& set,
                                            bool merge, bool overwriteExisting, bool addNew) {
  if (block.size() < kLengthFieldSize) return ZOR_SHM_ERROR_PARSE;
  // L is read once: another process may change the block under a reader
  // that keeps to the mutex, if it does not.
  const uint32_t length = zor::os::LoadLe32(block.data());
  if (length == 0) return 0;
  if (length > block.size() - kLengthFieldSize) return ZOR_SHM_ERROR_PARSE;
  const std::vector<uint8_t> blob(block.begin() + kLengthFieldSize,
                                  block.begin() + kLengthFieldSize + length);
  if (merge) {
    set.MergePropertiesBinary(blob, overwriteExisting, addNew);
    return 0;
  }
  set.ClearAllProperties();
  return set.SetAllPropertiesBinary(blob) ? 0 : ZOR_SHM_ERROR_PARSE;
}

uint32_t ZORPropertySetSharedMem::Read(bool merge, bool overwriteExisting, bool addNew) {
  if (!WaitForMutex()) return ZOR_SHM_ERROR_MUTEX;
  // Only a Read after Close gets here. The mutex stays owned by this thread,
  // as it always has: the caller holds it until its thread ends.
  if (m_pView == nullptr) return ZOR_SHM_ERROR_NO_VIEW;
  uint32_t status = 0;
  if (m_pSet != nullptr) {
    status = ReadBlock({static_cast<const uint8_t*>(m_pView), GetSize()}, *m_pSet, merge,
                       overwriteExisting, addNew);
  }
  m_mutex.Release();
  return status;
}

uint32_t ZORPropertySetSharedMem::Write() {
  if (!WaitForMutex()) return ZOR_SHM_ERROR_MUTEX;
  if (m_pSet == nullptr) {
    m_mutex.Release();
    return 0;
  }
  std::vector<uint8_t> blob;
  m_pSet->GetAllPropertiesBinary(blob);  // an entry with an empty value is left out
  if (GetSize() < kLengthFieldSize || blob.size() > GetSize() - kLengthFieldSize) {
    m_mutex.Release();
    return ZOR_SHM_ERROR_TOO_LARGE;
  }
  if (m_pView == nullptr) return ZOR_SHM_ERROR_NO_VIEW;  // held, as in Read
  auto* block = static_cast<uint8_t*>(m_pView);
  zor::os::StoreLe32(block, static_cast<uint32_t>(blob.size()));
  if (!blob.empty()) std::memcpy(block + kLengthFieldSize, blob.data(), blob.size());
  m_mutex.Release();
  return 0;
}
