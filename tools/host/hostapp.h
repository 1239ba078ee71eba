#pragma once
// velapo-host's two jobs behind its command line: play a file through a
// stage and report, and make the example programme. Both answer an exit code
// and say what went wrong on `err`.

#include <cstdint>
#include <iosfwd>
#include <string>

struct HostOptions {
  std::string input;
  std::string output;
  std::string config = "examples/laptop.xml";
  bool configGiven = false;
  uint32_t location = 1;  // SFX
  std::string locationName = "SFX";
  uint32_t blockMs = 10;
  std::string stage = "apo";
  std::string module;     // the apo stage's module file; empty: the default
  std::string store;      // with endpoint: join that store
  std::string endpoint;
  bool realtime = false;
  std::string script;
  std::string report;
  bool quiet = false;
};

enum HostExit : int {
  kExitOk = 0,
  kExitBadInput = 1,    // a file, configuration, script or endpoint that cannot be used
  kExitCannotWrite = 2, // the output or the report could not be written
};

int RunHost(const HostOptions& options, std::ostream& out, std::ostream& err);
int RunGenerate(const std::string& path, double seconds, uint32_t rate, std::ostream& err);
