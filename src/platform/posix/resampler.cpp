#include "platform/resampler.h"

#include "platform/speexresampler.h"

namespace zor::os {

struct Resampler::State {
  SpeexResampler speex;
};

Resampler::Resampler() = default;
Resampler::~Resampler() = default;

bool Resampler::SetFormat(uint32_t inputRate, uint32_t outputRate, uint32_t channels) {
  if (!m_state) {
    m_state = std::make_unique<State>();
  }
  if (!ResamplerFormatInRange(inputRate, outputRate, channels)) {
    m_state->speex.Release();
    return false;
  }
  return m_state->speex.SetFormat(inputRate, outputRate, channels);
}

// audio thread
bool Resampler::Convert(const float* input, uint32_t& inputSamples, float* output,
                        uint32_t& outputSamples) {
  if (!m_state) {
    inputSamples = 0;
    outputSamples = 0;
    return false;
  }
  return m_state->speex.Convert(input, inputSamples, output, outputSamples);
}

Resampler::Engine Resampler::GetEngine() const {
  return m_state && m_state->speex.IsReady() ? Engine::kSpeexDsp : Engine::kNone;
}

bool Resampler::MediaObjectUnavailable() const { return false; }

uint32_t Resampler::GetInputLatency() const {
  return m_state ? m_state->speex.GetInputLatency() : 0;
}

}  // namespace zor::os
