#pragma once

#include <cstdint>

struct SpeexResamplerState_;

namespace zor::os {

// speexdsp's resampler behind the few operations the platform's Resampler
// needs; the converter on Linux, and the fallback on Windows. Used only by
// the back ends of Resampler.
//
// Quality 5 is the lowest of speexdsp's levels whose round trip between
// 44.1 and 48 kHz keeps distortion, images and aliases below -95 dB and the
// response flat to 16 kHz; it costs about 0.9 ms of delay per direction.
// Level 6 lets an alias just above 22.05 kHz through at -74 dB, and the
// levels from 7 up double the delay for no audible gain (docs/resampling.md
// has the measurements).
class SpeexResampler {
 public:
  static constexpr int kQuality = 5;

  SpeexResampler() = default;
  ~SpeexResampler();
  SpeexResampler(const SpeexResampler&) = delete;
  SpeexResampler& operator=(const SpeexResampler&) = delete;

  // A fresh filter for the format; false if speexdsp refuses it, leaving no
  // filter.
  bool SetFormat(uint32_t inputRate, uint32_t outputRate, uint32_t channels);
  // As Resampler::Convert. audio thread
  bool Convert(const float* input, uint32_t& inputSamples, float* output,
               uint32_t& outputSamples);
  void Release();
  bool IsReady() const { return m_state != nullptr; }
  uint32_t GetInputLatency() const;

 private:
  SpeexResamplerState_* m_state = nullptr;
  uint32_t m_channels = 0;
};

}  // namespace zor::os
