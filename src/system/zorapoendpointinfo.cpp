#include "system/zorapoendpointinfo.h"

#include <filesystem>
#include <system_error>

#include "config/zorapomodulepaths.h"
#include "core/zorlog.h"
#include "platform/registry.h"
#include "values/zorpropertyset.h"
#include "values/zorpropertysetregistry.h"

namespace {

// Query, and the 64-bit view the engine's keys are kept in.
constexpr uint32_t kReadAccess = zor::os::kKeyQueryValue | zor::os::kKeyWow64_64Key;
// Query, set, create subkey, enumerate, notify, read control, write DAC,
// 64-bit view: enough to create the settings key and change its security.
constexpr uint32_t kSecureAccess = 0x6011F;

constexpr std::u16string_view kSysFxDefault = u"1";
constexpr std::u16string_view kSubsysMarker = u"SUBSYS_";
constexpr size_t kSubsystemIdUnits = 8;

// The steering rows of the endpoint's Properties key, in table order.
enum PropertyRow : size_t {
  kRowSettingsKeyPath,
  kRowOemValue1,
  kRowConfigPath,
  kRowOemValue3,
  kRowPresetsSwitch,
  kRowAdapterName,
  kRowDeviceDescription,
  kRowFallbackKeyPath,
  kPropertyRowCount,
};

constexpr std::u16string_view kPropertyRowKeys[kPropertyRowCount] = {
    u"{7A8B74C8-FA66-4460-8542-D6119C59E9D4},0", u"{7A8B74C8-FA66-4460-8542-D6119C59E9D4},1",
    u"{7A8B74C8-FA66-4460-8542-D6119C59E9D4},2", u"{7A8B74C8-FA66-4460-8542-D6119C59E9D4},3",
    u"{7A8B74C8-FA66-4460-8542-D6119C59E9D4},4", u"{b3f8fa53-0004-438e-9003-51a46e139bfc},6",
    u"{a45c254e-df1c-4efd-8020-67d146a850e0},2", u"{7A8B74C8-FA66-4460-8542-D6119C59E9D4},5",
};

// The rows of the FxProperties key. Each names the effect slot it fills and,
// for the composite keys, the row whose text is its default, which is how a
// composite key overrides the plain one.
constexpr std::u16string_view kSysFxKey = u"{1da5d803-d492-4edd-8c23-e0c0ffee7f0e},5";
struct EffectRow {
  std::u16string_view key;
  ZORAPOEndpointInfo::EffectSlot slot;
};
constexpr EffectRow kEffectRows[] = {
    {u"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},1", ZORAPOEndpointInfo::kPreMixEffect},
    {u"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},5", ZORAPOEndpointInfo::kStreamEffect},
    {u"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},6", ZORAPOEndpointInfo::kModeEffect},
    {u"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},7", ZORAPOEndpointInfo::kEndpointEffect},
    {u"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},11", ZORAPOEndpointInfo::kOffloadStreamEffect},
    {u"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},12", ZORAPOEndpointInfo::kOffloadModeEffect},
    {u"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},13", ZORAPOEndpointInfo::kStreamEffect},
    {u"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},14", ZORAPOEndpointInfo::kModeEffect},
    {u"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},15", ZORAPOEndpointInfo::kEndpointEffect},
};

enum class KeyRead { NotOpened, Unreadable, Loaded };

// Reads every value of the key at `path` into `set`, as text-readable
// properties named by their value names.
KeyRead ReadKey(std::u16string_view path, ZORPropertySet& set) {
  zor::os::RegKey key;
  if (zor::os::RegKey::Open(path, kReadAccess, key) != zor::os::RegStatus::Ok) {
    return KeyRead::NotOpened;
  }
  ZORPropertySetRegistry registry;
  registry.SetKey(&key);
  registry.SetPropertySet(&set);
  const bool loaded = registry.LoadValues();
  registry.SetPropertySet(nullptr);
  return loaded ? KeyRead::Loaded : KeyRead::Unreadable;
}

bool IsExistingFile(const std::u16string& path) {
  std::error_code error;
  const auto status = std::filesystem::status(std::filesystem::path(path), error);
  return !error && std::filesystem::exists(status) && !std::filesystem::is_directory(status);
}

// The module directory already ends in the separator; the names below are
// appended with one more, as the engine has always built them, which every
// file system reads as one.
std::u16string BesideModule(std::u16string_view fileName) {
  std::u16string path = GetModuleDirectory(kZORModuleHost);
  path.push_back(static_cast<char16_t>(std::filesystem::path::preferred_separator));
  path += fileName;
  return path;
}

void ToUpperAscii(std::u16string& text) {
  for (char16_t& c : text) {
    if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - u'a' + u'A');
  }
}

}  // namespace

const std::u16string& ZORAPOEndpointInfo::SettingsKeySecurity() {
  // A function-local static: made once, safely against concurrent first use.
  static const std::u16string descriptor =
      u"D:(D;OICI;GA;;;BG)(D;OICI;GA;;;AN)(A;OICI;GA;;;AU)(A;OICI;GA;;;BA)(A;OICI;GA;;;LS)"
      u"(A;OICI;GA;;;SY)";
  return descriptor;
}

