#pragma once
#include <cstdint>

#include "audio/izoraudiodata.h"

// What every stage of a chain is. Init and the bypass belong to the thread
// that builds the chain, while the chain isn't running; GetLatency to any
// thread that owns the chain at that moment; Process to the audio thread.
template <typename T>
class IZORAudioProcess {
 public:
  virtual ~IZORAudioProcess() = default;

  // Prepares the stage for `channels` channels at `sampleRate`.
  virtual bool Init(uint32_t channels, uint32_t sampleRate) = 0;
  virtual void SetBypass(bool bypass) = 0;
  virtual bool GetBypass() const = 0;
  // Delay that the stage adds, in frames.
  virtual uint32_t GetLatency() const = 0;
  // Processes the block in place. Audio thread.
  virtual void Process(IZORAudioData<T>* data) = 0;

 protected:
  IZORAudioProcess() = default;
  IZORAudioProcess(const IZORAudioProcess&) = default;
  IZORAudioProcess& operator=(const IZORAudioProcess&) = default;
};
