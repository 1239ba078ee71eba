#pragma once
// What the effect-object tests share: endpoints in the private store whose
// configuration is a copy of an example or test file, and an engine emulator
// for a stream on them.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "apo/zoraporegproperties.h"
#include "endpointfixture.h"
#include "engine/zorengineemulator.h"
#include "platform/text.h"

namespace velapo::test {

inline const CLSID& ClassId(uint32_t location) {
  return location == kZORLocationCapture ? ZORAPOCaptureClass().regProperties->clsid
                                         : ZORAPORenderClass(location)->regProperties->clsid;
}

class APOEndpoint : public EndpointStore {
 protected:
  void TearDown() override {
    std::error_code ignored;
    std::filesystem::remove_all(m_dir, ignored);
    EndpointStore::TearDown();
  }
  // An active endpoint whose configuration is a copy of `source`; its GUID.
  std::u16string MakeEndpoint(const std::filesystem::path& source, bool render = true) {
    const std::u16string guid = FreshEndpointGuid();
    std::filesystem::create_directories(m_dir);
    const std::filesystem::path config = m_dir / (zor::os::Utf16ToUtf8(guid) + ".xml");
    std::filesystem::copy_file(source, config);
    const std::u16string key = Endpoint(guid, render);
    WriteDword(key, u"DeviceState", DEVICE_STATE_ACTIVE);
    WriteText(key + u"\\Properties", u"{7A8B74C8-FA66-4460-8542-D6119C59E9D4},2", config.u16string());
    // The settings key, as a setup leaves it: watched and read from the start.
    zor::os::RegKey settings;
    EXPECT_EQ(zor::os::RegKey::Create(std::u16string(ZORAPOEndpointInfo::kDefaultSettingsRoot) + u"\\" + guid,
                                      zor::os::kKeyAllAccess, settings),
              zor::os::RegStatus::Ok);
    return guid;
  }
  static ZOREngineEmulator::Stream StreamOn(const std::u16string& guid, uint32_t in = 2, uint32_t out = 2) {
    ZOREngineEmulator::Stream stream;
    stream.endpointGuid = guid;
    stream.inputChannels = in;
    stream.outputChannels = out;
    return stream;
  }

 private:
  std::filesystem::path m_dir = std::filesystem::temp_directory_path() /
                                ("velapo-apo-" + zor::os::Utf16ToUtf8(FreshEndpointGuid()));
};

inline std::filesystem::path ExampleFile(const char* name) {
  return std::filesystem::path(VELAPO_EXAMPLES_DIR) / name;
}
inline std::filesystem::path DataFile(const char* name) {
  return std::filesystem::path(VELAPO_TEST_DATA_DIR) / name;
}

// `frames` frames of `channels` channels, sample i being `start` + i.
inline std::vector<float> Ramp(uint32_t frames, uint32_t channels, float start = 1.0f) {
  std::vector<float> samples(size_t{frames} * channels);
  for (size_t i = 0; i < samples.size(); ++i) samples[i] = start + static_cast<float>(i);
  return samples;
}

}  // namespace velapo::test
