// The live host's bridge without a server: JACK's planar ports to the
// stage's interleaved buffers and back, the pass-through while no stage is
// installed, and stages swapped under a running callback.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "allocationmeter.h"
#include "liveengine.h"

namespace {

using namespace std::chrono_literals;

// Doubles every sample, and knows whether it is used after it was taken away.
class DoublingStage final : public IHostStage {
 public:
  explicit DoublingStage(uint32_t channels, uint32_t written = UINT32_MAX) : m_channels(channels), m_written(written) {}
  const char* Name() const override { return "doubling"; }
  bool Start(HostEndpoint&, uint32_t, HostFormat&, std::string&) override { return true; }
  uint32_t Process(const float* input, float* output, uint32_t frames, bool) override {
    if (m_bWithdrawn.load()) m_usedAfterWithdrawal.store(true);
    if (m_bBlock) {
      m_bInside.store(true);
      while (m_bBlock.load()) std::this_thread::yield();
    }
    for (size_t i = 0; i < size_t(frames) * m_channels; ++i) output[i] = 2 * input[i];
    return std::min(frames, m_written);
  }
  bool TakeSwitch() override { return false; }
  int64_t Latency() const override { return 0; }
  std::vector<std::string> Effects() const override { return {}; }
  std::string ActiveChain() const override { return "doubling"; }
  void Stop() override {}

  std::atomic<bool> m_bWithdrawn{false};
  std::atomic<bool> m_usedAfterWithdrawal{false};
  std::atomic<bool> m_bBlock{false};
  std::atomic<bool> m_bInside{false};

 private:
  const uint32_t m_channels;
  const uint32_t m_written;
};

// Ports of `channels` x `frames`, sample f of channel c = c * 1000 + f.
struct Ports {
  Ports(uint32_t channels, uint32_t frames) : in(channels, std::vector<float>(frames)), out(channels, std::vector<float>(frames, -1)) {
    for (uint32_t c = 0; c < channels; ++c) {
      for (uint32_t f = 0; f < frames; ++f) in[c][f] = float(c * 1000 + f);
      inputs.push_back(in[c].data());
      outputs.push_back(out[c].data());
    }
  }
  std::vector<std::vector<float>> in, out;
  std::vector<const float*> inputs;
  std::vector<float*> outputs;
};

struct Shape {
  uint32_t channels, capacity, frames, written;
  float gain;  // 2: through the stage; 1: passed through
};

class LiveEngineShapes : public ::testing::TestWithParam<Shape> {};

TEST_P(LiveEngineShapes, EveryChannelComesBackInItsPort) {
  const Shape shape = GetParam();
  LiveEngine engine(shape.channels);
  DoublingStage stage(shape.channels, shape.written);
  engine.Install(&stage, shape.capacity);
  Ports ports(shape.channels, shape.frames);
  engine.Process(ports.inputs.data(), ports.outputs.data(), shape.frames);
  const uint32_t valid = shape.gain == 2 ? std::min(shape.frames, shape.written) : shape.frames;
  for (uint32_t c = 0; c < shape.channels; ++c) {
    for (uint32_t f = 0; f < shape.frames; ++f) {
      // Frames the stage did not write are silence, never stale samples.
      const float expected = f < valid ? shape.gain * ports.in[c][f] : 0.0f;
      ASSERT_EQ(ports.out[c][f], expected) << "channel " << c << " frame " << f;
    }
  }
  EXPECT_EQ(engine.Measures().processedPeriods, shape.gain == 2 ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, LiveEngineShapes,
    ::testing::Values(Shape{2, 256, 256, UINT32_MAX, 2}, Shape{6, 512, 300, UINT32_MAX, 2},
                      Shape{8, 64, 1, UINT32_MAX, 2},
                      Shape{2, 256, 256, 100, 2},        // the stage gave fewer frames
                      Shape{2, 256, 512, UINT32_MAX, 1}  // a period longer than the stage was made for
                      ));

TEST(LiveEngine, PassesAudioWhileNoStageIsInstalled) {
  LiveEngine engine(2);
  Ports ports(2, 128);
  engine.Process(ports.inputs.data(), ports.outputs.data(), 128);
  EXPECT_EQ(ports.out, ports.in);
  DoublingStage stage(2);
  engine.Install(&stage, 128);
  IHostStage* withdrawn = nullptr;
  ASSERT_TRUE(engine.Withdraw(withdrawn, 1s));
  EXPECT_EQ(withdrawn, &stage);
  engine.Process(ports.inputs.data(), ports.outputs.data(), 128);
  EXPECT_EQ(ports.out, ports.in);
  EXPECT_EQ(engine.Measures().periods, 2u);
  EXPECT_EQ(engine.Measures().processedPeriods, 0u);
}

// The main thread swaps stages as fast as it can under a callback that never
// stops: a stage is never used once Withdraw has returned it, and the
// callback allocates nothing after each stage's first period.
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
    stage->m_bWithdrawn = true;
    std::this_thread::sleep_for(20us);
    ASSERT_FALSE(stage->m_usedAfterWithdrawal.load()) << "round " << round;
  }
  running = false;
  callback.join();
  EXPECT_EQ(allocations.load(), 0u);
  EXPECT_EQ(engine.Measures().steadyAllocations, 0u);
}

// A callback stuck inside the stage: Withdraw gives up rather than hang, and
// says the stage must not be freed.
TEST(LiveEngine, WithdrawGivesUpOnACallbackThatDoesNotReturn) {
  LiveEngine engine(2);
  DoublingStage stage(2);
  stage.m_bBlock = true;
  engine.Install(&stage, 64);
  std::thread callback([&] {
    Ports ports(2, 64);
    engine.Process(ports.inputs.data(), ports.outputs.data(), 64);
  });
  while (!stage.m_bInside.load()) std::this_thread::yield();
  IHostStage* withdrawn = nullptr;
  EXPECT_FALSE(engine.Withdraw(withdrawn, 20ms));
  stage.m_bBlock = false;
  callback.join();
  EXPECT_TRUE(engine.Withdraw(withdrawn, 1s));
  EXPECT_EQ(withdrawn, nullptr);
}

TEST(LiveEngine, MeasuresTimeAsQuantilesOfTheProcessedPeriods) {
  LiveEngine engine(2);
  DoublingStage stage(2);
  engine.Install(&stage, 64);
  Ports ports(2, 64);
  for (int i = 0; i < 100; ++i) engine.Process(ports.inputs.data(), ports.outputs.data(), 64);
  engine.CountXrun();
  const LiveMeasures measures = engine.Measures();
  EXPECT_EQ(measures.processedPeriods, 100u);
  EXPECT_EQ(measures.xruns, 1u);
  EXPECT_LE(measures.medianMicros, measures.p99Micros);
  EXPECT_LE(measures.p99Micros, measures.maxMicros);
  EXPECT_GT(measures.maxMicros, 0.0);
}

}  // namespace
