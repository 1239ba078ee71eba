#pragma once
// velapo-ctl check: load a configuration and report what it holds and which
// controls would reach nothing.
#include <string>

#include <CLI/CLI.hpp>

#include "ctl/ctlcommand.h"

class CheckCommand : public CtlCommand {
 public:
  explicit CheckCommand(CLI::App& app);
  int Run(const CtlSession& session) override;

 private:
  std::string m_file;
  std::string m_techModule;
};
