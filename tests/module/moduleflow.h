#pragma once
// The flow a host runs on each class made through the module's factory,
// shared by the Linux library test and the Windows test:
// GetRegistrationProperties against the class's engine key, then Initialize
// to release with one second of a 100 Hz tone (render 48 kHz stereo, capture
// 16 kHz mono). The configuration trims every location by 6 dB, so bound to
// its endpoint an object lets half the amplitude through.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "engine/zorengineemulator.h"
#include "module/zoraporegistrykeys.h"

namespace velapo::test {

inline void RunFlow(IUnknown* object, const ZORAPORegisteredClass& key, const std::u16string& endpoint, bool capture) {
  ZOREngineEmulator::Stream stream;
  stream.endpointGuid = endpoint;
  stream.newerBlock = !capture;
  stream.inputChannels = stream.outputChannels = capture ? 1 : 2;
  stream.rate = capture ? 16000.0f : 48000.0f;
  stream.maxFrames = capture ? 160 : 480;  // one period of the tone: buffers repeat seamlessly
  ZOREngineEmulator engine(stream);
  ASSERT_EQ(engine.Adopt(object), S_OK);
  APO_REG_PROPERTIES* properties = nullptr;
  ASSERT_EQ(engine.Object()->GetRegistrationProperties(&properties), S_OK);
  const APO_REG_PROPERTIES fromKey = key.ToRecord();
  EXPECT_EQ(std::memcmp(properties, &fromKey, sizeof(fromKey)), 0);
  CoTaskMemFree(properties);
  std::vector<float> tone(size_t{stream.maxFrames} * stream.inputChannels);
  for (size_t i = 0; i < tone.size(); ++i) {
    tone[i] = 0.5f * float(std::sin(2 * 3.14159265358979 * double(i / stream.inputChannels) / stream.maxFrames));
  }
  ASSERT_EQ(engine.RunLifeCycle(tone, 100), S_OK);
  double in = 0, out = 0;
  for (size_t i = 0; i < tone.size(); ++i) in += tone[i] * tone[i], out += engine.Output()[i] * engine.Output()[i];
  EXPECT_NEAR(std::sqrt(out / in), std::pow(10.0, -6.0 / 20.0), 0.01);
  engine.Release();
}

}  // namespace velapo::test
