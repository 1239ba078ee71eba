// The live host's bridge without a server: planar ports to the stage's
// interleaved buffers and back, pass-through, and stages swapped under a
// running callback.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "allocationmeter.h"
#include "liveengine.h"

namespace {

using namespace std::chrono_literals;

// Doubles every sample; tells whether it was used after it was taken away;
// can hold the callback inside it.
class DoublingStage final : public IHostStage {
 public:
  DoublingStage(uint32_t channels, uint32_t written = UINT32_MAX) : m_channels(channels), m_written(written) {}
  const char* Name() const override { return "doubling"; }
  bool Start(HostEndpoint&, uint32_t, HostFormat&, std::string&) override { return true; }
  uint32_t Process(const float* input, float* output, uint32_t frames, bool) override {
    if (withdrawn.load()) usedAfterWithdrawal = true;
    for (inside = true; hold.load();) std::this_thread::yield();
    for (size_t i = 0; i < size_t(frames) * m_channels; ++i) output[i] = 2 * input[i];
    return std::min(frames, m_written);
  }
  bool TakeSwitch() override { return false; }
  int64_t Latency() const override { return 0; }
  std::vector<std::string> Effects() const override { return {}; }
  std::string ActiveChain() const override { return {}; }
  void Stop() override {}
  std::atomic<bool> withdrawn{false}, usedAfterWithdrawal{false}, hold{false}, inside{false};

 private:
  const uint32_t m_channels, m_written;
};

// Ports of `channels` x `frames`; sample f of channel c is c * 1000 + f.
struct Ports {
  Ports(uint32_t channels, uint32_t frames) : in(channels, std::vector<float>(frames)), out(in) {
    for (uint32_t c = 0; c < channels; ++c) {
      for (uint32_t f = 0; f < frames; ++f) in[c][f] = float(c * 1000 + f), out[c][f] = -1;
      inputs.push_back(in[c].data()), outputs.push_back(out[c].data());
    }
  }
  std::vector<std::vector<float>> in, out;
  std::vector<const float*> inputs;
  std::vector<float*> outputs;
};

struct Shape {
  uint32_t channels, capacity, frames, written;
  bool installed;
  float gain;  // 2: through the stage; 1: passed through
};

class LiveEngineShapes : public ::testing::TestWithParam<Shape> {};

TEST_P(LiveEngineShapes, EveryChannelComesBackInItsPort) {
  const Shape shape = GetParam();
  LiveEngine engine(shape.channels);
  DoublingStage stage(shape.channels, shape.written);
  if (shape.installed) engine.Install(&stage, shape.capacity);
  Ports ports(shape.channels, shape.frames);
  engine.Process(ports.inputs.data(), ports.outputs.data(), shape.frames);
  const uint32_t valid = shape.gain == 2 ? std::min(shape.frames, shape.written) : shape.frames;
  for (uint32_t c = 0; c < shape.channels; ++c) {
    for (uint32_t f = 0; f < shape.frames; ++f) {
      // Frames the stage did not write are silence, never stale samples.
      ASSERT_EQ(ports.out[c][f], f < valid ? shape.gain * ports.in[c][f] : 0.0f) << "channel " << c << " frame " << f;
    }
  }
  EXPECT_EQ(engine.Measures().processedPeriods, shape.gain == 2 ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Shapes, LiveEngineShapes,
                         ::testing::Values(Shape{2, 256, 256, UINT32_MAX, true, 2}, Shape{6, 512, 300, UINT32_MAX, true, 2},
                                           Shape{8, 64, 1, UINT32_MAX, true, 2},
                                           Shape{2, 256, 256, 100, true, 2},          // fewer frames written
                                           Shape{2, 256, 512, UINT32_MAX, true, 1},   // longer than the stage takes
                                           Shape{2, 256, 256, UINT32_MAX, false, 1}));  // no stage yet

// Stages swapped as fast as can be under a callback that never stops: none is
// used once Withdraw has handed it back, and the callback allocates nothing.
TEST(LiveEngine, StagesSwapSafelyUnderARunningCallback) {
  LiveEngine engine(2);
  std::atomic<bool> running{true};
  std::atomic<uint64_t> allocations{0};
  std::thread callback([&] {
    Ports ports(2, 256);
    while (running.load()) {
      const uint64_t before = AllocationsOnThisThread();
      engine.Process(ports.inputs.data(), ports.outputs.data(), 256);
      allocations += AllocationsOnThisThread() - before;
    }
  });
  for (int round = 0; round < 200; ++round) {
    auto stage = std::make_unique<DoublingStage>(2);
    engine.Install(stage.get(), 256 + round % 3);
    std::this_thread::sleep_for(50us);
    IHostStage* withdrawn = nullptr;
    ASSERT_TRUE(engine.Withdraw(withdrawn, 1s));
    ASSERT_EQ(withdrawn, stage.get());
    stage->withdrawn = true;
    std::this_thread::sleep_for(20us);
    ASSERT_FALSE(stage->usedAfterWithdrawal.load()) << "round " << round;
  }
  running = false;
  callback.join();
  EXPECT_EQ(allocations.load(), 0u);
  EXPECT_GT(engine.Measures().processedPeriods, 0u);
}

// A callback stuck in the stage: Withdraw gives up rather than hang, and says
// the stage must not be freed.
TEST(LiveEngine, WithdrawGivesUpOnACallbackThatDoesNotReturn) {
  LiveEngine engine(2);
  DoublingStage stage(2);
  stage.hold = true;
  engine.Install(&stage, 64);
  Ports ports(2, 64);
  std::thread callback([&] { engine.Process(ports.inputs.data(), ports.outputs.data(), 64); });
  while (!stage.inside.load()) std::this_thread::yield();
  IHostStage* withdrawn = nullptr;
  EXPECT_FALSE(engine.Withdraw(withdrawn, 20ms));
  stage.hold = false;
  callback.join();
  EXPECT_TRUE(engine.Withdraw(withdrawn, 1s));
}

}  // namespace