ZORAPOEndpointInfo::ZORAPOEndpointInfo() = default;

ZORAPOEndpointInfo::ZORAPOEndpointInfo(IMMDevice* device, bool isRender) {
  SetDevice(device, isRender);
}

ZORAPOEndpointInfo::ZORAPOEndpointInfo(const ZORAPOEndpointInfo& other) { CopyFrom(other); }

ZORAPOEndpointInfo& ZORAPOEndpointInfo::operator=(const ZORAPOEndpointInfo& other) {
  if (this != &other) CopyFrom(other);
  return *this;
}

ZORAPOEndpointInfo::~ZORAPOEndpointInfo() = default;

void ZORAPOEndpointInfo::CopyFrom(const ZORAPOEndpointInfo& other) {
  m_device = other.m_device;
  m_endpointGuid = other.m_endpointGuid;
  m_deviceId = other.m_deviceId;
  m_bIsRender = other.m_bIsRender;
  m_displayName = other.m_displayName;
  m_settingsKeyPath = other.m_settingsKeyPath;
  m_oemValue1 = other.m_oemValue1;
  m_configPath = other.m_configPath;
  m_oemValue3 = other.m_oemValue3;
  m_presetsSwitch = other.m_presetsSwitch;
  m_adapterName = other.m_adapterName;
  m_deviceDescription = other.m_deviceDescription;
  m_effectClsids = other.m_effectClsids;
  m_bSysFxDisabled = other.m_bSysFxDisabled;
}

void ZORAPOEndpointInfo::Reset() {
  m_device.Reset();
  m_endpointGuid.Clear();
  m_deviceId.clear();
  m_bIsRender = true;
  m_displayName.clear();
  m_settingsKeyPath.clear();
  m_oemValue1.clear();
  m_configPath.clear();
  m_oemValue3.clear();
  m_presetsSwitch.clear();
  m_adapterName.clear();
  m_deviceDescription.clear();
  for (ZORGuidText& clsid : m_effectClsids) clsid.Clear();
  m_bSysFxDisabled = false;
}

bool ZORAPOEndpointInfo::SetDevice(IMMDevice* device, bool isRender) {
  Reset();
  m_device = ZORComPtr<IMMDevice>(device);
  m_bIsRender = isRender;
  return Refresh();
}

std::u16string ZORAPOEndpointInfo::GetPropertiesPath() const {
  return GetDeviceKeyPath() + u"\\Properties";
}

std::u16string ZORAPOEndpointInfo::GetFxPropertiesPath() const {
  return GetDeviceKeyPath() + u"\\FxProperties";
}

std::u16string ZORAPOEndpointInfo::GetDeviceKeyPath() const {
  std::u16string path(kMMDevicesAudioPath);
  path += m_bIsRender ? u"Render\\" : u"Capture\\";
  path += m_endpointGuid.Text();
  return path;
}

bool ZORAPOEndpointInfo::Refresh() {
  if (!m_device) return false;

  // The endpoint GUID is the part of the id behind its last '.'.
  LPWSTR id = nullptr;
  if (SUCCEEDED(m_device->GetId(&id)) && id) {
    m_deviceId = zor::com::FromComText(id);
    CoTaskMemFree(id);
  } else {
    m_deviceId.clear();
  }
  const size_t dot = m_deviceId.rfind(u'.');
  m_endpointGuid.Parse(dot == std::u16string::npos ? std::u16string_view(m_deviceId)
                                                   : std::u16string_view(m_deviceId).substr(dot + 1));

  std::u16string defaults[kRowPresetsSwitch + 1];
  defaults[kRowSettingsKeyPath] = std::u16string(kDefaultSettingsRoot) + u"\\" + m_endpointGuid.Text();
  defaults[kRowOemValue1] = GetModuleDirectory(kZORModuleHost);
  defaults[kRowConfigPath] = GetDefaultConfigPath();

  std::u16string* const rowFields[kPropertyRowCount] = {
      &m_settingsKeyPath, &m_oemValue1,   &m_configPath,        &m_oemValue3,
      &m_presetsSwitch,   &m_adapterName, &m_deviceDescription, &m_fallbackKeyPath,
  };

  bool result = false;
  {
    ZORPropertySet properties;
    const KeyRead read = ReadKey(GetPropertiesPath(), properties);
    if (read == KeyRead::Unreadable) return false;
    if (read == KeyRead::Loaded) {
      result = true;
      for (size_t row = 0; row < kPropertyRowCount; ++row) {
        properties.GetPropertyWString(kPropertyRowKeys[row], *rowFields[row]);
      }
      m_displayName = m_adapterName + u" " + m_deviceDescription;
    }
  }
  {
    ZORPropertySet fxProperties;
    const KeyRead read = ReadKey(GetFxPropertiesPath(), fxProperties);
    if (read == KeyRead::Unreadable) return result;
    if (read == KeyRead::Loaded) {
      result = true;
      std::u16string sysFx(kSysFxDefault);
      fxProperties.GetPropertyWString(kSysFxKey, sysFx);
      std::u16string texts[kEffectSlotCount];
      for (const EffectRow& row : kEffectRows) {
        // A missing composite row keeps what its plain row gave.
        fxProperties.GetPropertyWString(row.key, texts[row.slot]);
      }
      for (size_t slot = 0; slot < kEffectSlotCount; ++slot) m_effectClsids[slot].Parse(texts[slot]);
      m_bSysFxDisabled = sysFx == kSysFxDefault;
    }
  }
  if (!m_fallbackKeyPath.empty()) {
    ZORPropertySet fallback;
    const KeyRead read = ReadKey(m_fallbackKeyPath, fallback);
    if (read == KeyRead::Unreadable) return result;
    if (read == KeyRead::Loaded) {
      result = true;
      // The device's own key wins: only what is still empty is filled.
      for (size_t row = 0; row < kPropertyRowCount; ++row) {
        if (rowFields[row]->empty()) fallback.GetPropertyWString(kPropertyRowKeys[row], *rowFields[row]);
      }
    }
  }
  for (size_t row = 0; row <= kRowPresetsSwitch; ++row) {
    if (rowFields[row]->empty()) *rowFields[row] = defaults[row];
  }

  if (m_bIsRender && m_configPath == defaults[kRowConfigPath] && !m_presetsSwitch.empty()) {
    const std::u16string presets = GetPresetsPath();
    if (!presets.empty() && IsExistingFile(presets)) m_configPath = presets;
  }
  if (m_bIsRender && m_configPath == BesideModule(u"velconfig.xml") && !IsExistingFile(m_configPath)) {
    m_configPath = BesideModule(u"velconfig_WIN10.xml");
  }

  if (!m_settingsKeyPath.empty()) ApplyKeySecurity();
  return result;
}

