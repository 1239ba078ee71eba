#include "engine/zorengineendpoint.h"

#include <vector>

#include "platform/registry.h"
#include "system/zorapoendpointinfo.h"

namespace {

// The configuration path property of an endpoint.
constexpr std::u16string_view kConfigurationProperty = u"{7A8B74C8-FA66-4460-8542-D6119C59E9D4},2";

std::vector<uint8_t> TextBytes(std::u16string_view text) {
  std::vector<uint8_t> bytes;
  for (const char16_t unit : text) {
    bytes.push_back(static_cast<uint8_t>(unit));
    bytes.push_back(static_cast<uint8_t>(unit >> 8));
  }
  bytes.insert(bytes.end(), 2, 0);
  return bytes;
}

void DeleteTree(const std::u16string& path) {
  const size_t slash = path.rfind(u'\\');
  zor::os::RegKey parent;
  if (zor::os::RegKey::Open(path.substr(0, slash), zor::os::kKeyAllAccess, parent) == zor::os::RegStatus::Ok) {
    parent.DeleteSubKeyTree(path.substr(slash + 1));
  }
}

}  // namespace

ZOREngineEndpoint::ZOREngineEndpoint(std::u16string guid, const std::filesystem::path& configuration, bool render)
    : m_guid(std::move(guid)),
      m_endpointKey(std::u16string(ZORAPOEndpointInfo::kMMDevicesAudioPath) + (render ? u"Render\\" : u"Capture\\") +
                    m_guid) {
  using zor::os::RegStatus;
  zor::os::RegKey endpoint, properties, settings;
  m_valid = zor::os::RegKey::Create(m_endpointKey, zor::os::kKeyAllAccess, endpoint) == RegStatus::Ok &&
            endpoint.WriteDword(u"DeviceState", DEVICE_STATE_ACTIVE) == RegStatus::Ok &&
            zor::os::RegKey::Create(m_endpointKey + u"\\Properties", zor::os::kKeyAllAccess, properties) ==
                RegStatus::Ok &&
            properties.WriteValue(kConfigurationProperty, zor::os::RegType::Sz,
                                  TextBytes(configuration.u16string())) == RegStatus::Ok &&
            zor::os::RegKey::Create(SettingsKeyPath(), zor::os::kKeyAllAccess, settings) == RegStatus::Ok;
}

ZOREngineEndpoint::~ZOREngineEndpoint() {
  DeleteTree(m_endpointKey);
  DeleteTree(SettingsKeyPath());
}

std::u16string ZOREngineEndpoint::SettingsKeyPath() const {
  return std::u16string(ZORAPOEndpointInfo::kDefaultSettingsRoot) + u"\\" + m_guid;
}
