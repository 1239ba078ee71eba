#pragma once
// velapo-ctl meters: the endpoint's shared level meters, as live bars on the
// terminal or read once for a script.
#include <CLI/CLI.hpp>

#include "ctl/ctlcommand.h"

class MetersCommand : public CtlCommand {
 public:
  explicit MetersCommand(CLI::App& app);
  int Run(const CtlSession& session) override;

 private:
  bool m_once = false;
  bool m_zero = false;
  int m_intervalMs = 100;
  unsigned m_channels = 2;
  double m_seconds = -1;
};
