#pragma once
// The built module as a host meets it, shared by the Linux library test and
// the Windows test: installed with the tech module in a directory of its
// own, then every class made and run the way hosts do. The flow on each:
// GetRegistrationProperties against the class's engine key, then Initialize
// to release with one second of a 100 Hz tone (render 48 kHz stereo, capture
// 16 kHz mono). The configuration trims every location by 6 dB, so bound to
// its endpoint an object lets half the amplitude through.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <functional>
#include <vector>

#include "apo/zoraporegproperties.h"
#include "apotesting.h"
#include "engine/zorengineemulator.h"
#include "module/czor_apomodule.h"
#include "module/zoraporegistrykeys.h"

namespace velapo::test {

using GetClassObjectFn = HRESULT (*)(REFCLSID, REFIID, void**);
using CanUnloadNowFn = HRESULT (*)();

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

class ModuleFlow : public APOEndpoint {
 protected:
  void TearDown() override {
    std::error_code ignored;
    std::filesystem::remove_all(m_dir, ignored);
    APOEndpoint::TearDown();
  }
  // The module and the tech module under their installed names; the module's path.
  std::filesystem::path Install(const std::filesystem::path& module, const char* moduleName,
                                const std::filesystem::path& tech, const char* techName) {
    m_dir = std::filesystem::temp_directory_path() / ("velapo-module-" + zor::os::Utf16ToUtf8(FreshEndpointGuid()));
    std::filesystem::create_directories(m_dir);
    std::filesystem::copy_file(module, m_dir / moduleName);
    std::filesystem::copy_file(tech, m_dir / techName);
    return m_dir / moduleName;
  }
  // Every class in registration order, its engine key read back, made by
  // `make` and run on `render` (capture too: the manager binds only to render
  // endpoints for now). The module stays in use while an object lives.
  static void RunEveryClass(const std::u16string& render, CanUnloadNowFn canUnloadNow,
                            const std::function<IUnknown*(size_t, const ZORAPORegisteredClass&)>& make) {
    const auto order = CZOR_APOModule::RegistrationOrder();
    for (size_t i = 0; i < order.size(); ++i) {
      SCOPED_TRACE(testing::Message() << "class " << i << " in registration order");
      ZORAPORegisteredClass key;
      ASSERT_EQ(ZORAPORegistryKeys(u"Software\\Classes").Read(order[i]->clsid, key), S_OK);
      IUnknown* object = make(i, key);
      ASSERT_NE(object, nullptr);
      RunFlow(object, key, render, order[i] == ZORAPOCaptureClass().regProperties);
      EXPECT_EQ(canUnloadNow(), S_FALSE);
      object->Release();
    }
    EXPECT_EQ(canUnloadNow(), S_OK);
  }
  // An object made through the class's factory, as the audio engine makes it; null on failure.
  static IUnknown* FromFactory(GetClassObjectFn getClassObject, REFCLSID clsid) {
    IClassFactory* factory = nullptr;
    IUnknown* object = nullptr;
    if (getClassObject(clsid, IID_IClassFactory, reinterpret_cast<void**>(&factory)) == S_OK) {
      factory->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(&object));
      factory->Release();
    }
    return object;
  }

  std::filesystem::path m_dir;
};

}  // namespace velapo::test
