#pragma once
// velapo-ctl devices: the capture devices and their states, and with --watch
// every change after, as the device monitor reports them.
#include <CLI/CLI.hpp>

#include "ctl/ctlcommand.h"

class DevicesCommand : public CtlCommand {
 public:
  explicit DevicesCommand(CLI::App& app);
  int Run(const CtlSession& session) override;

 private:
  bool m_watch = false;
  double m_seconds = -1;
};
