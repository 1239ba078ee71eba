#pragma once
#include <cstdint>

#include "platform/resampler.h"

// One direction of sample-rate conversion of interleaved float audio, on the
// platform's converter (the system's resampler media object on Windows,
// speexdsp elsewhere). The converter keeps its filter state between calls,
// so a stream converts block after block as if it were whole.
//
// SetFormat belongs to the thread that builds a chain, or to the audio
// thread when a block arrives in a new format; Convert to the audio thread.
// One thread at a time.
class ZORSampleRateConvert {
 public:
  enum SetFormatResult : uint32_t {
    kFormatFailed = 0,
    kFormatSetUp = 1,      // set up anew: the filter starts from silence
    kFormatUnchanged = 2,  // as before: the filter keeps its state
  };

  ZORSampleRateConvert() = default;
  ZORSampleRateConvert(const ZORSampleRateConvert&) = delete;
  ZORSampleRateConvert& operator=(const ZORSampleRateConvert&) = delete;

  // Sets the converter up for the format unless it stands so already. A rate
  // or channel count of 0, or a format the converter refuses, fails and
  // clears the stored format. Equal rates need no converter: Convert copies.
  uint32_t SetFormat(uint32_t inputRate, uint32_t outputRate, uint32_t channels);

  // Converts up to `inputSamples` interleaved samples into at most
  // `outputSamples`; on return the counts say how many were consumed and
  // produced. With equal rates the smaller count is copied. False when no
  // converter is set up or it failed. audio thread
  bool Convert(const float* input, uint32_t& inputSamples, float* output,
               uint32_t& outputSamples);

  // Forgets the format, so that the next SetFormat sets the converter up
  // anew even for the same one.
  void Forget() { m_inputRate = m_outputRate = m_channels = 0; }
  uint32_t GetInputRate() const { return m_inputRate; }
  uint32_t GetOutputRate() const { return m_outputRate; }
  uint32_t GetChannels() const { return m_channels; }
  // Which converter does the work; for diagnostics and tests.
  zor::os::Resampler::Engine GetEngine() const { return m_converter.GetEngine(); }
  // Delay of the converter's filter in input frames, 0 when unknown.
  uint32_t GetInputLatency() const { return m_converter.GetInputLatency(); }

 private:
  bool InitMediaObject(uint32_t channels);

  uint32_t m_inputRate = 0;
  uint32_t m_outputRate = 0;
  uint32_t m_channels = 0;
  zor::os::Resampler m_converter;
};
