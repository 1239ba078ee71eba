#pragma once
// What a control panel does to the endpoint, for the script's control
// actions: the shared control library's operations (the same as velapo-ctl's)
// through the stores the engine watches. It never touches a stream. A tuned
// block opened by "tune open" stays open until the object dies, as a tuning
// tool keeps it.
//
// One thread at a time (the script's control thread).

#include <cstdint>
#include <string>

#include "control/controlendpoint.h"
#include "control/controlpanel.h"
#include "control/tuningsession.h"
#include "hostscript.h"

class HostControl {
 public:
  // Opens the endpoint `guidText` of the current store and loads its
  // configuration for `location`. False, with `error`, when either fails.
  bool Open(const std::string& guidText, uint32_t location, std::string& error);

  // Carries out one control action. False, with `error` saying why (an
  // unknown mode, a setting the mode does not make public, a tuned value
  // before "tune open", a store that refuses), and nothing written.
  bool Apply(const ScriptAction& action, std::string& error);

 private:
  bool Check(const ControlResult& result, std::string& error) const;

  ControlEndpoint m_endpoint;
  ControlPanel m_panel{m_endpoint};
  TuningSession m_tuning;
};
