#pragma once
// ZORAPOGlobalSettings: the settings that hold across all operating modes of
// an endpoint, "APO4-Process Enable" and "APO4-Auto Content Mode Enable",
// stored as "VelApoGlobal" beside the modes' values. Unlike a mode's value, a
// stored global value adds names it brings. Bound by InitGlobal; the mode
// form of Init refuses. Threads and locks as ZORAPOPublicSettings.

#include <string_view>

#include "config/zorapopublicsettings.h"

class ZORAPOConfigurationFile;

class ZORAPOGlobalSettings : public ZORAPOPublicSettings {
 public:
  static constexpr std::u16string_view kValueName = u"VelApoGlobal";
  static constexpr const char* kProcessEnableName = "APO4-Process Enable";
  static constexpr const char* kAutoContentModeName = "APO4-Auto Content Mode Enable";

  // Global settings have no mode: false, and nothing changes.
  bool Init(std::u16string_view settingsKeyPath, const ZORAPOOperatingMode& mode) override;
  // Processing on, automatic content mode as `configuration` says (off
  // without one, or without the property), then the stored value merged
  // over them. Drops the client. False only when the key cannot be opened.
  virtual bool InitGlobal(std::u16string_view settingsKeyPath,
                          const ZORAPOConfigurationFile* configuration);
};
