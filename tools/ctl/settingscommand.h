#pragma once
// velapo-ctl settings: a mode's public controls (list, get, set) and the
// global settings.
#include <string>

#include <CLI/CLI.hpp>

#include "ctl/ctlcommand.h"

class SettingsCommand : public CtlCommand {
 public:
  explicit SettingsCommand(CLI::App& app);
  int Run(const CtlSession& session) override;

 private:
  CLI::App* m_list = nullptr;
  CLI::App* m_get = nullptr;
  CLI::App* m_set = nullptr;
  CLI::App* m_global = nullptr;
  std::string m_mode;
  std::string m_name;
  std::string m_value;
};
