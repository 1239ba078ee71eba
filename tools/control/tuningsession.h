#pragma once
// TuningSession: a tuning tool's hold on the shared settings block of one
// mode of one endpoint. The block exists while some process holds it, and
// every chain playing that mode follows it, so the session's life is the
// tuning's life: while the object lives the block does, and when the last
// holder lets go the chains return to their untuned values.
//
// Values are written as the engine reads them: every control of the mode as
// text, plus "APO4-Tuning Mode" (0 public only, 1 block under public, 2 block
// over public, other neither). One thread.
#include <string>

#include "config/zorapooperatingmode.h"
#include "config/zorutsvaluelist.h"
#include "control/controlendpoint.h"
#include "control/controlresult.h"
#include "system/zorapotunedsettings.h"

class TuningSession {
 public:
  // Creates or joins the block of `mode` on the endpoint; a block another
  // tool filled keeps its values.
  ControlResult Open(const ControlEndpoint& endpoint, const ZORAPOOperatingMode& mode);
  void Close();
  bool IsOpen() const { return m_tuned.IsOpen(); }

  // One control of the mode; refuses a name the mode does not have.
  ControlResult SetValue(const std::string& name, const std::string& text);
  // "APO4-Tuning Mode"; any number is stored, as the engine would read it.
  ControlResult SetTuningMode(int32_t tuningMode);
  // The block's content merged into the session's image.
  ControlResult Read(ZORUTSValueList& values);
  int32_t TuningMode() { return m_tuned.GetTuningMode(true); }

  const std::string& BlockName() const { return m_blockName; }
  const std::string& ModeText() const { return m_modeText; }

 private:
  ZORAPOTunedSettings m_tuned;
  ZORUTSValueList m_controls;  // the mode's controls, for the checks
  std::string m_blockName;
  std::string m_modeText;
};
