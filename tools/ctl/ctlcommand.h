#pragma once
// CtlCommand: one subcommand of velapo-ctl. The constructor declares its
// options on the parser and keeps the subcommand in m_command; after
// parsing, the one chosen runs.
#include <CLI/CLI.hpp>

class CtlSession;

class CtlCommand {
 public:
  virtual ~CtlCommand() = default;
  bool Chosen() const { return m_command != nullptr && m_command->parsed(); }
  // The exit code (ctlexitcode.h).
  virtual int Run(const CtlSession& session) = 0;

 protected:
  CLI::App* m_command = nullptr;
};
