#pragma once
// Told by ZORAPOPublicSettings (or ZORAPOGlobalSettings) that a stored
// setting changed, on the registry watcher's thread and under the settings'
// notify lock: an implementation only stores atomics and signals events.

class ZORAPOPublicSettings;
class ZORUTSValue;

class IZORAPOPublicSettingsNotify {
 public:
  virtual ~IZORAPOPublicSettingsNotify() = default;
  virtual void OnPublicSettingChanged(ZORAPOPublicSettings& settings, const ZORUTSValue& value) = 0;
};
