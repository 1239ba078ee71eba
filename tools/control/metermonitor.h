#pragma once
// MeterMonitor: a reader of an endpoint's two shared level meters (0 the
// input, 1 the output of the effect). Reading takes each channel's highest
// level since the last read and clears the block, which starts the next
// measuring period, so a monitor that reads every 50 ms sees 50 ms peaks.
// Holding the meters open keeps their blocks, as the engine's own do.
// One thread.
#include <array>
#include <string>
#include <vector>

#include "control/controlendpoint.h"
#include "control/controlresult.h"
#include "system/zoraposharedmeter.h"

class MeterMonitor {
 public:
  static constexpr uint32_t kMeterCount = 2;

  ControlResult Open(const ControlEndpoint& endpoint);
  // Eight linear levels of meter `index`, the block cleared. Fails when the
  // mutex stays taken for the reader's millisecond; try again.
  ControlResult Read(uint32_t index, std::vector<float>& levels);
  // Clears both meters.
  ControlResult Zero();
  const std::string& BlockName(uint32_t index) const { return m_names.at(index); }

 private:
  std::array<ZORAPOSharedMeter, kMeterCount> m_meters;
  std::array<std::string, kMeterCount> m_names;
};
