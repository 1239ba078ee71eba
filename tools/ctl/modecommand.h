#pragma once
// velapo-ctl mode: list the configuration's modes, get the one in effect,
// set the user's choice.
#include <string>

#include <CLI/CLI.hpp>

#include "ctl/ctlcommand.h"

class ModeCommand : public CtlCommand {
 public:
  explicit ModeCommand(CLI::App& app);
  int Run(const CtlSession& session) override;

 private:
  CLI::App* m_list = nullptr;
  CLI::App* m_get = nullptr;
  CLI::App* m_set = nullptr;
  std::string m_mode;
};
