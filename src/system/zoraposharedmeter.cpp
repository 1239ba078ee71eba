#include "system/zoraposharedmeter.h"

#include <algorithm>

#include "core/zorlog.h"
#include "platform/text.h"
#include "system/zorapoendpointinfo.h"

ZORAPOSharedMeter::~ZORAPOSharedMeter() {
  m_mutex.Close();
  ZORSharedMemory::Close();
}

std::u16string ZORAPOSharedMeter::BlockName(std::u16string_view displayName, uint32_t index) {
  std::u16string name = u"Global\\ZOR_";
  name += displayName;
  name += u"_Meter_";
  name += zor::os::NarrowToWide(std::to_string(index));
  return name;
}

void ZORAPOSharedMeter::BuildName(const ZORAPOEndpointInfo& info, uint32_t index,
                                  std::u16string& name) {
  name = BlockName(info.GetDisplayName(), index);
}

bool ZORAPOSharedMeter::OpenCreate(const ZORAPOEndpointInfo& info, uint32_t index) {
  std::u16string name;
  BuildName(info, index, name);
  return OpenCreateNamed(name);
}

bool ZORAPOSharedMeter::OpenCreateNamed(std::u16string_view blockName) {
  if (!Create(blockName, kBlockSize, false)) return false;
  if (m_pView == nullptr && (MapView() == nullptr || GetSize() < kBlockSize)) {
    Close();
    return false;
  }
  // A meter reopened under another name (another endpoint) must share the
  // mutex of its new block's readers, not keep the one it left.
  const std::u16string mutexName = std::u16string(blockName) + std::u16string(kMutexSuffix);
  if (!m_mutex.IsOpen() || mutexName != m_mutexName) {
    m_mutex.Close();
    m_mutexName = mutexName;
    if (m_mutex.Create(mutexName) == zor::os::NamedMutex::OpenStatus::AccessDenied) {
      ZOR_LOG("Access denied acquiring mutex during create.\n");
      m_mutex.OpenExisting(mutexName);
    }
  }
  return m_pView != nullptr && m_mutex.IsOpen();
}

bool ZORAPOSharedMeter::IsOpen() const { return m_pView != nullptr; }

bool ZORAPOSharedMeter::TakeMutex(uint32_t timeoutMs) {
  const zor::os::NamedMutex::WaitResult result = m_mutex.Wait(timeoutMs);
  if (result == zor::os::NamedMutex::WaitResult::Abandoned) m_mutex.Release();
  return result == zor::os::NamedMutex::WaitResult::Acquired;
}

bool ZORAPOSharedMeter::ReadWrite(std::vector<float>& levels, bool read) {
  return read ? Read(levels) : Write(levels);
}

// audio thread
bool ZORAPOSharedMeter::Write(std::span<const float> levels) {
  if (m_pView == nullptr || !m_mutex.IsOpen() || !TakeMutex(0)) return false;
  auto* block = static_cast<float*>(m_pView);
  for (size_t i = 0; i < kChannelCount; ++i) {
    if (i < levels.size()) {
      // The block keeps its level only if it is strictly larger.
      if (!(block[i] > levels[i])) block[i] = levels[i];
    } else {
      block[i] = 0.0f;
    }
  }
  m_mutex.Release();
  return true;
}

bool ZORAPOSharedMeter::Read(std::vector<float>& levels) {
  if (m_pView == nullptr || !m_mutex.IsOpen()) {
    std::fill(levels.begin(), levels.end(), 0.0f);
    return false;
  }
  if (!TakeMutex(kReadWaitMs)) return false;
  auto* block = static_cast<float*>(m_pView);
  levels.assign(block, block + kChannelCount);
  std::fill(block, block + kChannelCount, 0.0f);  // a new measuring period
  m_mutex.Release();
  return true;
}
