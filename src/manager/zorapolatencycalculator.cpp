#include "manager/zorapolatencycalculator.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>
#include <vector>

#include "audio/zorapoprocesschain.h"
#include "audio/zorapoworkspace.h"
#include "core/zorlog.h"
#include "platform/registry.h"

namespace {

constexpr uint32_t kKeyAccess =
    zor::os::kKeyQueryValue | zor::os::kKeySetValue | zor::os::kKeyWow64_64Key;
constexpr std::array<uint32_t, 4> kCandidateLayouts = {kZORLayoutMono, kZORLayoutStereo,
                                                       kZORLayout51, kZORLayout71};

bool ReadQword(const zor::os::RegKey& key, std::u16string_view name, uint64_t& value) {
  zor::os::RegType type = zor::os::RegType::None;
  std::vector<uint8_t> data;
  return key.ReadValue(name, type, data) == zor::os::RegStatus::Ok &&
         ZORAPOLatencyCalculator::ParseQword(type, data, value);
}

void WriteQword(const zor::os::RegKey& key, std::u16string_view name, uint64_t value) {
  std::array<uint8_t, sizeof(uint64_t)> data{};
  for (size_t i = 0; i < data.size(); ++i) {
    data[i] = static_cast<uint8_t>(value >> (8 * i));
  }
  key.WriteValue(name, zor::os::RegType::Qword, data);
}

}  // namespace

bool ZORAPOLatencyCalculator::ParseQword(zor::os::RegType type, std::span<const uint8_t> data,
                                         uint64_t& value) {
  if (type != zor::os::RegType::Qword || data.size() != sizeof(uint64_t)) {
    return false;
  }
  value = 0;
  for (size_t i = 0; i < sizeof(uint64_t); ++i) {
    value |= static_cast<uint64_t>(data[i]) << (8 * i);
  }
  return true;
}

uint64_t ZORAPOLatencyCalculator::FileStamp(const std::u16string& path) {
  std::error_code error;
  const std::filesystem::path file(path);
  if (path.empty() || !std::filesystem::is_regular_file(file, error)) {
    return 0;
  }
  const auto written = std::filesystem::last_write_time(file, error);
  if (error) {
    return 0;
  }
  return static_cast<uint64_t>(written.time_since_epoch().count());
}

bool ZORAPOLatencyCalculator::Calculate(const ZORAPOEndpointInfo& endpoint,
                                        const ZORAPOConfigurationFile::ModeList& modes,
                                        uint32_t rate) {
  m_result = 0;
  m_constructions = 0;
  zor::os::RegKey key;
  const bool keyOpen = zor::os::RegKey::Open(endpoint.GetSettingsKeyPath(), kKeyAccess, key) ==
                       zor::os::RegStatus::Ok;
  const uint64_t cacheId = FileStamp(endpoint.GetConfigPath());

  uint64_t cachedId = 0;
  uint64_t cached = 0;
  if (keyOpen && ReadQword(key, kCacheIdName, cachedId) && cachedId != 0 &&
      cachedId == cacheId && ReadQword(key, kLatencyName, cached)) {
    m_result = cached;
    return true;
  }

  // One chain for all candidates: each build resets it, and its minimum
  // latency stays 0, so each reports its natural latency.
  ZORAPOProcessChain chain;
  ZORAPOWorkspace workspace;
  workspace.endpoint = endpoint;
  workspace.sampleRate = rate;
  bool built = false;
  for (const auto& mode : modes) {
    if (mode == nullptr) {
      continue;
    }
    for (const uint32_t input : kCandidateLayouts) {
      for (const uint32_t output : kCandidateLayouts) {
        workspace.mode = *mode;
        workspace.inputLayout = input;
        workspace.outputLayout = output;
        ++m_constructions;
        if (chain.ConstructChain(workspace, kCandidateLocation) && chain.IsBuilt()) {
          built = true;
          m_result = std::max(m_result, chain.GetLatencyTime());
        }
      }
    }
  }
  if (built && keyOpen) {
    WriteQword(key, kCacheIdName, cacheId);
    WriteQword(key, kLatencyName, m_result);
  }
  ZOR_LOG("VELAPOLatencyCalculator::Calculate - %d chains, latency = %f\n",
          static_cast<int>(m_constructions), static_cast<double>(m_result) / 1e8);
  return built;
}
