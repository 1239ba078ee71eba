// Handing state between veltech processes, and veltech behind the wrapper on
// the audio thread: no allocation, and controls set from another thread.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "allocationcounter.h"
#include "audio/zorapoprocesswrapper.h"
#include "manager/zorapoprocessmanager.h"
#include "techtesting.h"

namespace {

using techtest::Channels;
using techtest::Noise;
using techtest::Veltech;

using Settings = std::vector<std::pair<const char*, int32_t>>;

struct Kind {
  const char* techId;
  Settings settings;  // before Init
  Settings change;    // just before the hand-over, so that a glide is under way
};

const Kind kKinds[] = {
    {"gain", {{"Gain-Level", -300}}, {{"Gain-Level", 500}}},
    {"peq",
     {{"PEQ-Band1 Enable", 1}, {"PEQ-Band1 Gain", 900}, {"PEQ-Band1 Frequency", 80}, {"PEQ-Band1 Q", 400},
      {"PEQ-Band2 Enable", 1}, {"PEQ-Band2 Type", 3}, {"PEQ-Band2 Frequency", 3000}},
     {{"PEQ-Band1 Frequency", 200}, {"PEQ-Band2 Type", 1}}},
    {"limiter", {{"Limiter-Threshold", -1200}, {"Limiter-Input Gain", 600}}, {{"Limiter-Input Gain", 0}}},
    {"widener", {{"Widener-Width", 150}}, {{"Widener-Width", 30}}},
    {"crossfeed", {{"Crossfeed-Feed", 300}}, {{"Crossfeed-Cutoff", 1500}, {"Crossfeed-Enable", 0}}},
};

void Apply(Veltech& process, const Settings& settings) {
  for (const auto& [name, value] : settings) ASSERT_TRUE(process.Set(name, value)) << name;
}

Channels Music(size_t frames, uint32_t seed) { return {Noise(frames, 0.9, seed), Noise(frames, 0.9, seed + 1)}; }

}  // namespace

TEST(VeltechState, CopyStateContinuesExactlyWhereTheOtherStandsAndRefusesWhatDoesntFit) {
  const uint32_t rate = 48000;
  for (const Kind& kind : kKinds) {
    SCOPED_TRACE(kind.techId);
    // Twins that hear the same audio stand in the same state: one hands its
    // state over mid-glide, the other shows how it would have gone on.
    Veltech handing(kind.techId), reference(kind.techId), taking(kind.techId), fresh(kind.techId);
    for (Veltech* process : {&handing, &reference, &taking, &fresh}) {
      Apply(*process, kind.settings);
      ASSERT_TRUE(process->Init(2, rate));
    }
    for (Veltech* process : {&handing, &reference}) {
      Channels history = Music(rate / 10, 1);
      process->RunAll(history, 480);
      Apply(*process, kind.change);
      Channels warm = Music(100, 3);
      process->RunAll(warm, 100);
    }
    for (Veltech* process : {&taking, &fresh}) Apply(*process, kind.change);
    ASSERT_TRUE(taking.CopyStateFrom(handing));
    const Channels future = Music(rate / 10, 5);
    Channels continued = future, expected = future, unstated = future;
    taking.RunAll(continued, 480);
    reference.RunAll(expected, 480);
    fresh.RunAll(unstated, 480);
    EXPECT_EQ(continued, expected);
    EXPECT_NE(unstated, expected);  // without the hand-over the start differs
  }
  // Another kind, channel count or rate, never initialised, or itself.
  Veltech peq("peq"), gain("gain"), narrow("peq"), slow("peq"), unready("peq"), pass("passthrough"),
      pass2("passthrough");
  for (Veltech* process : {&peq, &gain, &pass, &pass2}) ASSERT_TRUE(process->Init(2, rate));
  ASSERT_TRUE(narrow.Init(1, rate) && slow.Init(2, 44100));
  for (Veltech* other : {&gain, &narrow, &slow, &unready, &peq}) EXPECT_FALSE(peq.CopyStateFrom(*other));
  EXPECT_FALSE(unready.CopyStateFrom(peq));
  EXPECT_TRUE(pass.CopyStateFrom(pass2));
  EXPECT_EQ(peq.Table().CopyState(peq.Get(), nullptr), 0);
}