void ZORAPOEndpointInfo::ApplyKeySecurity() const {
  zor::os::RegKey key;
  // A process without the right to change the key leaves it as it is.
  if (zor::os::RegKey::Create(m_settingsKeyPath, kSecureAccess, key) != zor::os::RegStatus::Ok) return;
  const zor::os::RegSecurityResult applied = key.SetSecurity(SettingsKeySecurity());
  ZOR_LOG("ConvertStringSecurityDescriptorToSecurityDescriptor returned %d\n", applied.converted ? 1 : 0);
  if (applied.converted) {
    ZOR_LOG("SetKeySecurity returned 0x%x\n", static_cast<unsigned>(applied.status));
  } else {
    ZOR_LOG("   Last error: 0x%x\n", static_cast<unsigned>(applied.conversionError));
  }
}

const std::u16string& ZORAPOEndpointInfo::GetSubsystemId() {
  if (!m_subsystemId.empty() || !m_device) return m_subsystemId;
  ZORComPtr<IPropertyStore> store;
  if (FAILED(m_device->OpenPropertyStore(STGM_READ, store.Put())) || !store) return m_subsystemId;
  DWORD count = 0;
  if (FAILED(store->GetCount(&count))) return m_subsystemId;
  for (DWORD index = 0; index < count; ++index) {
    PROPERTYKEY key{};
    if (FAILED(store->GetAt(index, &key))) continue;
    ZORPropVariant value;
    if (FAILED(store->GetValue(key, value.Put())) || value.Get().vt != VT_LPWSTR ||
        !value.Get().pwszVal) {
      continue;
    }
    std::u16string text(zor::com::FromComText(value.Get().pwszVal));
    ToUpperAscii(text);
    const size_t at = text.find(kSubsysMarker);
    if (at != std::u16string::npos) {
      m_subsystemId = text.substr(at + kSubsysMarker.size(), kSubsystemIdUnits);
      break;
    }
  }
  return m_subsystemId;
}

std::u16string ZORAPOEndpointInfo::GetPresetsPath() {
  const std::u16string& subsystemId = GetSubsystemId();
  if (subsystemId.empty()) return {};
  const bool bindsMore = !GetModeEffectClsid().IsNull() || !GetEndpointEffectClsid().IsNull() ||
                         !GetOffloadStreamEffectClsid().IsNull() || !GetOffloadModeEffectClsid().IsNull();
  return BesideModule(u"presets_" + subsystemId + (bindsMore ? u"_81" : u"") + u".xml");
}

bool ZORAPOEndpointInfo::SetSysFxDisabled(bool disabled) {
  zor::os::RegKey key;
  const uint32_t access = zor::os::kKeyQueryValue | zor::os::kKeySetValue | zor::os::kKeyWow64_64Key;
  if (zor::os::RegKey::Open(GetFxPropertiesPath(), access, key) == zor::os::RegStatus::Ok) {
    const std::u16string name(kSysFxKey);
    uint32_t current = 0;
    if (key.ReadDword(name, current) == zor::os::RegStatus::Ok) {
      m_bSysFxDisabled = current != 0;
      if (key.WriteDword(name, disabled ? 1 : 0) == zor::os::RegStatus::Ok) m_bSysFxDisabled = disabled;
    }
  }
  return m_bSysFxDisabled == disabled;
}
