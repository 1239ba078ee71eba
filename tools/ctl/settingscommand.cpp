#include "ctl/settingscommand.h"

#include <map>
#include <ostream>

#include "control/controlpanel.h"
#include "ctl/ctlexitcode.h"
#include "ctl/ctlsession.h"

namespace {

std::map<std::string, std::string> Sorted(const ZORUTSValueList& values) {
  std::map<std::string, std::string> sorted;
  for (const auto& [name, value] : values) sorted[name] = value.GetText();
  return sorted;
}

int Print(const CtlSession& session, const ZORUTSValueList& values, const std::string& only) {
  const auto sorted = Sorted(values);
  if (!only.empty() && !sorted.contains(only)) {
    return session.Fail(ControlResult::Failure("no setting named '" + only + "'"), kCtlExitFailed);
  }
  if (session.options.json) {
    nlohmann::json object = nlohmann::json::object();
    for (const auto& [name, text] : sorted) {
      if (only.empty() || name == only) object[name] = text;
    }
    session.PrintJson(object);
    return kCtlExitOk;
  }
  for (const auto& [name, text] : sorted) {
    if (only.empty()) {
      session.out << name << " = " << text << "\n";
    } else if (name == only) {
      session.out << text << "\n";
    }
  }
  return kCtlExitOk;
}

}  // namespace

SettingsCommand::SettingsCommand(CLI::App& app) {
  m_command = app.add_subcommand("settings", "A mode's public controls, and the global settings");
  m_command->require_subcommand(1);
  const char* modeHelp = "The mode (\"Operating Mode[/Speaker Type]\"); default: the mode in effect";
  m_list = m_command->add_subcommand("list", "The mode's public controls and their values");
  m_list->add_option("--mode", m_mode, modeHelp);
  m_get = m_command->add_subcommand("get", "One public control's value");
  m_get->add_option("name", m_name, "The control, e.g. \"SFX-EQ:PEQ-Band1 Gain\"")->required();
  m_get->add_option("--mode", m_mode, modeHelp);
  m_set = m_command->add_subcommand("set", "Store a public control's value");
  m_set->add_option("name", m_name, "The control")->required();
  m_set->add_option("value", m_value, "Its new value, as text")->required();
  m_set->add_option("--mode", m_mode, modeHelp);
  m_global = m_command->add_subcommand(
      "global", "The global settings: all of them, one (NAME), or set one (NAME VALUE)");
  m_global->add_option("name", m_name, "\"APO4-Process Enable\" or \"APO4-Auto Content Mode Enable\"");
  m_global->add_option("value", m_value, "The new value");
}

int SettingsCommand::Run(const CtlSession& session) {
  ControlEndpoint endpoint;
  if (ControlResult opened = session.OpenEndpoint(endpoint, true); !opened) {
    return session.Fail(opened, kCtlExitFailed);
  }
  const ControlPanel panel(endpoint);
  ZORUTSValueList values;
  if (m_global->parsed()) {
    if (m_global->count("value") > 0) return session.Done(panel.WriteGlobalSetting(m_name, m_value));
    if (ControlResult read = panel.ReadGlobalSettings(values); !read) {
      return session.Fail(read, kCtlExitFailed);
    }
    return Print(session, values, m_name);
  }
  ZORAPOOperatingMode mode;
  if (ControlResult picked = panel.PickMode(m_mode, mode); !picked) {
    return session.Fail(picked, kCtlExitFailed);
  }
  if (m_set->parsed()) return session.Done(panel.WritePublicSetting(mode, m_name, m_value));
  if (ControlResult read = panel.ReadPublicSettings(mode, values); !read) {
    return session.Fail(read, kCtlExitFailed);
  }
  return Print(session, values, m_get->parsed() ? m_name : std::string());
}
