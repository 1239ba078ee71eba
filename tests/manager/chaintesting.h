#pragma once
// What the chain tests share: an endpoint in the private store whose
// configuration file the test writes, workspaces for it, and one block
// through a chain with its level.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <numbers>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "audio/zorapoprocesschain.h"
#include "audio/zorapoprocesslibrary.h"
#include "config/zorapoconfigurationfile.h"
#include "endpointfixture.h"
#include "platform/text.h"
#include "techtesting.h"

namespace velapo::test {

inline std::filesystem::path ExamplePath(const char* name) {
  return std::filesystem::path(VELAPO_EXAMPLES_DIR) / name;
}

// A configuration of probe processes from the tests' recording module:
// chains for each row of the construction and failure tables.
inline const char* kProbeConfig = R"(<zor_configuration>
  <properties>
    <control name="APO4-Operating Mode">APO4-Default</control>
    <control name="APO4-Speaker Type">APO4-Any Speaker</control>
  </properties>
  <operating_mode>
    <control name="APO4-Operating Mode">APO4-Default</control>
    <control name="APO4-Speaker Type">APO4-Any Speaker</control>
    <control name="P1:Probe-Level" public="true">100</control>
    <control name="P2:Probe-Level">-100</control>
    <chain_v2 position="SFX" input="Stereo" output="Stereo">
      <process tech_id="probe" instance_id="P1"/><process tech_id="probe-256" instance_id="P2"/>
      <control name="P2:Probe-Mode">Loud</control>
    </chain_v2>
    <chain_v2 position="SFX" input="Stereo" output="5.1 Surround">
      <process tech_id="probe" instance_id="P1"/></chain_v2>
    <chain_v2 position="SFX" input="5.1 Surround" output="Stereo">
      <process tech_id="refuse" instance_id="P1"/></chain_v2>
    <chain_v2 position="SFX" input="7.1 Surround" output="Stereo">
      <process tech_id="probe" instance_id="P1"/><process tech_id="fail-init" instance_id="P2"/></chain_v2>
    <chain_v2 position="SFX" input="Mono" output="Mono">
      <process tech_id="null" instance_id="P1"/></chain_v2>
    <chain_v2 position="OSFX" input="Stereo" output="5.1 Surround">
      <process tech_id="probe" instance_id="P1"/></chain_v2>
    <chain_v2 position="SFX" type="capture" input="Stereo" output="Stereo">
      <process tech_id="probe" instance_id="P1"/></chain_v2>
  </operating_mode>
</zor_configuration>)";

// An endpoint whose Properties name a configuration file the test wrote.
class ChainEndpoint : public EndpointStore {
 protected:
  void SetUp() override {
    EndpointStore::SetUp();
    // A directory of its own per test: the configuration cache keys on paths.
    static std::atomic<uint32_t> serial{0};
    m_dir = std::filesystem::temp_directory_path() /
            ("velapo-chain-" + zor::os::Utf16ToUtf8(FreshEndpointGuid()) + std::to_string(serial++));
    std::filesystem::create_directories(m_dir);
  }
  void TearDown() override {
    m_infos.clear();
    m_devices.clear();
    ZORAPOProcessLibrary::SetModulePath(nullptr);
    std::error_code ignored;
    std::filesystem::remove_all(m_dir, ignored);
    EndpointStore::TearDown();
  }
  // Writes `xml` (or copies the file `source`) as the endpoint's
  // configuration and binds a fresh endpoint to it.
  const ZORAPOEndpointInfo& MakeEndpoint(const std::string& xml, bool render = true,
                                         const std::filesystem::path& source = {}) {
    configPath = m_dir / ("config" + std::to_string(m_devices.size()) + ".xml");
    if (source.empty()) {
      std::ofstream(configPath) << xml;
    } else {
      std::filesystem::copy_file(source, configPath);
    }
    const std::u16string guid = FreshEndpointGuid();
    WriteText(Endpoint(guid, render) + u"\\Properties", u"{7A8B74C8-FA66-4460-8542-D6119C59E9D4},2",
              configPath.u16string());
    m_devices.push_back(std::make_unique<FakeDevice>(
        (render ? u"{0.0.0.00000000}." : u"{0.0.1.00000000}.") + guid));
    m_infos.push_back(std::make_unique<ZORAPOEndpointInfo>());
    EXPECT_TRUE(m_infos.back()->SetDevice(m_devices.back().get(), render));
    return *m_infos.back();
  }
  // The workspace of the default mode of the last endpoint's file.
  ZORAPOWorkspace Workspace(uint32_t location, uint32_t inChannels, uint32_t outChannels,
                            uint32_t rate) {
    ZORAPOConfigurationFile config;
    EXPECT_EQ(config.Load(configPath.u16string(), 0, location), 0u);
    ZORAPOWorkspace workspace;
    workspace.endpoint = *m_infos.back();
    EXPECT_TRUE(config.FindMode(config.GetDefaultMode(), workspace.mode));
    workspace.inputLayout = LayoutFromChannels(inChannels);
    workspace.outputLayout = LayoutFromChannels(outChannels);
    workspace.sampleRate = rate;
    return workspace;
  }
  static void UseTestModule() {
    ZORAPOProcessLibrary::SetModulePath(
        (techtest::TestModuleDirectory() / "anchor").u16string().c_str());
  }

  std::filesystem::path configPath;

 private:
  std::filesystem::path m_dir;
  std::vector<std::unique_ptr<FakeDevice>> m_devices;
  std::vector<std::unique_ptr<ZORAPOEndpointInfo>> m_infos;
};

// Runs interleaved `input` through `chain` as one block; the output block's
// samples.
inline std::vector<float> RunChain(ZORAPOProcessChain& chain, const std::vector<float>& input,
                                   uint32_t inChannels, uint32_t outChannels, uint32_t rate) {
  ZORAudioDataFloat in;
  in.AssignMemory(input.data(), static_cast<uint32_t>(input.size() / inChannels), inChannels, true,
                  rate);
  ZORAudioDataFloat out;
  out.Allocate(in.GetFrames(), outChannels, rate);
  chain.Process(in, out, nullptr);
  const float* samples = out.GetData(false, true);
  std::vector<float> result(samples, samples + out.GetSampleCount());
  out.ReleaseData();
  return result;
}

inline std::vector<float> Sine(uint32_t frames, uint32_t channels, uint32_t rate, float amplitude) {
  std::vector<float> samples(static_cast<size_t>(frames) * channels);
  for (size_t i = 0; i < samples.size(); ++i) {
    samples[i] = amplitude * static_cast<float>(std::sin(2.0 * std::numbers::pi * 1000.0 *
                                                         static_cast<double>(i / channels) / rate));
  }
  return samples;
}

inline double LevelDb(const std::vector<float>& samples) {
  double sum = 0;
  for (const float s : samples) sum += static_cast<double>(s) * s;
  return 10.0 * std::log10(sum / static_cast<double>(samples.size()));
}

}  // namespace velapo::test
