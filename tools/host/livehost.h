#pragma once
// velapo-host live: the engine as a real-time JACK client. It makes (or
// joins) an endpoint in the settings store, opens ports for the stream's
// channels, and runs the effect object of one location on every period of
// the server, at the server's rate and period size, until Ctrl-C, a time
// limit, or the server going away. velapo-ctl steers it from elsewhere
// through the store, as a control panel steers the engine.
//
// Builds with JACK's development files on Linux; elsewhere LiveHostBuilt()
// is false and the subcommand is not offered.

#include <cstdint>
#include <iosfwd>
#include <string>

struct LiveOptions {
  std::string config = "examples/laptop.xml";
  uint32_t location = 1;  // SFX
  std::string locationName = "SFX";
  std::string store;      // with endpoint: join that store's endpoint
  std::string endpoint;
  std::string module;     // the engine's module file; empty: the default
  uint32_t channels = 2;
  std::string clientName = "velapo";
  bool connect = false;   // outputs to the sound card's playback ports
  double seconds = 0;     // 0: until Ctrl-C or the server goes
  std::string stats;      // JSON summary written at the end
  std::string log;        // the engine's log
  bool quiet = false;
};

// The server cannot be reached, or went away while the client ran.
constexpr int kExitNoServer = 3;

bool LiveHostBuilt();
int RunLive(const LiveOptions& options, std::ostream& out, std::ostream& err);
