#pragma once
// What the chain tests share: an endpoint in the private store whose
// configuration is a copy of a test or example file, workspaces for it,
// blocks through a chain, and a clock moved by hand.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "audio/zorapoprocesschain.h"
#include "audiotesting.h"
#include "config/zorapoconfigurationfile.h"
#include "endpointfixture.h"
#include "manualclock.h"
#include "platform/text.h"
#include "techtesting.h"

namespace velapo::test {

inline std::filesystem::path DataFile(const char* name) {
  return std::filesystem::path(VELAPO_TEST_DATA_DIR) / name;
}
inline std::filesystem::path ExampleFile(const char* name) {
  return std::filesystem::path(VELAPO_EXAMPLES_DIR) / name;
}

class ChainEndpoint : public EndpointStore {
 protected:
  void TearDown() override {
    m_infos.clear();
    m_devices.clear();
    ZORAPOProcessLibrary::SetModulePath(nullptr);
    std::error_code ignored;
    std::filesystem::remove_all(m_dir, ignored);
    EndpointStore::TearDown();
  }
  // A fresh endpoint whose configuration is a copy of `source`, under a path
  // of its own: the configuration cache keys on paths.
  const ZORAPOEndpointInfo& MakeEndpoint(const std::filesystem::path& source, bool render = true) {
    const std::u16string guid = FreshEndpointGuid();
    std::filesystem::create_directories(m_dir);
    configPath = m_dir / (zor::os::Utf16ToUtf8(guid) + ".xml");
    std::filesystem::copy_file(source, configPath);
    WriteText(Endpoint(guid, render) + u"\\Properties", u"{7A8B74C8-FA66-4460-8542-D6119C59E9D4},2",
              configPath.u16string());
    m_devices.push_back(std::make_unique<FakeDevice>((render ? u"{0.0.0.0}." : u"{0.0.1.0}.") + guid));
    m_infos.push_back(std::make_unique<ZORAPOEndpointInfo>());
    EXPECT_TRUE(m_infos.back()->SetDevice(m_devices.back().get(), render));
    return *m_infos.back();
  }
  // The default mode of the last endpoint's file at `location`.
  ZORAPOWorkspace Workspace(uint32_t location, uint32_t in, uint32_t out, uint32_t rate) {
    ZORAPOConfigurationFile config;
    EXPECT_EQ(config.Load(configPath.u16string(), 0, location), 0u);
    ZORAPOWorkspace workspace{*m_infos.back(), {}, LayoutFromChannels(in), LayoutFromChannels(out), rate};
    EXPECT_TRUE(config.FindMode(config.GetDefaultMode(), workspace.mode));
    return workspace;
  }
  static void UseProbeModule() {
    ZORAPOProcessLibrary::SetModulePath((techtest::TestModuleDirectory() / "a").u16string().c_str());
  }

  std::filesystem::path configPath;

 private:
  std::filesystem::path m_dir = std::filesystem::temp_directory_path() /
                                ("velapo-chain-" + zor::os::Utf16ToUtf8(FreshEndpointGuid()));
  std::vector<std::unique_ptr<FakeDevice>> m_devices;
  std::vector<std::unique_ptr<ZORAPOEndpointInfo>> m_infos;
};

// One block of interleaved `input` through `chain`; the output's samples.
inline std::vector<float> RunChain(ZORAPOProcessChain& chain, const std::vector<float>& input,
                                   uint32_t inChannels, uint32_t outChannels, uint32_t rate) {
  ZORAudioDataFloat in = Wrap(input, inChannels, rate), out;
  out.Allocate(in.GetFrames(), outChannels, rate);
  chain.Process(in, out, nullptr);
  return Interleaved(out);
}

inline double LevelDb(const std::vector<float>& samples) {
  double sum = 0;
  for (const float s : samples) sum += double(s) * s;
  return 10.0 * std::log10(sum / double(samples.size()));
}

}  // namespace velapo::test
