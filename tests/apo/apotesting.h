#pragma once
// What the effect-object tests share: endpoints in the private store whose
// configuration is a copy of an example or test file, and streams on them.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "apo/zoraporegproperties.h"
#include "endpointfixture.h"
#include "engine/zorengineemulator.h"
#include "engine/zorengineendpoint.h"
#include "platform/text.h"

namespace velapo::test {

inline const CLSID& ClassId(uint32_t location) {
  return location == kZORLocationCapture ? ZORAPOCaptureClass().regProperties->clsid
                                         : ZORAPORenderClass(location)->regProperties->clsid;
}
inline std::filesystem::path ExampleFile(const char* name) { return std::filesystem::path(VELAPO_EXAMPLES_DIR) / name; }
inline std::filesystem::path DataFile(const char* name) { return std::filesystem::path(VELAPO_TEST_DATA_DIR) / name; }

class APOEndpoint : public EndpointStore {
 protected:
  void TearDown() override {
    m_endpoints.clear();
    std::filesystem::remove_all(m_dir);
    EndpointStore::TearDown();
  }
  // A fresh endpoint on a copy of `source`: the configuration cache keys on paths.
  const ZOREngineEndpoint& MakeEndpoint(const std::filesystem::path& source, bool render = true) {
    const std::u16string guid = FreshEndpointGuid();
    std::filesystem::create_directories(m_dir);
    const std::filesystem::path config = m_dir / (zor::os::Utf16ToUtf8(guid) + ".xml");
    std::filesystem::copy_file(source, config);
    m_endpoints.push_back(std::make_unique<ZOREngineEndpoint>(guid, config, render));
    EXPECT_TRUE(m_endpoints.back()->IsValid());
    return *m_endpoints.back();
  }
  static ZOREngineEmulator::Stream StreamOn(const std::u16string& guid, uint32_t channels = 2) {
    ZOREngineEmulator::Stream stream;
    stream.endpointGuid = guid;
    stream.inputChannels = stream.outputChannels = channels;
    return stream;
  }

 private:
  std::filesystem::path m_dir =
      std::filesystem::temp_directory_path() / ("velapo-apo-" + zor::os::Utf16ToUtf8(FreshEndpointGuid()));
  std::vector<std::unique_ptr<ZOREngineEndpoint>> m_endpoints;
};

// `frames` frames of `channels` channels, sample i being `start` + i.
inline std::vector<float> Ramp(uint32_t frames, uint32_t channels, float start = 1.0f) {
  std::vector<float> samples(size_t{frames} * channels);
  for (size_t i = 0; i < samples.size(); ++i) samples[i] = start + static_cast<float>(i);
  return samples;
}

}  // namespace velapo::test
