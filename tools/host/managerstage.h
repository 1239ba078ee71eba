#pragma once
// The process manager alone: bound by SetEndpointInfo, started by
// Initialize, fed by Process; a switch is seen through its client event,
// which the worker signals when it starts a fade.

#include <memory>

#include "hoststage.h"
#include "manager/zorapoprocessmanager.h"
#include "platform/event.h"

class ManagerStage final : public IHostStage {
 public:
  const char* Name() const override { return "manager"; }
  bool Start(HostEndpoint& endpoint, uint32_t location, HostFormat& format, std::string& error) override;
  uint32_t Process(const float* input, float* output, uint32_t frames, bool silent) override;
  bool TakeSwitch() override { return m_switched.Wait(0); }
  int64_t Latency() const override { return m_manager ? m_manager->GetLatency() : 0; }
  std::vector<std::string> Effects() const override { return {"n/a"}; }
  std::string ActiveChain() const override;
  void Stop() override { m_manager.reset(); }

 private:
  zor::os::Event m_switched{zor::os::EventReset::Auto, false};
  std::unique_ptr<ZORAPOProcessManager> m_manager;  // declared after the event it signals
};
