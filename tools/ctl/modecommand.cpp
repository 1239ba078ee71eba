#include "ctl/modecommand.h"

#include <ostream>

#include "control/controlpanel.h"
#include "ctl/ctlexitcode.h"
#include "ctl/ctlsession.h"

ModeCommand::ModeCommand(CLI::App& app) {
  m_command = app.add_subcommand("mode", "The operating mode: list the file's modes, get or set the choice");
  m_command->require_subcommand(0, 1);
  m_list = m_command->add_subcommand("list", "The modes of the endpoint's configuration, the one in effect marked");
  m_get = m_command->add_subcommand("get", "The mode in effect (the default action)");
  m_set = m_command->add_subcommand("set", "Store the user's choice of mode");
  m_set->add_option("mode", m_mode,
                    "\"Operating Mode[/Speaker Type]\", e.g. APO4-Movie/APO4-Headphones or Movie")
      ->required();
}

int ModeCommand::Run(const CtlSession& session) {
  ControlEndpoint endpoint;
  if (ControlResult opened = session.OpenEndpoint(endpoint, true); !opened) {
    return session.Fail(opened, kCtlExitFailed);
  }
  const ControlPanel panel(endpoint);
  if (m_set->parsed()) {
    ZORAPOModeId id;
    return session.Done(panel.SetMode(m_mode, id));
  }
  ZORAPOModeId current;
  bool stored = false;
  if (ControlResult got = panel.GetMode(current, stored); !got) {
    return session.Fail(got, kCtlExitFailed);
  }
  const std::string currentText = ControlEndpoint::ModeText(current);
  const std::string defaultText = ControlEndpoint::ModeText(endpoint.Configuration().GetDefaultMode());
  if (m_list->parsed()) {
    if (session.options.json) {
      nlohmann::json modes = nlohmann::json::array();
      for (const std::string& name : endpoint.ModeTexts()) {
        modes.push_back({{"mode", name}, {"current", name == currentText}, {"default", name == defaultText}});
      }
      session.PrintJson(modes);
    } else {
      for (const std::string& name : endpoint.ModeTexts()) {
        session.out << (name == currentText ? "* " : "  ") << name
                    << (name == defaultText ? "  (default)" : "") << "\n";
      }
    }
    return kCtlExitOk;
  }
  if (session.options.json) {
    session.PrintJson({{"mode", currentText}, {"stored", stored}, {"default", defaultText}});
  } else {
    session.out << currentText << (stored ? "" : "  (the configuration's default; none stored)") << "\n";
  }
  return kCtlExitOk;
}
