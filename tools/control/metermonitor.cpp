#include "control/metermonitor.h"

#include "platform/text.h"

ControlResult MeterMonitor::Open(const ControlEndpoint& endpoint) {
  for (uint32_t index = 0; index < kMeterCount; ++index) {
    std::u16string name;
    ZORAPOSharedMeter::BuildName(endpoint.Info(), index, name);
    m_names[index] = zor::os::Utf16ToUtf8(name);
    if (!m_meters[index].OpenCreateNamed(name)) {
      return ControlResult::Failure("cannot open the meter block " + m_names[index]);
    }
  }
  return ControlResult::Success();
}

ControlResult MeterMonitor::Read(uint32_t index, std::vector<float>& levels) {
  if (index >= kMeterCount) return ControlResult::Failure("no meter " + std::to_string(index));
  levels.assign(ZORAPOSharedMeter::kChannelCount, 0.0f);
  if (!m_meters[index].ReadWrite(levels, true)) {
    return ControlResult::Failure("the meter " + m_names[index] + " is busy or closed");
  }
  return ControlResult::Success();
}

ControlResult MeterMonitor::Zero() {
  std::vector<float> discarded;
  for (uint32_t index = 0; index < kMeterCount; ++index) {
    if (ControlResult read = Read(index, discarded); !read) return read;
  }
  return ControlResult::Success("meters cleared");
}
