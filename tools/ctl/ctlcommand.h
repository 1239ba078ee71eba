#pragma once
// CtlCommand: one subcommand of velapo-ctl. The constructor declares its
// options on the parser; after parsing, the one chosen runs.
class CtlSession;

class CtlCommand {
 public:
  virtual ~CtlCommand() = default;
  virtual bool Chosen() const = 0;
  // The exit code (ctlexitcode.h).
  virtual int Run(const CtlSession& session) = 0;
};
