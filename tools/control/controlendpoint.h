#pragma once
// ControlEndpoint: one endpoint as a control panel sees it: its identity and
// keys from the settings store, and the configuration file it names, loaded
// for one APO location, whose operating modes say what may be selected and
// which controls are public.
//
// A plain object for one thread; everything here touches the store or the
// file system.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "config/zorapoconfigurationfile.h"
#include "control/controlresult.h"
#include "system/zorapoendpointinfo.h"

class ControlEndpoint {
 public:
  static constexpr uint32_t kStreamLocation = 1;  // SFX: the location a panel reads modes at

  // Reads the endpoint {GUID} from the store. Fails, naming what was wrong,
  // for text that is not a GUID or an endpoint the store does not hold.
  ControlResult Open(std::string_view guidText, bool isRender = true);

  // Loads the configuration the endpoint names, or `overridePath` when not
  // empty, for `location`. Fails with the loader's status and the path when
  // the file does not load.
  ControlResult LoadConfiguration(const std::string& overridePath = {},
                                  uint32_t location = kStreamLocation);

  // The mode that "Operating Mode[/Speaker Type]" names. Each text may leave
  // out the "APO4-" prefix. Without a speaker type, the one mode of that
  // operating mode, or the one whose speaker type is `preferredSpeaker`.
  // Fails listing the modes there are.
  ControlResult ResolveMode(std::string_view text, const std::string& preferredSpeaker,
                            ZORAPOOperatingMode& mode) const;

  const ZORAPOEndpointInfo& Info() const { return m_info; }
  const ZORAPOConfigurationFile& Configuration() const { return m_configuration; }
  bool HasConfiguration() const { return m_configurationLoaded; }
  std::string GuidText() const;
  std::string SettingsKeyPath() const;
  std::string ConfigPath() const;  // the file actually loaded, or the endpoint's

  // "APO4-Music/APO4-Internal Stereo".
  static std::string ModeText(const ZORAPOModeId& id);
  // The modes of the loaded configuration as ModeText, in file order.
  std::vector<std::string> ModeTexts() const;

 private:
  ZORAPOEndpointInfo m_info;
  ZORAPOConfigurationFile m_configuration;
  bool m_configurationLoaded = false;
  std::string m_loadedPath;
};
