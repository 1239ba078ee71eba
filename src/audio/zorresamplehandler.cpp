#include "audio/zorresamplehandler.h"

#include <algorithm>
#include <limits>

#include "audio/zoraudiodatafloat.h"

bool ZORResampleHandler::Init(uint32_t inputRate, uint32_t outputRate, uint32_t channels) {
  m_inputRate = inputRate;
  m_outputRate = outputRate;
  m_channels = channels;
  if (m_convert.SetFormat(inputRate, outputRate, channels) == ZORSampleRateConvert::kFormatFailed) {
    return false;
  }
  ZORAudioDataFloat silence;
  silence.Allocate(inputRate * 10 / 1000, channels, inputRate);
  ZORAudioDataFloat scratch;
  scratch.SetSampleRate(outputRate);
  return Convert(silence, scratch);
}

bool ZORResampleHandler::Restart() {
  if (m_inputRate == 0) {
    return false;
  }
  m_convert.Forget();
  return Init(m_inputRate, m_outputRate, m_channels);
}

// audio thread
bool ZORResampleHandler::Convert(IZORAudioData<float>& input, IZORAudioData<float>& output) {
  const uint32_t channels = input.GetChannels();
  const uint32_t inputRate = input.GetSampleRate();
  const uint32_t outputRate = output.GetSampleRate();
  if (m_convert.SetFormat(inputRate, outputRate, channels) == ZORSampleRateConvert::kFormatFailed) {
    return false;
  }

  const uint32_t frames = input.GetFrames();
  const uint64_t capacityFrames = uint64_t{frames} * outputRate / inputRate + kSpareFrames;
  if (capacityFrames * channels > std::numeric_limits<uint32_t>::max()) {
    return false;
  }
  const auto capacity = static_cast<uint32_t>(capacityFrames * channels);
  if (m_output.size() < capacity) {
    m_output.resize(capacity);
  }

  const float* in = input.GetData(false, true);
  uint32_t remainingIn = in != nullptr ? frames * channels : 0;
  uint32_t remainingOut = capacity;
  float* out = m_output.data();
  while (remainingIn > 0) {
    uint32_t consumed = remainingIn;
    uint32_t produced = remainingOut;
    if (!m_convert.Convert(in, consumed, out, produced)) {
      break;
    }
    // A converter that takes nothing and gives nothing (its output is full,
    // or it holds on to earlier input) would spin the audio thread; and one
    // that reports more than it was offered must not move the pointers out.
    if ((consumed == 0 && produced == 0) || consumed > remainingIn || produced > remainingOut) {
      break;
    }
    in += consumed;
    remainingIn -= consumed;
    out += produced;
    remainingOut -= produced;
  }
  input.ReleaseData();

  const uint32_t done = static_cast<uint32_t>(capacityFrames) - remainingOut / channels;
  output.Allocate(done, channels, outputRate);
  if (float* target = output.GetData(true, true)) {
    std::copy_n(m_output.data(), size_t{done} * channels, target);
  }
  output.ReleaseData();
  return true;
}
