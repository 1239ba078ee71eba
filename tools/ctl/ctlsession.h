#pragma once
// CtlSession: what every velapo-ctl command shares: the global options, the
// output streams, and the way to the endpoint a command works on (the one
// --endpoint names, else the default render endpoint).
#include <atomic>
#include <iosfwd>
#include <string>

#include <nlohmann/json.hpp>

#include "control/controlendpoint.h"
#include "control/controlresult.h"

struct CtlOptions {
  std::string storeRoot;
  std::string endpoint;    // GUID text; empty: the default render endpoint
  bool capture = false;    // the endpoint is a capture endpoint
  std::string configPath;  // overrides the endpoint's configuration
  bool json = false;
  bool verbose = false;
};

class CtlSession {
 public:
  CtlSession(const CtlOptions& chosen, std::ostream& output, std::ostream& errors,
             std::istream& input, const std::atomic<bool>& interruptFlag)
      : options(chosen), out(output), err(errors), in(input), interrupted(interruptFlag) {}

  // Opens the endpoint of the options, with its configuration loaded when
  // `withConfiguration`.
  ControlResult OpenEndpoint(ControlEndpoint& endpoint, bool withConfiguration) const;

  // Prints "velapo-ctl: <message>" on the error stream; the exit code.
  int Fail(const ControlResult& result, int code) const;
  // A result's message on the output (text mode) or {"ok":true,"message":..}.
  int Done(const ControlResult& result) const;
  void PrintJson(const nlohmann::json& value) const;

  const CtlOptions& options;
  std::ostream& out;
  std::ostream& err;
  std::istream& in;
  const std::atomic<bool>& interrupted;
};
