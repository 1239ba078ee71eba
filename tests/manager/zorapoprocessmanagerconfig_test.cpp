// A manager bound to an endpoint plays the chain its configuration names,
// at the calculator's latency, and two constructions may run at once.
#include <atomic>
#include <thread>

#include "chaintesting.h"
#include "manager/zorapolatencycalculator.h"
#include "manager/zorapoprocessmanager.h"
#include "platform/clock.h"

namespace {

using namespace velapo::test;

// Jumps a second at every reading: every block finds the stream stale.
class StaleClock : public IZORPerformanceClock {
 public:
  bool QueryCounter(int64_t& counter) override { return (counter = m_counter += 1000), true; }
  bool QueryFrequency(int64_t& frequency) override { return (frequency = 1000), true; }

 private:
  std::atomic<int64_t> m_counter{0};
};

class ManagerFromConfig : public ChainEndpoint {};

}  // namespace

// Stale blocks refresh the fading chain while the worker builds; two builds share
// the document cache while a calculator fills the latency cache.
TEST_F(ManagerFromConfig, ConstructionsRunSideBySide) {
  const ZORAPOEndpointInfo& endpoint = MakeEndpoint(ExampleFile("laptop.xml"));
  StaleClock clock;
  ZORAPOProcessManager manager;
  manager.SetClock(&clock);
  ASSERT_TRUE(manager.SetEndpointInfo(endpoint, 1));
  ASSERT_TRUE(manager.Initialize(2, 2, 48000, 0, 1));
  const ZORAPOProcessChain& active = *manager.GetChainPointers().active;
  ASSERT_TRUE(active.IsBuilt());
  EXPECT_EQ(active.GetProcessCount(), 2u) << "laptop SFX: peq, widener";
  ZORAPOLatencyCalculator cached;
  ASSERT_TRUE(cached.Calculate(endpoint, {}, 44100));
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
