#pragma once
// ZORAPOEndpointInfo: what the system knows of one audio endpoint: its
// identity, where its settings live in the settings store, which
// configuration file applies to it, and which effects its driver package
// binds to it. Refresh decides all of these from the endpoint's keys under
// ...\MMDevices\Audio\Render|Capture\{GUID} (Properties and FxProperties),
// an optional fallback key, and defaults, so an endpoint with none of the
// steering properties still works.
//
// A plain value: copied into lists and workspaces, each copy holding its own
// reference to the device. Not synchronised; Refresh touches the store and
// the file system, never call it on the audio thread.

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "platform/com.h"
#include "system/zorguidtext.h"

class ZORAPOEndpointInfo {
 public:
  // The effect CLSIDs, in the order they are held.
  enum EffectSlot : size_t {
    kPreMixEffect = 0,     // LFX
    kStreamEffect,         // SFX
    kModeEffect,           // MFX
    kEndpointEffect,       // EFX
    kOffloadStreamEffect,  // OSFX
    kOffloadModeEffect,    // OMFX
    kEffectSlotCount,
  };

  // The family of endpoint properties that steers this system, and the
  // settings key an endpoint gets when it names none.
  static constexpr std::u16string_view kSteeringFormatId = u"{7A8B74C8-FA66-4460-8542-D6119C59E9D4}";
  static constexpr std::u16string_view kDefaultSettingsRoot = u"Software\\VEL\\APO";
  static constexpr std::u16string_view kMMDevicesAudioPath =
      u"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\";
  // The descriptor applied to the settings key at every Refresh: guests and
  // anonymous logons denied, authenticated users, administrators, Local
  // Service and Local System allowed everything, inherited below.
  static const std::u16string& SettingsKeySecurity();

  ZORAPOEndpointInfo();
  // As SetDevice.
  ZORAPOEndpointInfo(IMMDevice* device, bool isRender);
  // Copies every field but the fallback key path and the subsystem id, with
  // a counted reference to the device.
  ZORAPOEndpointInfo(const ZORAPOEndpointInfo& other);
  ZORAPOEndpointInfo& operator=(const ZORAPOEndpointInfo& other);
  virtual ~ZORAPOEndpointInfo();

  // Releases the device and returns the fields to their defaults (render,
  // system effects enabled); the fallback key path and subsystem id stay.
  virtual void Reset();
  // Reset, take the device and the flow, then Refresh; its result.
  virtual bool SetDevice(IMMDevice* device, bool isRender);

  // Gathers everything from the device's id, its keys and the defaults.
  // False without a device or when no key could be read. A value of a type
  // that cannot be read ends it: in Properties at once with false, before
  // any default is filled; in FxProperties or the fallback key with what
  // was gathered so far. Applies the key security to the settings key.
  bool Refresh();

  // The presets file for this endpoint: beside the host module,
  // "presets_" + subsystem id (+ "_81" when any effect past the pre-mix and
  // stream pair is bound) + ".xml"; empty without a subsystem id.
  std::u16string GetPresetsPath();
  // The up to 8 characters behind "SUBSYS_" in a text property of the
  // device, kept once found.
  const std::u16string& GetSubsystemId();
  // Writes PKEY_AudioEndpoint_Disable_SysFx (as REG_DWORD 0 or 1) where the
  // endpoint already has it; true when the field now equals `disabled`.
  bool SetSysFxDisabled(bool disabled);

  // The endpoint's property keys in the store.
  std::u16string GetPropertiesPath() const;
  std::u16string GetFxPropertiesPath() const;
  // The endpoint's own key under MMDevices\Audio, parent of the two above.
  std::u16string GetDeviceKeyPath() const;

  IMMDevice* GetDevice() const { return m_device.Get(); }
  const ZORGuidText& GetEndpointGuid() const { return m_endpointGuid; }
  const std::u16string& GetDeviceId() const { return m_deviceId; }
  bool IsRender() const { return m_bIsRender; }
  const std::u16string& GetFallbackKeyPath() const { return m_fallbackKeyPath; }
  const std::u16string& GetDisplayName() const { return m_displayName; }
  const std::u16string& GetSettingsKeyPath() const { return m_settingsKeyPath; }
  const std::u16string& GetOemValue1() const { return m_oemValue1; }
  const std::u16string& GetConfigPath() const { return m_configPath; }
  const std::u16string& GetOemValue3() const { return m_oemValue3; }
  const std::u16string& GetPresetsSwitch() const { return m_presetsSwitch; }
  const std::u16string& GetAdapterName() const { return m_adapterName; }
  const std::u16string& GetDeviceDescription() const { return m_deviceDescription; }
  const ZORGuidText& GetEffectClsid(EffectSlot slot) const { return m_effectClsids[slot]; }
  const ZORGuidText& GetModeEffectClsid() const { return m_effectClsids[kModeEffect]; }
  const ZORGuidText& GetEndpointEffectClsid() const { return m_effectClsids[kEndpointEffect]; }
  const ZORGuidText& GetOffloadStreamEffectClsid() const {
    return m_effectClsids[kOffloadStreamEffect];
  }
  const ZORGuidText& GetOffloadModeEffectClsid() const { return m_effectClsids[kOffloadModeEffect]; }
  bool IsSysFxDisabled() const { return m_bSysFxDisabled; }

 private:
  void CopyFrom(const ZORAPOEndpointInfo& other);
  void ApplyKeySecurity() const;

  ZORComPtr<IMMDevice> m_device;
  ZORGuidText m_endpointGuid;
  std::u16string m_deviceId;
  bool m_bIsRender = true;
  std::u16string m_fallbackKeyPath;
  std::u16string m_displayName;
  std::u16string m_settingsKeyPath;
  std::u16string m_oemValue1;
  std::u16string m_configPath;
  std::u16string m_oemValue3;
  std::u16string m_presetsSwitch;
  std::u16string m_subsystemId;
  std::u16string m_adapterName;
  std::u16string m_deviceDescription;
  std::array<ZORGuidText, kEffectSlotCount> m_effectClsids{};
  bool m_bSysFxDisabled = false;
};
