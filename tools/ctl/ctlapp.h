#pragma once
// CtlApp: velapo-ctl's command line and dispatch, apart from main so that the
// tests run it in-process with their own streams.
#include <atomic>
#include <iosfwd>
#include <string>
#include <vector>

class CtlApp {
 public:
  // Parses `args` (without the program name), runs the chosen command and
  // answers its exit code (ctl/ctlexitcode.h). `interrupted` ends live views
  // and holds early.
  static int Run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
                 std::istream& in, const std::atomic<bool>& interrupted);
};
