#pragma once
// ZORAPOOperatingMode: what the user selects, a named set of controls and the
// chains of tech processes that realise it at one APO location. Built once by
// ZORAPOConfigurationFile and read-only after that; consumers work on their
// own copies (a copy is complete: lists, chains and all), so any thread may
// read its copy.

#include "config/zorapochaindefinition.h"
#include "config/zorapomodeid.h"
#include "config/zorutsvaluelist.h"

class ZORAPOOperatingMode {
 public:
  ZORAPOOperatingMode() = default;
  ZORAPOOperatingMode(const ZORAPOOperatingMode&) = default;
  ZORAPOOperatingMode& operator=(const ZORAPOOperatingMode&) = default;
  virtual ~ZORAPOOperatingMode() = default;

  virtual const ZORAPOModeId& GetModeId() const { return id; }
  virtual const ZORUTSValueList& GetPublicControls() const { return publicControls; }
  virtual const ZORUTSValueList& GetTunedControls() const { return tunedControls; }
  virtual const ZORUTSValueList& GetAllControls() const { return allControls; }
  virtual const ZORAPOChainDefinition& GetChainDefinition() const { return chainDefinition; }
  virtual bool GetAutoMic() const { return autoMic; }

  ZORAPOModeId id;
  // Controls an end user may change; their current values live in the
  // registry under the mode's registry name.
  ZORUTSValueList publicControls;
  // Defaults that only a tuning tool changes; the two identity names are
  // taken out.
  ZORUTSValueList tunedControls;
  // publicControls overlaid by tunedControls: the list a chain starts from.
  ZORUTSValueList allControls;
  ZORAPOChainDefinition chainDefinition;
  // An auto-microphone mode, preferred while the capture side is active.
  bool autoMic = false;
};
