#include "platform/speexresampler.h"

#include <speex/speex_resampler.h>

namespace zor::os {

SpeexResampler::~SpeexResampler() { Release(); }

bool SpeexResampler::SetFormat(uint32_t inputRate, uint32_t outputRate, uint32_t channels) {
  Release();
  int error = RESAMPLER_ERR_SUCCESS;
  m_state = speex_resampler_init(channels, inputRate, outputRate, kQuality, &error);
  if (m_state == nullptr || error != RESAMPLER_ERR_SUCCESS) {
    Release();
    return false;
  }
  m_channels = channels;
  return true;
}

// audio thread
bool SpeexResampler::Convert(const float* input, uint32_t& inputSamples, float* output,
                             uint32_t& outputSamples) {
  if (m_state == nullptr || input == nullptr || output == nullptr) {
    inputSamples = 0;
    outputSamples = 0;
    return false;
  }
  // speexdsp counts frames; a partial frame at the end stays unconsumed.
  spx_uint32_t inputFrames = inputSamples / m_channels;
  spx_uint32_t outputFrames = outputSamples / m_channels;
  const int error = speex_resampler_process_interleaved_float(m_state, input, &inputFrames,
                                                              output, &outputFrames);
  if (error != RESAMPLER_ERR_SUCCESS) {
    inputSamples = 0;
    outputSamples = 0;
    return false;
  }
  inputSamples = inputFrames * m_channels;
  outputSamples = outputFrames * m_channels;
  return true;
}

void SpeexResampler::Release() {
  if (m_state != nullptr) {
    speex_resampler_destroy(m_state);
    m_state = nullptr;
  }
  m_channels = 0;
}

uint32_t SpeexResampler::GetInputLatency() const {
  if (m_state == nullptr) {
    return 0;
  }
  const int latency = speex_resampler_get_input_latency(m_state);
  return latency > 0 ? static_cast<uint32_t>(latency) : 0;
}

}  // namespace zor::os
