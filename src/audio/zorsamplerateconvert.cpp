#include "audio/zorsamplerateconvert.h"

#include <algorithm>

#include "core/zorlog.h"

uint32_t ZORSampleRateConvert::SetFormat(uint32_t inputRate, uint32_t outputRate,
                                         uint32_t channels) {
  // Checked before the comparison: the stored format starts all 0, and a
  // block that arrives with no rate must not pass as "unchanged".
  if (inputRate == 0 || outputRate == 0 || channels == 0) {
    m_inputRate = m_outputRate = m_channels = 0;
    return kFormatFailed;
  }
  if (inputRate == m_inputRate && outputRate == m_outputRate && channels == m_channels) {
    return kFormatUnchanged;
  }
  m_inputRate = inputRate;
  m_outputRate = outputRate;
  m_channels = channels;
  if (inputRate == outputRate || InitMediaObject(channels)) {
    return kFormatSetUp;
  }
  m_inputRate = m_outputRate = m_channels = 0;
  return kFormatFailed;
}

bool ZORSampleRateConvert::InitMediaObject(uint32_t channels) {
  const bool ready = m_converter.SetFormat(m_inputRate, m_outputRate, channels);
  if (m_converter.MediaObjectUnavailable()) {
    // Still converting, on the fallback; worth a line all the same.
    ZOR_LOG("ZORSampleRateConvert::InitMediaObject Failed to initialize DMO object.\n");
  }
  return ready;
}

// audio thread
bool ZORSampleRateConvert::Convert(const float* input, uint32_t& inputSamples, float* output,
                                   uint32_t& outputSamples) {
  if (m_inputRate == m_outputRate && m_inputRate != 0) {
    const uint32_t count = std::min(inputSamples, outputSamples);
    if (count != 0) {
      std::copy_n(input, count, output);
    }
    inputSamples = outputSamples = count;
    return true;
  }
  if (m_inputRate == 0) {
    inputSamples = outputSamples = 0;
    return false;
  }
  return m_converter.Convert(input, inputSamples, output, outputSamples);
}
