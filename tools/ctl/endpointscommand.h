#pragma once
// velapo-ctl endpoints: list, add, remove, default, sysfx.
#include <string>

#include <CLI/CLI.hpp>

#include "control/endpointcatalog.h"
#include "ctl/ctlcommand.h"

class EndpointsCommand : public CtlCommand {
 public:
  explicit EndpointsCommand(CLI::App& app);
  int Run(const CtlSession& session) override;

 private:
  int List(const CtlSession& session) const;
  int Default(const CtlSession& session) const;
  int SystemEffects(const CtlSession& session) const;

  CLI::App* m_list = nullptr;
  CLI::App* m_add = nullptr;
  CLI::App* m_remove = nullptr;
  CLI::App* m_default = nullptr;
  CLI::App* m_sysfx = nullptr;
  EndpointSpec m_spec;
  bool m_noSysfx = false;
  bool m_purge = false;
  std::string m_guid;
  std::string m_switch;
};
