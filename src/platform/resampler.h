#pragma once

#include <cstdint>
#include <memory>

namespace zor::os {

// Rates and widths any converter here is asked to take. Outside them a
// converter would build filters of absurd length (a rate of 0xFFFFFFFF, the
// "not set" mark of an audio block, against 48 kHz) or allocate without
// bound, so SetFormat refuses them.
inline constexpr uint32_t kResamplerMinRate = 1000;
inline constexpr uint32_t kResamplerMaxRate = 768000;
inline constexpr uint32_t kResamplerMaxChannels = 64;

inline bool ResamplerFormatInRange(uint32_t inputRate, uint32_t outputRate, uint32_t channels) {
  return inputRate >= kResamplerMinRate && inputRate <= kResamplerMaxRate &&
         outputRate >= kResamplerMinRate && outputRate <= kResamplerMaxRate && channels != 0 &&
         channels <= kResamplerMaxChannels;
}

// A streaming sample-rate converter of interleaved 32-bit float audio. It
// keeps its filter state between calls, so that a stream cut into blocks
// converts as if whole. On Windows it is the system's audio resampler media
// object, and speexdsp where that object is missing or refuses the format;
// elsewhere speexdsp.
//
// SetFormat belongs to the thread that builds a chain (or to the audio
// thread when a block arrives in a new format); Convert to the audio thread.
// One thread at a time.
class Resampler {
 public:
  enum class Engine {
    kNone,         // not set up, or the last SetFormat failed
    kMediaObject,  // the Windows audio resampler
    kSpeexDsp,
  };

  Resampler();
  ~Resampler();
  Resampler(const Resampler&) = delete;
  Resampler& operator=(const Resampler&) = delete;

  // Sets the converter up afresh for the two rates and the channel count,
  // dropping any filter state. False when no converter takes the format;
  // Convert then fails until a SetFormat succeeds.
  bool SetFormat(uint32_t inputRate, uint32_t outputRate, uint32_t channels);

  // Takes up to `inputSamples` interleaved samples from `input` and gives out
  // up to `outputSamples` into `output`; on return the two counts say how
  // many were consumed and produced, whole frames only. What the filter
  // holds back comes out in later calls. False when not set up or when the
  // converter fails; the counts are then 0. No allocation once set up.
  // audio thread
  bool Convert(const float* input, uint32_t& inputSamples, float* output,
               uint32_t& outputSamples);

  Engine GetEngine() const;
  // True when the last SetFormat could not create the platform's media
  // object at all (as opposed to the object refusing the format). Never true
  // where the platform has none.
  bool MediaObjectUnavailable() const;
  // Delay of the filter in frames at the input rate, as the converter
  // reports it; 0 when not set up or unknown.
  uint32_t GetInputLatency() const;

 private:
  struct State;
  std::unique_ptr<State> m_state;  // made by the first SetFormat
};

}  // namespace zor::os
