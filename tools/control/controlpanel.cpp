#include "control/controlpanel.h"

#include <algorithm>
#include <vector>

#include "config/zorapoglobalsettings.h"
#include "config/zorapomodeselector.h"
#include "config/zorapopublicsettings.h"
#include "control/controlcontext.h"
#include "platform/com.h"
#include "platform/registry.h"
#include "platform/text.h"

namespace {

std::string Names(const ZORUTSValueList& list) {
  std::vector<std::string> names;
  for (const auto& [name, value] : list) names.push_back(name);
  std::sort(names.begin(), names.end());
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text.empty() ? "none" : text;
}

std::string KeyFailure(const ControlEndpoint& endpoint) {
  return "cannot open the settings key " + endpoint.SettingsKeyPath() + " in " +
         ControlContext::StoreDescription();
}

}  // namespace

ControlResult ControlPanel::GetMode(ZORAPOModeId& id, bool& stored) const {
  const ZORAPOModeId& fallback = m_endpoint.Configuration().GetDefaultMode();
  ZORAPOModeSelector selector;
  if (!selector.Init(m_endpoint.Info().GetSettingsKeyPath(), fallback)) {
    return ControlResult::Failure(KeyFailure(m_endpoint));
  }
  stored = selector.GetMode(id);
  if (!stored) id = fallback;
  return ControlResult::Success();
}

ControlResult ControlPanel::PickMode(const std::string& text, ZORAPOOperatingMode& mode) const {
  ZORAPOModeId current;
  bool stored = false;
  const ControlResult got = GetMode(current, stored);
  if (text.empty()) {
    if (!got) return got;
    if (m_endpoint.Configuration().FindMode(current, mode)) return ControlResult::Success();
    return ControlResult::Failure("the mode in effect, " + ControlEndpoint::ModeText(current) +
                                  ", is not a mode of " + m_endpoint.ConfigPath());
  }
  return m_endpoint.ResolveMode(text, current.speakerType.GetText(), mode);
}

ControlResult ControlPanel::SetMode(const std::string& text, ZORAPOModeId& id) const {
  ZORAPOOperatingMode mode;
  if (ControlResult picked = PickMode(text, mode); !picked) return picked;
  id = mode.GetModeId();
  ZORAPOModeSelector selector;
  if (!selector.Init(m_endpoint.Info().GetSettingsKeyPath(), id)) {
    return ControlResult::Failure(KeyFailure(m_endpoint));
  }
  if (!selector.SetMode(id)) {
    return ControlResult::Failure("cannot store the mode under " + m_endpoint.SettingsKeyPath());
  }
  return ControlResult::Success("mode " + ControlEndpoint::ModeText(id));
}

ControlResult ControlPanel::ReadPublicSettings(const ZORAPOOperatingMode& mode,
                                               ZORUTSValueList& values) const {
  ZORAPOPublicSettings settings;
  if (!settings.Init(m_endpoint.Info().GetSettingsKeyPath(), mode)) {
    return ControlResult::Failure(KeyFailure(m_endpoint));
  }
  // False only says nothing is stored yet: the list then holds the defaults.
  settings.ReadAll(values, true);
  return ControlResult::Success();
}

ControlResult ControlPanel::WritePublicSetting(const ZORAPOOperatingMode& mode,
                                               const std::string& name,
                                               const std::string& text) const {
  const std::string modeText = ControlEndpoint::ModeText(mode.GetModeId());
  if (!mode.GetPublicControls().Find(name)) {
    return ControlResult::Failure("'" + name + "' is not a public control of " + modeText +
                                  "; public controls: " + Names(mode.GetPublicControls()));
  }
  ZORAPOPublicSettings settings;
  if (!settings.Init(m_endpoint.Info().GetSettingsKeyPath(), mode)) {
    return ControlResult::Failure(KeyFailure(m_endpoint));
  }
  if (!settings.WriteControl(ZORUTSValue(name, text))) {
    return ControlResult::Failure("cannot store " + name + " under " + m_endpoint.SettingsKeyPath());
  }
  return ControlResult::Success(modeText + ": " + name + " = " + text);
}

ControlResult ControlPanel::ReadGlobalSettings(ZORUTSValueList& values) const {
  ZORAPOGlobalSettings settings;
  if (!settings.InitGlobal(m_endpoint.Info().GetSettingsKeyPath(), &m_endpoint.Configuration())) {
    return ControlResult::Failure(KeyFailure(m_endpoint));
  }
  settings.ReadAll(values, true);
  return ControlResult::Success();
}

ControlResult ControlPanel::WriteGlobalSetting(const std::string& name,
                                               const std::string& text) const {
  if (name != ZORAPOGlobalSettings::kProcessEnableName &&
      name != ZORAPOGlobalSettings::kAutoContentModeName) {
    return ControlResult::Failure("'" + name + "' is not a global setting; global settings: " +
                                  ZORAPOGlobalSettings::kProcessEnableName + ", " +
                                  ZORAPOGlobalSettings::kAutoContentModeName);
  }
  ZORAPOGlobalSettings settings;
  if (!settings.InitGlobal(m_endpoint.Info().GetSettingsKeyPath(), &m_endpoint.Configuration())) {
    return ControlResult::Failure(KeyFailure(m_endpoint));
  }
  if (!settings.WriteControl(ZORUTSValue(name, text))) {
    return ControlResult::Failure("cannot store " + name + " under " + m_endpoint.SettingsKeyPath());
  }
  return ControlResult::Success(name + " = " + text);
}

ControlResult ControlPanel::SetSystemEffects(bool enabled) const {
  ZORAPOEndpointInfo info(m_endpoint.Info());
  if (info.SetSysFxDisabled(!enabled)) {
    return ControlResult::Success(std::string("system effects ") + (enabled ? "on" : "off"));
  }
  // The endpoint has no switch yet (FxProperties missing, or without the
  // value): make it, as the system's sound settings do.
  zor::os::RegKey key;
  const std::u16string path = info.GetFxPropertiesPath();
  zor::os::RegStatus status = zor::os::RegKey::Create(
      path, zor::os::kKeySetValue | zor::os::kKeyQueryValue | zor::os::kKeyWow64_64Key, key);
  if (status == zor::os::RegStatus::Ok) {
    status = key.WriteDword(zor::com::PropertyKeyText(PKEY_AudioEndpoint_Disable_SysFx),
                            enabled ? 0 : 1);
  }
  if (status != zor::os::RegStatus::Ok) {
    return ControlResult::Failure("cannot write the system-effects switch under " +
                                  zor::os::Utf16ToUtf8(path) + " (" +
                                  zor::os::RegStatusName(status) + ")");
  }
  return ControlResult::Success(std::string("system effects ") + (enabled ? "on" : "off"));
}
