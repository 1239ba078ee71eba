#include "hostcontrol.h"

bool HostControl::Check(const ControlResult& result, std::string& error) const {
  if (!result.ok) error = result.message;
  return result.ok;
}

bool HostControl::Open(const std::string& guidText, uint32_t location, std::string& error) {
  return Check(m_endpoint.Open(guidText), error) && Check(m_endpoint.LoadConfiguration({}, location), error);
}

bool HostControl::Apply(const ScriptAction& action, std::string& error) {
  ZORAPOOperatingMode mode;
  ZORAPOModeId id;
  switch (action.kind) {
    case ScriptActionKind::Mode:
      return Check(m_panel.SetMode(action.value.empty() ? action.text : action.text + "/" + action.value, id), error);
    case ScriptActionKind::Public:
      return Check(m_panel.PickMode({}, mode), error) &&
             Check(m_panel.WritePublicSetting(mode, action.text, action.value), error);
    case ScriptActionKind::Global:
      return Check(m_panel.WriteGlobalSetting(action.text, action.value), error);
    case ScriptActionKind::TuneOpen:
      m_tuning.Close();
      return Check(m_panel.PickMode({}, mode), error) && Check(m_tuning.Open(m_endpoint, mode), error);
    case ScriptActionKind::Tune:
    case ScriptActionKind::TuneMode:
      if (!m_tuning.IsOpen()) {
        error = "no tuned block is open ('tune open' first)";
        return false;
      }
      return Check(action.kind == ScriptActionKind::Tune
                       ? m_tuning.SetValue(action.text, action.value)
                       : m_tuning.SetTuningMode(static_cast<int32_t>(action.number)),
                   error);
    case ScriptActionKind::SysFx:
      return Check(m_panel.SetSystemEffects(action.number != 0), error);
    case ScriptActionKind::Stall:
      break;
  }
  error = "not a control action";
  return false;
}
