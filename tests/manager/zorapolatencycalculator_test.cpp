// One latency for every chain of a stream: the calculator's figure and its
// cache, the padding that lines chains up, and what resampling really adds.
#include "manager/zorapolatencycalculator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "chaintesting.h"

namespace {

using velapo::test::RunChain;

// Two modes at SFX: a plain gain, and a limiter whose look-ahead delays.
const char* kTwoLatencies = R"(<zor_configuration>
  <properties>
    <control name="APO4-Operating Mode">APO4-Plain</control>
    <control name="APO4-Speaker Type">APO4-Any Speaker</control>
  </properties>
  <operating_mode>
    <control name="APO4-Operating Mode">APO4-Plain</control>
    <control name="APO4-Speaker Type">APO4-Any Speaker</control>
    <chain_v2 position="SFX" input="Stereo" output="Stereo">
      <process tech_id="gain" instance_id="SFX-Gain"/></chain_v2>
  </operating_mode>
  <operating_mode>
    <control name="APO4-Operating Mode">APO4-Look</control>
    <control name="APO4-Speaker Type">APO4-Any Speaker</control>
    <chain_v2 position="SFX" input="Stereo" output="Stereo">
      <process tech_id="limiter" instance_id="SFX-Limiter"/></chain_v2>
  </operating_mode>
</zor_configuration>)";

class Latency : public velapo::test::ChainEndpoint {
 protected:
  void SetUp() override {
    ChainEndpoint::SetUp();
    endpoint = &MakeEndpoint(kTwoLatencies);
    ASSERT_EQ(config.Load(configPath.u16string(), 0, 1), 0u);
  }
  // A chain of `modeIndex` at `rate`, padded to `minLatency`.
  void Build(ZORAPOProcessChain& chain, size_t modeIndex, uint32_t rate, uint64_t minLatency) {
    ZORAPOWorkspace workspace{*endpoint, *config.GetOperatingModes().at(modeIndex), kZORLayoutStereo,
                              kZORLayoutStereo, rate};
    chain.SetMinLatency(minLatency);
    ASSERT_TRUE(chain.ConstructChain(workspace, 1));
  }
  // The frame an impulse at frame 0 comes out at.
  static size_t ImpulseFrame(ZORAPOProcessChain& chain, uint32_t rate) {
    std::vector<float> input(2 * 480, 0.0f);
    input[0] = input[1] = 0.1f;
    for (size_t block = 0; block < 40; ++block) {
      const auto out = RunChain(chain, input, 2, 2, rate);
      const auto peak = std::max_element(out.begin(), out.end(), [](float a, float b) {
        return std::abs(a) < std::abs(b);
      });
      if (std::abs(*peak) > 0.01f) return block * 480 + static_cast<size_t>(peak - out.begin()) / 2;
      std::fill(input.begin(), input.end(), 0.0f);
    }
    return SIZE_MAX;
  }

  const ZORAPOEndpointInfo* endpoint = nullptr;
  ZORAPOConfigurationFile config;
};

}  // namespace

TEST_F(Latency, CacheFollowsTheFileTimeStampAlone) {
  ZORAPOLatencyCalculator calculator;
  ASSERT_TRUE(calculator.Calculate(*endpoint, config.GetOperatingModes(), 44100));
  EXPECT_EQ(calculator.GetConstructionCount(), 2u * 4u * 4u);
  ZORAPOProcessChain look;
  Build(look, 1, 44100, 0);
  EXPECT_EQ(calculator.GetResult(), look.GetLatencyTime()) << "the larger of the two";
  EXPECT_GT(calculator.GetResult(), 0u);
  const uint64_t figure = calculator.GetResult();

  ASSERT_TRUE(calculator.Calculate(*endpoint, config.GetOperatingModes(), 44100));
  EXPECT_EQ(calculator.GetConstructionCount(), 0u);
  EXPECT_EQ(calculator.GetResult(), figure);

  std::filesystem::last_write_time(
      configPath, std::filesystem::last_write_time(configPath) + std::chrono::seconds(5));
  ASSERT_TRUE(calculator.Calculate(*endpoint, ZORAPOConfigurationFile::ModeList{}, 44100) == false);
  EXPECT_EQ(calculator.GetConstructionCount(), 0u) << "a changed file is never read from the cache";
  ASSERT_TRUE(calculator.Calculate(*endpoint, config.GetOperatingModes(), 44100));
  EXPECT_EQ(calculator.GetConstructionCount(), 32u);
}

// Both chains report the stream's one figure, so an impulse leaves them at
// the same frame; a figure below a chain's own gives way to it.
TEST_F(Latency, ChainsOfDifferentNaturalLatencyLineUp) {
  ZORAPOLatencyCalculator calculator;
  ASSERT_TRUE(calculator.Calculate(*endpoint, config.GetOperatingModes(), 44100));
  ZORAPOProcessChain plain, look, lowFigure;
  Build(plain, 0, 44100, calculator.GetResult());
  Build(look, 1, 44100, calculator.GetResult());
  Build(lowFigure, 0, 44100, 0);
  EXPECT_EQ(plain.GetLatencyTime(), look.GetLatencyTime());
  EXPECT_EQ(plain.GetLatencyFrames(), look.GetLatencyFrames());
  EXPECT_EQ(ImpulseFrame(plain, 44100), ImpulseFrame(look, 44100));
  EXPECT_EQ(ImpulseFrame(plain, 44100), look.GetLatencyFrames());
  EXPECT_EQ(lowFigure.GetLatencyFrames(), 0u);
  EXPECT_EQ(ImpulseFrame(lowFigure, 44100), 0u);
}

// A resampling chain reports its cushion; its filters add more. The test
// pins how far the two are apart, which the reported figure leaves out.
TEST_F(Latency, ResamplingDelaysBeyondWhatIsReported) {
  for (const uint32_t rate : {22050u, 50000u}) {
    ZORAPOProcessChain plain;
    Build(plain, 0, rate, 0);
    const size_t heard = ImpulseFrame(plain, rate);
    const double reportedMs = static_cast<double>(plain.GetLatencyTime()) / 1e5;
    const double heardMs = 1000.0 * static_cast<double>(heard) / rate;
    std::printf("rate %u: reported %.3f ms, heard %.3f ms\n", rate, reportedMs, heardMs);
    EXPECT_GT(heardMs, reportedMs);
    EXPECT_LT(heardMs, reportedMs + 5.0);
  }
}
