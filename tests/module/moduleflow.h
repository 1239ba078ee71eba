#pragma once
// The flow a host runs on each class made through the module's factory,
// shared by the Linux library test and the Windows test:
// GetRegistrationProperties against the class's engine key, Initialize,
// formats, lock, one second of a tone (render 48 kHz stereo, capture 16 kHz
// mono), unlock, release. The configuration trims every location by 6 dB,
// so on an endpoint the manager binds to the tone comes out at half its
// amplitude; unbound, it passes unchanged.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "apo/zoraporegproperties.h"
#include "engine/zorengineemulator.h"
#include "module/zoraporegistrykeys.h"

namespace velapo::test {

inline ZOREngineEmulator::Stream FlowStream(const std::u16string& endpoint, bool capture) {
  ZOREngineEmulator::Stream stream;
  stream.endpointGuid = endpoint;
  stream.newerBlock = !capture;
  stream.inputChannels = stream.outputChannels = capture ? 1 : 2;
  stream.rate = capture ? 16000.0f : 48000.0f;
  stream.maxFrames = capture ? 160 : 480;
  return stream;
}

// Runs the flow on `object` (which the caller keeps) and checks every step.
inline void RunFlow(IUnknown* object, const ZORAPORegisteredClass& key, const ZOREngineEmulator::Stream& stream,
                    bool bound = true) {
  ZOREngineEmulator engine(stream);
  ASSERT_EQ(engine.Adopt(object), S_OK);
  APO_REG_PROPERTIES* properties = nullptr;
  ASSERT_EQ(engine.Object()->GetRegistrationProperties(&properties), S_OK);
  const APO_REG_PROPERTIES fromKey = key.ToRecord();
  EXPECT_EQ(std::memcmp(properties, &fromKey, sizeof(fromKey)), 0);
  CoTaskMemFree(properties);
  ASSERT_EQ(engine.Initialize(), S_OK);
  ASSERT_EQ(engine.NegotiateFormats(), S_OK);
  ASSERT_EQ(engine.Lock(), S_OK);
  const uint32_t frames = stream.maxFrames;
  const uint32_t channels = stream.inputChannels;
  std::vector<float> block(size_t{frames} * channels);
  double inEnergy = 0;
  double outEnergy = 0;
  const uint32_t buffers = static_cast<uint32_t>(stream.rate) / frames;  // one second
  for (uint32_t b = 0; b < buffers; ++b) {
    for (uint32_t f = 0; f < frames; ++f) {
      const float sample = 0.5f * static_cast<float>(std::sin(2 * 3.14159265358979 * 440.0 * (b * frames + f) / stream.rate));
      for (uint32_t c = 0; c < channels; ++c) block[f * channels + c] = sample;
    }
    ASSERT_EQ(engine.Process(block, BUFFER_VALID), static_cast<uint32_t>(BUFFER_VALID));
    if (b < buffers / 2) continue;  // past start-up, fades and latency
    for (size_t i = 0; i < block.size(); ++i) {
      inEnergy += double(block[i]) * block[i];
      outEnergy += double(engine.Output()[i]) * engine.Output()[i];
    }
  }
  EXPECT_NEAR(std::sqrt(outEnergy / inEnergy), bound ? std::pow(10.0, -6.0 / 20.0) : 1.0, 0.01);
  EXPECT_EQ(engine.Unlock(), S_OK);
  engine.Release();
}

}  // namespace velapo::test
