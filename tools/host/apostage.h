#pragma once
// The effect objects as the audio engine drives them, on the engine
// emulator: the class of the location made by its class id through the
// module's class factory, Initialize with the system-effects block (device
// collection, FX property store, processing mode), the format talks,
// LockForProcess, APOProcess per buffer with its flags (silent buffers
// marked), GetLatency, GetEffectsList, UnlockForProcess and release.
//
// The module is the one linked into this program, so that its objects share
// the program's settings store; its factory is the same code the shared
// library exports through DllGetClassObject.

#include <memory>

#include "engine/zorengineemulator.h"
#include "hoststage.h"
#include "module/czor_apomodule.h"

class ApoStage final : public IHostStage {
 public:
  ApoStage();
  ~ApoStage() override;
  const char* Name() const override { return "apo"; }
  bool Start(HostEndpoint& endpoint, uint32_t location, HostFormat& format, std::string& error) override;
  uint32_t Process(const float* input, float* output, uint32_t frames, bool silent) override;
  // The objects keep their chains to themselves: a switch cannot be seen.
  bool TakeSwitch() override { return false; }
  int64_t Latency() const override;
  std::vector<std::string> Effects() const override;
  std::string ActiveChain() const override { return "inside the effect object"; }
  void Stop() override;

 private:
  CZOR_APOModule m_module;
  std::unique_ptr<ZOREngineEmulator> m_engine;
  std::vector<float> m_input;  // sized at Start, so a buffer allocates nothing here
  uint32_t m_channelsIn = 0;
  uint32_t m_channelsOut = 0;
};
