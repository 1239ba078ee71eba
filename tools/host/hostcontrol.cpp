#include "hostcontrol.h"

#include "config/zorapoglobalsettings.h"
#include "config/zorapomodeselector.h"
#include "config/zorapopublicsettings.h"
#include "platform/text.h"
#include "system/zorapotunedsettings.h"

namespace {

std::string ModeText(const ZORAPOModeId& id) {
  return id.operatingMode.GetText() + " / " + id.speakerType.GetText();
}

}  // namespace

HostControl::HostControl(const ZORAPOEndpointInfo& endpoint, const ZORAPOConfigurationFile& config)
    : m_endpoint(endpoint), m_config(config), m_mode(config.GetDefaultMode()) {
  ZORAPOModeSelector selector;
  ZORAPOModeId stored;
  if (selector.Init(m_endpoint.GetSettingsKeyPath(), m_mode) && selector.GetMode(stored)) {
    m_mode = stored;
  }
}

HostControl::~HostControl() = default;

bool HostControl::FindCurrentMode(ZORAPOOperatingMode& mode, std::string& error) const {
  if (m_config.FindMode(m_mode, mode)) return true;
  error = "the configuration has no mode " + ModeText(m_mode);
  return false;
}

bool HostControl::SetMode(const ScriptAction& action, std::string& error) {
  const std::string speaker = action.value.empty() ? m_mode.speakerType.GetText() : action.value;
  const ZORAPOModeId id(action.text, speaker);
  ZORAPOOperatingMode mode;
  if (!m_config.FindMode(id, mode)) {
    error = "the configuration has no mode " + ModeText(id);
    return false;
  }
  ZORAPOModeSelector selector;
  if (!selector.Init(m_endpoint.GetSettingsKeyPath(), m_mode) || !selector.SetMode(id)) {
    error = "the store refused the mode";
    return false;
  }
  m_mode = id;
  return true;
}

bool HostControl::Apply(const ScriptAction& action, std::string& error) {
  const ZORUTSValue value(action.text, action.value);
  ZORAPOOperatingMode mode;
  switch (action.kind) {
    case ScriptActionKind::Mode:
      return SetMode(action, error);
    case ScriptActionKind::Public: {
      ZORAPOPublicSettings settings;
      if (!FindCurrentMode(mode, error)) return false;
      if (!settings.Init(m_endpoint.GetSettingsKeyPath(), mode) || !settings.WriteControl(value)) {
        error = "'" + action.text + "' is not a public setting of " + ModeText(m_mode);
        return false;
      }
      return true;
    }
    case ScriptActionKind::Global: {
      ZORAPOGlobalSettings settings;
      if (!settings.InitGlobal(m_endpoint.GetSettingsKeyPath(), &m_config) || !settings.WriteControl(value)) {
        error = "'" + action.text + "' is not a global setting";
        return false;
      }
      return true;
    }
    case ScriptActionKind::TuneOpen: {
      if (!FindCurrentMode(mode, error)) return false;
      auto tuned = std::make_unique<ZORAPOTunedSettings>();
      if (!tuned->Open(m_endpoint, mode, false)) {
        error = "cannot open the tuned block of " + ModeText(m_mode);
        return false;
      }
      m_tuned = std::move(tuned);
      return true;
    }
    case ScriptActionKind::Tune:
    case ScriptActionKind::TuneMode: {
      if (!m_tuned) {
        error = "no tuned block is open ('tune open' first)";
        return false;
      }
      const ZORUTSValue tuned = action.kind == ScriptActionKind::Tune
                                    ? value
                                    : ZORUTSValue(zor::os::Utf16ToUtf8(ZORAPOTunedSettings::kTuningModeName),
                                                  static_cast<int32_t>(action.number));
      if (!m_tuned->WriteControl(tuned)) {
        error = "'" + zor::os::Utf16ToUtf8(tuned.GetNameW()) + "' is not a control of the open tuned block";
        return false;
      }
      return true;
    }
    case ScriptActionKind::SysFx:
      if (!m_endpoint.SetSysFxDisabled(action.number == 0)) {
        error = "the endpoint has no system-effects switch to flip";
        return false;
      }
      return true;
    case ScriptActionKind::Stall:
      break;
  }
  error = "not a control action";
  return false;
}
