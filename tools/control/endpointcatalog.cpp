#include "control/endpointcatalog.h"

#include <filesystem>

#include "control/controlcontext.h"
#include "control/controldevice.h"
#include "control/controlendpoint.h"
#include "platform/com.h"
#include "platform/registry.h"
#include "platform/text.h"
#include "system/zorapoendpointinfo.h"
#include "system/zorapoendpointtools.h"

namespace {

using zor::os::RegKey;
using zor::os::RegStatus;

constexpr std::u16string_view kDeviceStateName = u"DeviceState";
constexpr uint32_t kStateActive = 1;
constexpr uint32_t kStateNotPresent = 4;
// The endpoint properties velapo reads: settings key, configuration path,
// adapter name and device description.
constexpr std::u16string_view kSettingsKeyProperty = u"{7A8B74C8-FA66-4460-8542-D6119C59E9D4},0";
constexpr std::u16string_view kConfigPathProperty = u"{7A8B74C8-FA66-4460-8542-D6119C59E9D4},2";
constexpr std::u16string_view kAdapterNameProperty = u"{b3f8fa53-0004-438e-9003-51a46e139bfc},6";
constexpr std::u16string_view kDescriptionProperty = u"{a45c254e-df1c-4efd-8020-67d146a850e0},2";

std::u16string FlowPath(bool isRender) {
  return std::u16string(ZORAPOEndpointInfo::kMMDevicesAudioPath) + (isRender ? u"Render" : u"Capture");
}

RegStatus WriteText(const RegKey& key, std::u16string_view name, std::string_view text) {
  const std::u16string wide = zor::os::NarrowToWide(text);
  std::vector<uint8_t> data;
  for (const char16_t unit : wide) {
    data.push_back(static_cast<uint8_t>(unit & 0xFF));
    data.push_back(static_cast<uint8_t>(unit >> 8));
  }
  data.push_back(0);
  data.push_back(0);
  return key.WriteValue(name, zor::os::RegType::Sz, data);
}

ControlResult StoreFailure(const std::string& what, RegStatus status) {
  return ControlResult::Failure(what + " in " + ControlContext::StoreDescription() + " (" +
                                zor::os::RegStatusName(status) + ")");
}

bool ParseGuid(const std::string& text, ZORGuidText& guid) {
  return guid.Parse(zor::os::NarrowToWide(text));
}

ControlResult NotAGuid(const std::string& text) {
  return ControlResult::Failure("'" + text +
                                "' is not an endpoint GUID of the form "
                                "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}");
}

}  // namespace

const char* EndpointCatalog::StateName(uint32_t state) {
  switch (state) {
    case 1: return "active";
    case 2: return "disabled";
    case 4: return "not present";
    case 8: return "unplugged";
    default: return "unknown";
  }
}

ControlResult EndpointCatalog::List(std::vector<EndpointEntry>& entries) {
  entries.clear();
  std::string defaultGuid;
  GetDefault(defaultGuid);
  for (const bool isRender : {true, false}) {
    RegKey flow;
    const RegStatus opened = RegKey::Open(FlowPath(isRender), zor::os::kKeyRead, flow);
    if (opened == RegStatus::NotFound) continue;
    if (opened != RegStatus::Ok) return StoreFailure("cannot read the endpoint list", opened);
    std::u16string name;
    for (uint32_t index = 0; flow.EnumSubKey(index, name) == RegStatus::Ok; ++index) {
      ZORGuidText guid;
      if (!guid.Parse(name)) continue;
      EndpointEntry entry;
      entry.guid = zor::os::Utf16ToUtf8(guid.Text());
      entry.isRender = isRender;
      RegKey device;
      entry.state = kStateNotPresent;
      if (flow.OpenSubKey(name, zor::os::kKeyQueryValue, device) == RegStatus::Ok &&
          device.ReadDword(kDeviceStateName, entry.state) != RegStatus::Ok) {
        entry.state = kStateNotPresent;
      }
      entry.isDefault = isRender && entry.guid == defaultGuid;
      ControlEndpoint endpoint;
      if (endpoint.Open(entry.guid, isRender)) {
        entry.displayName = zor::os::Utf16ToUtf8(endpoint.Info().GetDisplayName());
        entry.settingsKey = endpoint.SettingsKeyPath();
        entry.configPath = endpoint.ConfigPath();
        entry.systemEffects = !endpoint.Info().IsSysFxDisabled();
      }
      entries.push_back(std::move(entry));
    }
  }
  return ControlResult::Success();
}

