#pragma once
// IZORUTSController: what receives tuning values at the end of their road,
// a process wrapper or a fixed stage of a chain. Called on the manager's
// worker thread; never on the audio thread.

#include <cstdint>
#include <vector>

#include "config/zorutscontrolinfo.h"
#include "config/zorutsvalue.h"

class IZORUTSController {
 public:
  virtual ~IZORUTSController() = default;

  // `value` names the control and receives its current value.
  virtual bool GetControl(ZORUTSValue& value) = 0;
  // False when the value is not addressed to this controller or not taken.
  virtual bool SetControl(const ZORUTSValue& value) = 0;
  // Fills `controls` with one entry per control and returns their count.
  virtual uint32_t EnumControls(std::vector<ZORUTSControlInfo>& controls) = 0;
  // Handed unchanged to the tech process's two pass-through operations; what
  // they mean is the tech module's own business. The chain passes its reset
  // flag as `code` of the second.
  virtual int32_t PassThroughFirst(uint32_t code, void* data, uint32_t size) = 0;
  virtual int32_t PassThroughSecond(uint32_t code, void* data, uint32_t size) = 0;
};
