#pragma once
// velapo-ctl tune: open a mode's tuned block and hold it while the command
// runs; set values and the tuning mode from arguments, then hold for a
// while, or take them line by line (interactive).
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "ctl/ctlcommand.h"

class TuningSession;

class TuneCommand : public CtlCommand {
 public:
  explicit TuneCommand(CLI::App& app);
  int Run(const CtlSession& session) override;

 private:
  // Applies "NAME=VALUE"; the result of the write, or why the text is wrong.
  static bool Apply(const CtlSession& session, TuningSession& tuning, const std::string& assignment);
  int Interactive(const CtlSession& session, TuningSession& tuning) const;
  void Hold(const CtlSession& session) const;
  static void Show(const CtlSession& session, TuningSession& tuning);

  std::string m_mode;
  int m_tuningMode = 0;
  std::vector<std::string> m_assignments;
  double m_holdSeconds = 0;
  bool m_interactive = false;
};
