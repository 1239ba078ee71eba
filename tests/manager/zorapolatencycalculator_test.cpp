// One latency for every chain of a stream: the calculator's figure and its
// cache, the padding that lines chains of different latency up, and a manager
// on a configuration at that latency while two constructions run at once.
#include "manager/zorapolatencycalculator.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "chaintesting.h"
#include "manager/zorapoprocessmanager.h"

namespace {

using namespace velapo::test;

class Latency : public ChainEndpoint {
 protected:
  void SetUp() override {
    ChainEndpoint::SetUp();
    endpoint = &MakeEndpoint(DataFile("twolatencies.xml"));
    ASSERT_EQ(config.Load(configPath.u16string(), 0, 1), 0u);
  }
  // Mode 0 is a plain gain, mode 1 a limiter with look-ahead.
  void Build(ZORAPOProcessChain& chain, size_t mode, uint64_t minLatency) {
    chain.SetMinLatency(minLatency);
    ASSERT_TRUE(chain.ConstructChain(
        {*endpoint, *config.GetOperatingModes().at(mode), kZORLayoutStereo, kZORLayoutStereo, 44100}, 1));
  }
  // The frame an impulse at frame 0 comes out at.
  static size_t ImpulseFrame(ZORAPOProcessChain& chain) {
    std::vector<float> input(2 * 480, 0.0f);
    input[0] = input[1] = 0.1f;
    for (size_t block = 0; block < 40; ++block, input.assign(input.size(), 0.0f)) {
      const auto out = RunChain(chain, input, 2, 2, 44100);
      const auto peak = std::find_if(out.begin(), out.end(), [](float s) { return std::abs(s) > 0.05f; });
      if (peak != out.end()) return block * 480 + static_cast<size_t>(peak - out.begin()) / 2;
    }
    return SIZE_MAX;
  }

  const ZORAPOEndpointInfo* endpoint = nullptr;
  ZORAPOConfigurationFile config;
};

}  // namespace

// The larger chain latency, cached until the file changes, lines chains up to one frame.
TEST_F(Latency, CachedFigureLinesUpChainsOfDifferentNaturalLatency) {
  ZORAPOLatencyCalculator calculator;
  ZORAPOProcessChain plain, look, lookAlone;
  Build(lookAlone, 1, 0);
  struct Step {
    const char* what;
    bool touch;
    uint32_t constructions;
  } const steps[] = {{"first", false, 2 * 4 * 4}, {"unchanged file", false, 0}, {"touched file", true, 32}};
  for (const Step& step : steps) {
    SCOPED_TRACE(step.what);
    if (step.touch) {
      std::filesystem::last_write_time(configPath,
                                       std::filesystem::last_write_time(configPath) + std::chrono::seconds(5));
    }
    ASSERT_TRUE(calculator.Calculate(*endpoint, config.GetOperatingModes(), 44100));
    EXPECT_EQ(calculator.GetConstructionCount(), step.constructions);
    EXPECT_EQ(calculator.GetResult(), lookAlone.GetLatencyTime()) << "the larger of the two";
  }
  Build(plain, 0, calculator.GetResult());
  Build(look, 1, calculator.GetResult());
  EXPECT_GT(look.GetLatencyFrames(), 256u);
  EXPECT_EQ(plain.GetLatencyTime(), look.GetLatencyTime());
  EXPECT_EQ(ImpulseFrame(plain), look.GetLatencyFrames());
  EXPECT_EQ(ImpulseFrame(look), look.GetLatencyFrames());
  ZORAPOProcessChain gain;
  Build(gain, 0, 0);
  EXPECT_EQ(gain.GetLatencyFrames(), 0u);
  EXPECT_EQ(ImpulseFrame(gain), 0u);
}

// Stale blocks refresh the fading chain while the worker builds; two builds share
// the document cache while a calculator fills the latency cache.
TEST_F(Latency, ManagerUsesTheFigureWhileConstructionsRunSideBySide) {
  const ZORAPOEndpointInfo& laptop = MakeEndpoint(ExampleFile("laptop.xml"));
  ManualClock clock(1000);  // a second at every reading: every block finds the stream stale
  ZORAPOProcessManager manager;
  manager.SetClock(&clock);
  ASSERT_TRUE(manager.SetEndpointInfo(laptop, 1));
  ASSERT_TRUE(manager.Initialize(2, 2, 48000, 0, 1));
  const ZORAPOProcessChain& active = *manager.GetChainPointers().active;
  ASSERT_TRUE(active.IsBuilt());
  EXPECT_EQ(active.GetProcessCount(), 2u) << "laptop SFX: peq, widener";
  ZORAPOLatencyCalculator cached;
  ASSERT_TRUE(cached.Calculate(laptop, {}, 44100));
  EXPECT_EQ(static_cast<uint64_t>(manager.GetLatency()), cached.GetResult());

  std::atomic<bool> done{false};
  std::atomic<int> built{0};
  auto builder = [&](uint32_t location) {
    ZORAPOProcessChain chain;
    for (int pass = 0; pass < 20; ++pass) {
      chain.ResetChain();
      built += chain.ConstructChain(Workspace(location, 2, 2, 48000), location) ? 1 : 0;
    }
  };
  std::thread changes([&] {
    while (!done) manager.RequestUpdate(), std::this_thread::yield();
  });
  std::thread sfx(builder, 1u), mfx(builder, 2u);
  const auto input = Noise(480u * 2, 7, 0.25f);
  std::vector<float> output(960);
  for (int block = 0; block < 300; ++block) {
    uint32_t in = 480, out = 480;
    manager.Process(input.data(), &in, output.data(), &out, false);
    ASSERT_TRUE(std::all_of(output.begin(), output.end(), [](float s) { return std::abs(s) < 1.0f; }));
  }
  done = true;
  for (std::thread* thread : {&changes, &sfx, &mfx}) thread->join();
  EXPECT_EQ(built, 40);
  EXPECT_TRUE(manager.GetChainPointers().active->IsBuilt());
}
