// A manager bound to an endpoint builds its chains from the configuration:
// the stream hears the tuned path, reports the calculator's latency, runs
// without allocating, and survives two constructions at once.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "allocationcounter.h"
#include "chaintesting.h"
#include "manager/zorapolatencycalculator.h"
#include "manager/zorapoprocessmanager.h"
#include "platform/clock.h"

namespace {

// Jumps far enough at every reading that each block finds the stream stale.
class StaleClock : public IZORPerformanceClock {
 public:
  bool QueryCounter(int64_t& counter) override {
    counter = m_counter.fetch_add(1000) + 1000;
    return true;
  }
  bool QueryFrequency(int64_t& frequency) override {
    frequency = 1000;
    return true;
  }

 private:
  std::atomic<int64_t> m_counter{0};
};

class ManagerFromConfig : public velapo::test::ChainEndpoint {
 protected:
  void Bind(ZORAPOProcessManager& manager) {
    ZORAPOProcessLibrary::SetModulePath(nullptr);
    const ZORAPOEndpointInfo& endpoint =
        MakeEndpoint({}, true, velapo::test::ExamplePath("laptop.xml"));
    ASSERT_TRUE(manager.SetEndpointInfo(endpoint, 1));
    ASSERT_TRUE(manager.Initialize(2, 2, 48000, 0, 1));
  }
  static float Run(ZORAPOProcessManager& manager, const std::vector<float>& input,
                   std::vector<float>& output) {
    uint32_t in = 480;
    uint32_t out = 480;
    manager.Process(input.data(), &in, output.data(), &out, false);
    float peak = 0.0f;
    for (const float s : output) peak = std::isfinite(s) ? std::max(peak, std::abs(s)) : 1e9f;
    return peak;
  }
};

}  // namespace

TEST_F(ManagerFromConfig, PlaysTheConfiguredChainWithoutAllocating) {
  ZORAPOProcessManager manager;
  Bind(manager);
  const auto pointers = manager.GetChainPointers();
  ASSERT_TRUE(pointers.active->IsBuilt());
  EXPECT_FALSE(pointers.active->GetChainBypass());
  EXPECT_EQ(pointers.active->GetProcessCount(), 2u) << "laptop SFX: peq, widener";
  EXPECT_EQ(pointers.prepared->GetLatencyTime(), pointers.active->GetLatencyTime());
  ZORAPOLatencyCalculator cached;
  ASSERT_TRUE(cached.Calculate(*&pointers.active->GetEndpoint(), {}, 44100));
  EXPECT_EQ(static_cast<uint64_t>(manager.GetLatency()), cached.GetResult());

  const auto input = velapo::test::Sine(480, 2, 48000, 0.25f);
  std::vector<float> output(960);
  for (int block = 0; block < 20; ++block) Run(manager, input, output);
  velapo::test::AllocationCounter allocations;
  for (int block = 0; block < 200; ++block) ASSERT_LT(Run(manager, input, output), 1.0f);
  EXPECT_EQ(allocations.Count(), 0u);
}

// Every block is stale, so the audio thread rebuilds the chain fading in
// while the worker builds the prepared one for a stream of changes.
TEST_F(ManagerFromConfig, TwoConstructionsAtOnceStaySafe) {
  StaleClock clock;
  ZORAPOProcessManager manager;
  manager.SetClock(&clock);
  Bind(manager);
  std::atomic<bool> done{false};
  std::thread changes([&] {
    while (!done) {
      manager.RequestUpdate();
      std::this_thread::yield();
    }
  });
  const auto input = velapo::test::Sine(480, 2, 48000, 0.25f);
  std::vector<float> output(960);
  for (int block = 0; block < 300; ++block) ASSERT_LT(Run(manager, input, output), 1.0f);
  done = true;
  changes.join();
  EXPECT_TRUE(manager.GetChainPointers().active->IsBuilt());
}

// Full builds of two chains on two threads, each loading the configuration
// through the shared document cache, while a calculator fills the latency
// cache: nothing is shared that isn't read-only or the loader's own.
TEST_F(ManagerFromConfig, FullBuildsRunSideBySide) {
  ZORAPOProcessLibrary::SetModulePath(nullptr);
  const ZORAPOEndpointInfo& endpoint = MakeEndpoint({}, true, velapo::test::ExamplePath("laptop.xml"));
  auto builder = [&](uint32_t location, std::atomic<int>& built) {
    ZORAPOProcessChain chain;
    for (int pass = 0; pass < 20; ++pass) {
      ZORAPOConfigurationFile config;
      ZORAPOWorkspace workspace{endpoint, {}, kZORLayoutStereo, kZORLayoutStereo, 48000};
      config.Load(configPath.u16string(), 0, location);
      config.FindMode(config.GetDefaultMode(), workspace.mode);
      chain.ResetChain();
      built += chain.ConstructChain(workspace, location) ? 1 : 0;
    }
  };
  std::atomic<int> sfx{0}, mfx{0};
  std::thread first(builder, 1u, std::ref(sfx));
  std::thread second(builder, 2u, std::ref(mfx));
  ZORAPOConfigurationFile config;
  ASSERT_EQ(config.Load(configPath.u16string(), 0, 1), 0u);
  ZORAPOLatencyCalculator calculator;
  EXPECT_TRUE(calculator.Calculate(endpoint, config.GetOperatingModes(), 44100));
  first.join();
  second.join();
  EXPECT_EQ(sfx, 20);
  EXPECT_EQ(mfx, 20);
}
