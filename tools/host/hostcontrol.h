#pragma once
// What a control panel does to an endpoint, carried out through the stores
// the engine watches: the stored mode, a mode's public settings, the global
// settings, a tuned block in shared memory, the system-effects switch. It
// never touches a stream. A thin stand-in for the shared control library:
// velapo-ctl's code takes its place once both live in one tree.
//
// One thread at a time (the script's control thread).

#include <memory>
#include <string>

#include "config/zorapoconfigurationfile.h"
#include "config/zorapooperatingmode.h"
#include "hostscript.h"
#include "system/zorapoendpointinfo.h"

class ZORAPOTunedSettings;

class HostControl {
 public:
  // `config` is the endpoint's configuration, loaded by the caller.
  HostControl(const ZORAPOEndpointInfo& endpoint, const ZORAPOConfigurationFile& config);
  ~HostControl();
  HostControl(const HostControl&) = delete;
  HostControl& operator=(const HostControl&) = delete;

  // Carries out one control action. False, with `error` saying why (an
  // unknown mode, a setting the mode does not make public, a tuned value
  // before "tune open", a store that refuses), and nothing written.
  bool Apply(const ScriptAction& action, std::string& error);

  // The mode public settings and tuning address: the stored mode when the
  // store has one, else the configuration's default; then the last mode set.
  const ZORAPOModeId& CurrentMode() const { return m_mode; }

 private:
  bool SetMode(const ScriptAction& action, std::string& error);
  bool FindCurrentMode(ZORAPOOperatingMode& mode, std::string& error) const;

  ZORAPOEndpointInfo m_endpoint;
  const ZORAPOConfigurationFile& m_config;
  ZORAPOModeId m_mode;
  std::unique_ptr<ZORAPOTunedSettings> m_tuned;  // kept open while the script runs, as a tuning tool does
};
