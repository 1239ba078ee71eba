#include "ctl/endpointscommand.h"

#include <ostream>

#include "control/controlpanel.h"
#include "ctl/ctlexitcode.h"
#include "ctl/ctlsession.h"

EndpointsCommand::EndpointsCommand(CLI::App& app) {
  m_command = app.add_subcommand("endpoints", "List, add and remove endpoints; pick the default; "
                                              "switch an endpoint's system effects");
  m_command->require_subcommand(0, 1);
  m_list = m_command->add_subcommand("list", "List the endpoints in the store (the default action)");

  m_add = m_command->add_subcommand("add", "Add an active endpoint to the store");
  m_add->add_option("guid", m_spec.guid, "The endpoint's GUID, {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}")
      ->required();
  m_add->add_option("--config", m_spec.configPath, "Configuration file the endpoint uses");
  m_add->add_option("--settings-key", m_spec.settingsKey,
                    "Settings key under HKEY_LOCAL_MACHINE (default Software\\VEL\\APO\\{GUID})");
  m_add->add_option("--adapter", m_spec.adapterName, "Adapter name (part of the meters' names)");
  m_add->add_option("--description", m_spec.description, "Device description (part of the meters' names)");
  m_add->add_flag("--no-sysfx", m_noSysfx, "Start with system effects switched off");

  m_remove = m_command->add_subcommand("remove", "Remove an endpoint's keys from the store");
  m_remove->add_option("guid", m_guid, "The endpoint's GUID")->required();
  m_remove->add_flag("--purge", m_purge, "Remove its settings key too");

  m_default = m_command->add_subcommand("default", "Show the default render endpoint, or make GUID the default");
  m_default->add_option("guid", m_guid, "The endpoint to make the default");

  m_sysfx = m_command->add_subcommand("sysfx", "Switch the system effects of the endpoint (--endpoint) on or off");
  m_sysfx->add_option("state", m_switch, "on or off")->required()->check(CLI::IsMember({"on", "off"}));
}

int EndpointsCommand::Run(const CtlSession& session) {
  if (m_add->parsed()) {
    EndpointSpec spec = m_spec;
    spec.isRender = !session.options.capture;
    spec.systemEffects = !m_noSysfx;
    return session.Done(EndpointCatalog::Add(spec));
  }
  if (m_remove->parsed()) {
    return session.Done(EndpointCatalog::Remove(m_guid, !session.options.capture, m_purge));
  }
  if (m_default->parsed()) return Default(session);
  if (m_sysfx->parsed()) return SystemEffects(session);
  return List(session);
}

int EndpointsCommand::List(const CtlSession& session) const {
  std::vector<EndpointEntry> entries;
  if (ControlResult listed = EndpointCatalog::List(entries); !listed) {
    return session.Fail(listed, kCtlExitFailed);
  }
  if (session.options.json) {
    nlohmann::json list = nlohmann::json::array();
    for (const EndpointEntry& entry : entries) {
      list.push_back({{"guid", entry.guid},
                      {"flow", entry.isRender ? "render" : "capture"},
                      {"state", EndpointCatalog::StateName(entry.state)},
                      {"default", entry.isDefault},
                      {"name", entry.displayName},
                      {"settings_key", entry.settingsKey},
                      {"config", entry.configPath},
                      {"system_effects", entry.systemEffects}});
    }
    session.PrintJson(list);
    return kCtlExitOk;
  }
  if (entries.empty()) session.out << "no endpoints in the store\n";
  for (const EndpointEntry& entry : entries) {
    session.out << (entry.isDefault ? "* " : "  ") << entry.guid << "  "
                << (entry.isRender ? "render " : "capture") << "  "
                << EndpointCatalog::StateName(entry.state) << "  system effects "
                << (entry.systemEffects ? "on" : "off") << "  \"" << entry.displayName << "\"\n"
                << "      settings " << entry.settingsKey << "\n"
                << "      config   " << entry.configPath << "\n";
  }
  return kCtlExitOk;
}

int EndpointsCommand::Default(const CtlSession& session) const {
  if (!m_guid.empty()) return session.Done(EndpointCatalog::SetDefault(m_guid));
  std::string guid;
  if (ControlResult got = EndpointCatalog::GetDefault(guid); !got) {
    return session.Fail(got, kCtlExitFailed);
  }
  if (session.options.json) {
    session.PrintJson({{"default", guid}});
  } else {
    session.out << guid << "\n";
  }
  return kCtlExitOk;
}

int EndpointsCommand::SystemEffects(const CtlSession& session) const {
  ControlEndpoint endpoint;
  if (ControlResult opened = session.OpenEndpoint(endpoint, false); !opened) {
    return session.Fail(opened, kCtlExitFailed);
  }
  return session.Done(ControlPanel(endpoint).SetSystemEffects(m_switch == "on"));
}
