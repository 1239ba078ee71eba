#pragma once
// velapo-ctl input-level DEVICE: what a microphone hears, as a live level
// bar from the peak input monitor, or one reading for a script.
#include <string>

#include <CLI/CLI.hpp>

#include "ctl/ctlcommand.h"

class InputLevelCommand : public CtlCommand {
 public:
  explicit InputLevelCommand(CLI::App& app);
  int Run(const CtlSession& session) override;

 private:
  std::string m_device;
  bool m_once = false;
  double m_seconds = -1;
};