// Every veltech process in a manager's chains: once sized, neither steady
// state nor a fade (which hands state over) nor a flush allocates.
TEST(VeltechState, AManagerWithWrappedProcessesAllocatesNothingOnTheAudioThread) {
  ZORAPOProcessLibrary::SetModulePath(nullptr);
  struct Builder : IZORAPOChainBuilder {
    void BuildChain(ZORAPOProcessChain& chain) override {
      auto& wrappers = chains[&chain];
      std::vector<IZORAudioProcess<float>*> stages;
      for (const char* techId : {"gain", "peq", "limiter", "widener", "crossfeed", "passthrough"}) {
        if (wrappers.size() < 6) {
          wrappers.push_back(std::make_unique<ZORAPOProcessWrapper>());
          EXPECT_TRUE(wrappers.back()->Load(techId, "X", "", 0));
        }
        stages.push_back(wrappers[stages.size()].get());
      }
      EXPECT_TRUE(chain.BuildFromStages(2, 48000, true, stages));
    }
    std::map<const ZORAPOProcessChain*, std::vector<std::unique_ptr<ZORAPOProcessWrapper>>> chains;
  };
  struct Clock : IZORPerformanceClock {
    bool QueryCounter(int64_t& counter) override { return counter = now, true; }
    bool QueryFrequency(int64_t& frequency) override { return frequency = 1000, true; }
    std::atomic<int64_t> now{1000000};
  };
  for (const auto& [channelsIn, channelsOut] : {std::pair{2u, 2u}, {6u, 2u}, {1u, 8u}}) {
    SCOPED_TRACE(testing::Message() << channelsIn << " to " << channelsOut);
    Builder builder;  // outlives the manager, whose chains hold its wrappers
    Clock clock;
    ZORAPOProcessManager manager;
    manager.SetClock(&clock);
    manager.SetChainBuilder(&builder);
    manager.Initialize(channelsIn, channelsOut, 48000, 0, 1);
    const std::vector<float> input = Noise(480 * channelsIn, 0.5, 3);
    std::vector<float> output(480 * channelsOut);
    const auto block = [&](uint32_t frames) {
      uint32_t in = frames, out = frames;
      manager.Process(input.data(), &in, output.data(), &out, false);
    };
    const auto fade = [&] {
      ASSERT_TRUE(manager.SwitchState(ManagerState_Fading));
      for (uint32_t frames = 480; manager.GetState() != ManagerState_Steady; frames = frames % 479 + 1) {
        block(frames);
      }
    };
    const auto run = [&] {
      for (const uint32_t frames : {480u, 441u, 1u, 256u, 480u}) block(frames);
      fade();
      clock.now += 400;
      block(480);  // stale: flushes
    };
    run();  // sizes the stores
    velapo::test::AllocationCounter allocations;
    run();
    EXPECT_EQ(allocations.Count(), 0u);
  }
}

TEST(VeltechState, ControlsChangeFromAnotherThreadWhileAudioRuns) {
  ZORAPOProcessLibrary::SetModulePath(nullptr);
  ZORAPOProcessWrapper peq;
  ASSERT_TRUE(peq.Load("peq", "EQ", "", 0));
  ASSERT_TRUE(peq.Init(2, 48000));
  std::atomic<bool> stop{false};
  std::thread worker([&] {
    for (int32_t i = 0; !stop.load(); ++i) {
      const std::string band = "EQ:PEQ-Band" + std::to_string(i % 10 + 1) + " ";
      peq.SetControl(ZORUTSValue(band + "Enable", i % 3 != 0 ? 1 : 0));
      peq.SetControl(ZORUTSValue(band + "Type", i % 6));
      peq.SetControl(ZORUTSValue(band + "Frequency", 30 + (i * 997) % 20000));
      peq.SetControl(ZORUTSValue(band + "Gain", (i * 131) % 4800 - 2400));
      peq.SetControl(ZORUTSValue(band + "Q", 30 + (i * 53) % 1500));
      ZORUTSValue read(band + "Gain", 0);
      peq.GetControl(read);
    }
  });
  ZORAudioDataFloat block;
  for (int call = 0; call < 300; ++call) {
    block.Allocate(480, 2, 48000);
    float* samples = block.GetData(true, false);
    const std::vector<float> noise = Noise(960, 0.5, static_cast<uint32_t>(call));
    std::copy(noise.begin(), noise.end(), samples);
    block.ReleaseData();
    peq.Process(&block);
    const float* out = block.GetData(false, false);
    for (uint32_t i = 0; i < 960; ++i) ASSERT_TRUE(std::isfinite(out[i])) << call;
    block.ReleaseData();
  }
  stop.store(true);
  worker.join();
}