ControlResult EndpointCatalog::Add(const EndpointSpec& spec) {
  ZORGuidText guid;
  if (!ParseGuid(spec.guid, guid)) return NotAGuid(spec.guid);
  const std::u16string devicePath = FlowPath(spec.isRender) + u"\\" + guid.Text();
  const std::string guidText = zor::os::Utf16ToUtf8(guid.Text());
  RegKey device;
  bool created = false;
  constexpr uint32_t kAccess = zor::os::kKeyAllAccess | zor::os::kKeyWow64_64Key;
  RegStatus status = RegKey::Create(devicePath, kAccess, device, &created);
  if (status != RegStatus::Ok) return StoreFailure("cannot create endpoint " + guidText, status);
  if (!created) return ControlResult::Failure("endpoint " + guidText + " exists already");
  std::string configPath = spec.configPath;
  if (!configPath.empty()) {
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(configPath, error);
    if (!error) configPath = absolute.string();
  }
  RegKey properties;
  RegKey fxProperties;
  status = device.WriteDword(kDeviceStateName, kStateActive);
  if (status == RegStatus::Ok) status = device.CreateSubKey(u"Properties", kAccess, properties);
  if (status == RegStatus::Ok && !spec.settingsKey.empty()) {
    status = WriteText(properties, kSettingsKeyProperty, spec.settingsKey);
  }
  if (status == RegStatus::Ok && !configPath.empty()) {
    status = WriteText(properties, kConfigPathProperty, configPath);
  }
  if (status == RegStatus::Ok && !spec.adapterName.empty()) {
    status = WriteText(properties, kAdapterNameProperty, spec.adapterName);
  }
  if (status == RegStatus::Ok && !spec.description.empty()) {
    status = WriteText(properties, kDescriptionProperty, spec.description);
  }
  if (status == RegStatus::Ok) status = device.CreateSubKey(u"FxProperties", kAccess, fxProperties);
  if (status == RegStatus::Ok) {
    status = fxProperties.WriteDword(zor::com::PropertyKeyText(PKEY_AudioEndpoint_Disable_SysFx),
                                     spec.systemEffects ? 0 : 1);
  }
  if (status != RegStatus::Ok) {
    Remove(guidText, spec.isRender, false);
    return StoreFailure("cannot write the keys of endpoint " + guidText, status);
  }
  return ControlResult::Success("added " + std::string(spec.isRender ? "render" : "capture") +
                                " endpoint " + guidText);
}

ControlResult EndpointCatalog::Remove(const std::string& guidText, bool isRender, bool withSettings) {
  ZORGuidText guid;
  if (!ParseGuid(guidText, guid)) return NotAGuid(guidText);
  std::u16string settingsKey;
  if (withSettings) {
    ControlEndpoint endpoint;
    if (ControlResult opened = endpoint.Open(guidText, isRender); !opened) return opened;
    settingsKey = endpoint.Info().GetSettingsKeyPath();
  }
  constexpr uint32_t kDeleteAccess =
      zor::os::kKeyDelete | zor::os::kKeyEnumerateSubKeys | zor::os::kKeyQueryValue;
  RegKey flow;
  RegStatus status = RegKey::Open(FlowPath(isRender), kDeleteAccess, flow);
  if (status == RegStatus::Ok) status = flow.DeleteSubKeyTree(guid.Text());
  if (status != RegStatus::Ok) {
    return StoreFailure("cannot remove endpoint " + zor::os::Utf16ToUtf8(guid.Text()), status);
  }
  if (!settingsKey.empty()) {
    RegKey root;
    status = RegKey::Open(u"", kDeleteAccess, root);
    if (status == RegStatus::Ok) status = root.DeleteSubKeyTree(settingsKey);
    if (status != RegStatus::Ok && status != RegStatus::NotFound) {
      return StoreFailure("removed the endpoint but not its settings key " +
                              zor::os::Utf16ToUtf8(settingsKey),
                          status);
    }
  }
  return ControlResult::Success("removed endpoint " + zor::os::Utf16ToUtf8(guid.Text()));
}

ControlResult EndpointCatalog::SetDefault(const std::string& guidText) {
  ControlEndpoint endpoint;
  if (ControlResult opened = endpoint.Open(guidText, true); !opened) return opened;
  ZORAPOEndpointTools tools;
  if (!tools.SetDefaultEndpoint(endpoint.Info())) {
    return ControlResult::Failure("the system refused to make " + endpoint.GuidText() +
                                  " the default endpoint (no audio policy client here?)");
  }
  return ControlResult::Success("default endpoint " + endpoint.GuidText());
}

ControlResult EndpointCatalog::GetDefault(std::string& guid) {
  ZORAPOEndpointTools tools;
  ZORAPOEndpointInfo info;
  guid.clear();
  if (!tools.GetDefaultEndpoint(info) || info.GetEndpointGuid().IsNull()) {
    return ControlResult::Failure("there is no default render endpoint");
  }
  guid = zor::os::Utf16ToUtf8(info.GetEndpointGuid().Text());
  return ControlResult::Success();
}
