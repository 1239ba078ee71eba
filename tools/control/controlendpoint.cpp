#include "control/controlendpoint.h"

#include "control/controlcontext.h"
#include "control/controldevice.h"
#include "platform/registry.h"
#include "platform/text.h"

namespace {

constexpr std::string_view kModePrefix = "APO4-";

bool SameModeText(const std::string& stored, std::string_view asked) {
  if (stored == asked) return true;
  return stored.size() == kModePrefix.size() + asked.size() &&
         std::string_view(stored).substr(0, kModePrefix.size()) == kModePrefix &&
         std::string_view(stored).substr(kModePrefix.size()) == asked;
}

std::string Narrow(std::u16string_view text) { return zor::os::Utf16ToUtf8(text); }

}  // namespace

ControlResult ControlEndpoint::Open(std::string_view guidText, bool isRender) {
  const std::u16string wide = zor::os::NarrowToWide(guidText);
  ZORGuidText guid;
  if (!guid.Parse(wide)) {
    return ControlResult::Failure("'" + std::string(guidText) +
                                  "' is not an endpoint GUID of the form "
                                  "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}");
  }
  const char* flow = isRender ? "Render" : "Capture";
  ZORComPtr<IMMDevice> device;
  *device.Put() = new ControlDevice(ControlDevice::DeviceId(guid.Text(), isRender));
  m_info.Reset();
  m_info.SetDevice(device.Get(), isRender);  // false only says some keys were missing
  zor::os::RegKey key;
  const zor::os::RegStatus status =
      zor::os::RegKey::Open(m_info.GetDeviceKeyPath(), zor::os::kKeyQueryValue, key);
  if (status != zor::os::RegStatus::Ok) {
    return ControlResult::Failure("no " + std::string(flow) + " endpoint " + Narrow(guid.Text()) +
                                  " in " + ControlContext::StoreDescription() + " (" +
                                  zor::os::RegStatusName(status) + ")");
  }
  if (m_info.GetSettingsKeyPath().empty()) {
    return ControlResult::Failure("endpoint " + Narrow(guid.Text()) +
                                  " has unreadable properties under " +
                                  Narrow(m_info.GetPropertiesPath()));
  }
  return ControlResult::Success();
}

ControlResult ControlEndpoint::LoadConfiguration(const std::string& overridePath,
                                                 uint32_t location) {
  const std::u16string path =
      overridePath.empty() ? m_info.GetConfigPath() : zor::os::NarrowToWide(overridePath);
  m_loadedPath = Narrow(path);
  m_configurationLoaded = false;
  if (path.empty()) return ControlResult::Failure("the endpoint names no configuration file");
  const uint32_t status = m_configuration.Load(path, 0, location);
  if (status != ZORAPOConfigurationFile::kStatusOk) {
    return ControlResult::Failure("configuration " + m_loadedPath + " does not load (status " +
                                  std::to_string(status) + ")");
  }
  m_configurationLoaded = true;
  return ControlResult::Success();
}

ControlResult ControlEndpoint::ResolveMode(std::string_view text,
                                           const std::string& preferredSpeaker,
                                           ZORAPOOperatingMode& mode) const {
  const size_t slash = text.find('/');
  const std::string_view operating = text.substr(0, slash);
  const std::string_view speaker =
      slash == std::string_view::npos ? std::string_view() : text.substr(slash + 1);
  std::vector<const ZORAPOOperatingMode*> found;
  for (const auto& candidate : m_configuration.GetOperatingModes()) {
    const ZORAPOModeId& id = candidate->GetModeId();
    if (!SameModeText(id.operatingMode.GetText(), operating)) continue;
    if (slash != std::string_view::npos && !SameModeText(id.speakerType.GetText(), speaker)) continue;
    found.push_back(candidate.get());
  }
  if (found.size() > 1) {
    std::vector<const ZORAPOOperatingMode*> preferred;
    for (const ZORAPOOperatingMode* candidate : found) {
      if (candidate->GetModeId().speakerType.GetText() == preferredSpeaker) {
        preferred.push_back(candidate);
      }
    }
    if (preferred.size() == 1) found = preferred;
  }
  if (found.size() == 1) {
    mode = *found.front();
    return ControlResult::Success();
  }
  std::string known;
  for (const std::string& name : ModeTexts()) known += (known.empty() ? "" : ", ") + name;
  const std::string problem = found.empty() ? "names no mode" : "names more than one mode";
  return ControlResult::Failure("'" + std::string(text) + "' " + problem + " of " + m_loadedPath +
                                "; its modes: " + (known.empty() ? "none" : known));
}

std::string ControlEndpoint::GuidText() const { return Narrow(m_info.GetEndpointGuid().Text()); }

std::string ControlEndpoint::SettingsKeyPath() const { return Narrow(m_info.GetSettingsKeyPath()); }

std::string ControlEndpoint::ConfigPath() const {
  return m_loadedPath.empty() ? Narrow(m_info.GetConfigPath()) : m_loadedPath;
}

std::string ControlEndpoint::ModeText(const ZORAPOModeId& id) {
  return id.operatingMode.GetText() + "/" + id.speakerType.GetText();
}

std::vector<std::string> ControlEndpoint::ModeTexts() const {
  std::vector<std::string> names;
  for (const auto& mode : m_configuration.GetOperatingModes()) {
    names.push_back(ModeText(mode->GetModeId()));
  }
  return names;
}
