#pragma once
// ControlPanel: the user's settings of one endpoint, written where and as the
// engine reads them: the mode choice ("VelApoCurrOpMode"), a mode's public
// controls (its "ApoOpMode:..." value), the global settings ("VelApoGlobal"),
// all property blobs under the endpoint's settings key, and the system-effects
// switch in the endpoint's FxProperties. Names and values are checked against
// the loaded configuration first, so nothing the engine would drop is stored.
//
// Works on an endpoint that is open and has its configuration loaded; one
// thread.
#include <string>

#include "config/zorapomodeid.h"
#include "config/zorutsvaluelist.h"
#include "control/controlendpoint.h"
#include "control/controlresult.h"

class ControlPanel {
 public:
  explicit ControlPanel(const ControlEndpoint& endpoint) : m_endpoint(endpoint) {}

  // The mode in effect: the stored choice when there is a valid one
  // (`stored` true), else the configuration's default.
  ControlResult GetMode(ZORAPOModeId& id, bool& stored) const;
  // Stores the mode `text` names (see ControlEndpoint::ResolveMode); `id`
  // becomes the mode stored.
  ControlResult SetMode(const std::string& text, ZORAPOModeId& id) const;

  // The mode `text` names, or the mode in effect when `text` is empty.
  ControlResult PickMode(const std::string& text, ZORAPOOperatingMode& mode) const;

  // A mode's public controls with their stored values (defaults where none
  // is stored).
  ControlResult ReadPublicSettings(const ZORAPOOperatingMode& mode, ZORUTSValueList& values) const;
  // Stores one public control of `mode`; refuses a name the mode does not
  // make public, listing those it does.
  ControlResult WritePublicSetting(const ZORAPOOperatingMode& mode, const std::string& name,
                                   const std::string& text) const;

  ControlResult ReadGlobalSettings(ZORUTSValueList& values) const;
  // Only "APO4-Process Enable" and "APO4-Auto Content Mode Enable" exist.
  ControlResult WriteGlobalSetting(const std::string& name, const std::string& text) const;

  // Sets PKEY_AudioEndpoint_Disable_SysFx in the endpoint's FxProperties;
  // the engine's endpoint tools see the change.
  ControlResult SetSystemEffects(bool enabled) const;

 private:
  const ControlEndpoint& m_endpoint;
};
