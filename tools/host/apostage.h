#pragma once
// The effect objects as the audio engine drives them, on the engine
// emulator: the class of the location made by its class id through the
// module's class factory, Initialize with the system-effects block (device
// collection, FX property store, processing mode), the format talks,
// LockForProcess, APOProcess per buffer with its flags (silent buffers
// marked), GetLatency, GetEffectsList, UnlockForProcess and release.
//
// The class comes from the built module (velapo64.dll, libvelapo.so), loaded
// as the engine loads it (hostmodule.h), so the objects under test are the
// ones a user installs.

#include <memory>
#include <string>

#include "engine/zorengineemulator.h"
#include "hostmodule.h"
#include "hoststage.h"

class ApoStage final : public IHostStage {
 public:
  // `modulePath` empty: the module HostModule finds by default.
  explicit ApoStage(std::string modulePath = {});
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
  std::string m_modulePath;
  HostModule* m_module = nullptr;  // loaded for the process's life
  std::unique_ptr<ZOREngineEmulator> m_engine;
  std::vector<float> m_input;  // sized at Start, so a buffer allocates nothing here
  uint32_t m_channelsIn = 0;
  uint32_t m_channelsOut = 0;
};
