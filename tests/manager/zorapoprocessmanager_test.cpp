// The process manager: frame counts, mute, bypass mixing, the chain state
// table, fades, stale detection and flush, races with the audio thread, and
// no allocation on it.
#include "manager/zorapoprocessmanager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <functional>
#include <map>
#include <memory>
#include <thread>
#include <vector>

#include "allocationcounter.h"
#include "audiotesting.h"
#include "platform/clock.h"
#include "support/zorlogcapture.h"

namespace {

using velapo::test::Noise;
using velapo::test::RecordingStage;

constexpr uint32_t kRate = 48000;
constexpr uint32_t kLocationSfx = 1;

// A clock the test moves by hand. Atomic: the worker reads it too, so a
// test declares it before the manager, which stops its worker on the way out.
class ManualClock : public IZORPerformanceClock {
 public:
  explicit ManualClock(int64_t frequency) : m_frequency(frequency) {}
  bool QueryCounter(int64_t& counter) override {
    counter = m_counter.fetch_add(m_stepPerQuery) + m_stepPerQuery;
    return true;
  }
  bool QueryFrequency(int64_t& frequency) override {
    frequency = m_frequency;
    return true;
  }
  void Advance(int64_t ticks) { m_counter += ticks; }
  // Moves the clock on by itself at every reading.
  void AdvanceOnEveryQuery(int64_t ticks) { m_stepPerQuery = ticks; }

 private:
  std::atomic<int64_t> m_counter{1000000};
  std::atomic<int64_t> m_stepPerQuery{0};
  int64_t m_frequency;
};

// Builds the manager's chains with a function of the test's, and counts the
// builds. Atomic counters: builds run on the worker and the audio thread too.
class TestBuilder : public IZORAPOChainBuilder {
 public:
  void BuildChain(ZORAPOProcessChain& chain) override {
    ++updates;
    if (&chain == m_manager->GetChainPointers().fadeIn) {
      ++updatesOfFadingChain;
    }
    if (build) {
      build(&chain);
    }
  }
  void Attach(ZORAPOProcessManager& manager) {
    m_manager = &manager;
    manager.SetChainBuilder(this);
  }
  std::function<void(ZORAPOProcessChain*)> build;
  std::atomic<int> updates{0};
  std::atomic<int> updatesOfFadingChain{0};

 private:
  ZORAPOProcessManager* m_manager = nullptr;
};

// A manager whose chains the test builds. The builder is the first base, so
// it is destroyed only after the manager has stopped its worker.
struct BuilderHolder {
  TestBuilder builder;
};
struct TestManager : BuilderHolder, ZORAPOProcessManager {
  TestManager() { builder.Attach(*this); }
};

// A manager whose chains each hold a RecordingStage of their own, on the
// platform's clock or on a hand-moved one.
struct RecordedManager {
  explicit RecordedManager(bool manualClock = true, uint32_t location = kLocationSfx,
                           uint32_t channels = 2, int64_t frequency = 1000)
      : clock(frequency) {
    manager.builder.build = [this, channels](ZORAPOProcessChain* chain) {
      auto& stage = stages[chain];
      if (!stage) {
        stage = std::make_unique<RecordingStage>();
      }
      IZORAudioProcess<float>* list[] = {stage.get()};
      chain->BuildFromStages(channels, kRate, true, list);
    };
    if (manualClock) {
      manager.SetClock(&clock);
    }
    EXPECT_TRUE(manager.Initialize(channels, channels, kRate, 0, location));
  }
  RecordingStage& Active() { return *stages.at(manager.GetChainPointers().active); }
  ManualClock clock;
  TestManager manager;
  std::map<const ZORAPOProcessChain*, std::unique_ptr<RecordingStage>> stages;
};

// Runs one block through the manager; returns the output buffer, whose
// capacity is `framesOut` frames, and the frame count reported.
std::pair<std::vector<float>, uint32_t> RunBlock(ZORAPOProcessManager& manager,
                                            const std::vector<float>& input, uint32_t framesIn,
                                            uint32_t framesOut, uint32_t channelsOut,
                                            bool silent = false, float fill = 7.0f) {
  std::vector<float> output(static_cast<size_t>(framesOut) * channelsOut, fill);
  uint32_t in = framesIn;
  uint32_t out = framesOut;
  manager.Process(input.data(), &in, output.data(), &out, silent);
  EXPECT_EQ(in, framesIn) << "the input count is never written";
  return {output, out};
}

}  // namespace

TEST(ZORAPOProcessManager, BeforeInitializeNothingIsPreparedAndLatencyIsZero) {
  ZORAPOProcessManager manager;
  EXPECT_EQ(manager.GetLatency(), 0);
  EXPECT_EQ(manager.GetState(), ManagerState_Unprepared);
  EXPECT_FALSE(manager.SwitchState(ManagerState_Fading));
  EXPECT_FALSE(manager.SwitchState(ManagerState_Steady));
  const auto chains = manager.GetChainPointers();
  EXPECT_EQ(chains.active, nullptr);
  EXPECT_EQ(chains.prepared, nullptr);
  EXPECT_EQ(chains.spare, nullptr);
  EXPECT_EQ(chains.fadeIn, nullptr);
}

TEST(ZORAPOProcessManager, ZeroFrameBlockRunsTheWholePath) {
  RecordedManager recorded(/*manualClock=*/false);
  std::vector<float> input(2, 1.0f);
  auto [output, frames] = RunBlock(recorded.manager, input, 0, 0, 2);
  EXPECT_EQ(frames, 0u);
  const RecordingStage& stage = recorded.Active();
  ASSERT_EQ(stage.frames.size(), 1u) << "the chain ran on the empty block";
  EXPECT_EQ(stage.frames[0], 0u);
}

TEST(ZORAPOProcessManager, FewerFramesFromTheChainShrinkTheOutputAndLeaveTheRestZero) {
  // An unbuilt chain hands back the input's frame count.
  {
    ZORAPOProcessManager manager;
    manager.Initialize(2, 2, kRate, 0, kLocationSfx);
    const std::vector<float> input = Noise(200, 1);
    auto [output, frames] = RunBlock(manager, input, 100, 480, 2);
    EXPECT_EQ(frames, 100u);
    for (size_t i = 0; i < output.size(); ++i) {
      ASSERT_EQ(output[i], i < 200 ? input[i] : 0.0f) << i;
    }
  }
  // A tuned path that shortens the block.
  {
    RecordedManager recorded(/*manualClock=*/false);
    recorded.Active().frameChange = 300 - 480;
    const std::vector<float> input = Noise(960, 2);
    auto [output, frames] = RunBlock(recorded.manager, input, 480, 480, 2);
    EXPECT_EQ(frames, 300u);
    for (size_t i = 0; i < output.size(); ++i) {
      ASSERT_EQ(output[i], i < 600 ? input[i] : 0.0f) << i;
    }
  }
  // More frames than the caller's buffer holds are cut at the buffer.
  {
    ZORAPOProcessManager manager;
    manager.Initialize(1, 1, kRate, 0, kLocationSfx);
    const std::vector<float> input = Noise(64, 3);
    auto [output, frames] = RunBlock(manager, input, 64, 16, 1);
    EXPECT_EQ(frames, 16u);
    EXPECT_EQ(output, std::vector<float>(input.begin(), input.begin() + 16));
  }
}

TEST(ZORAPOProcessManager, MuteZeroesTheOutputWhileTheChainGoesOn) {
  RecordedManager recorded(/*manualClock=*/false);
  ZORAPOProcessManager& manager = recorded.manager;
  const RecordingStage& stage = recorded.Active();
  const std::vector<float> input = Noise(960, 4);

  manager.SetMute(true);
  auto [muted, mutedFrames] = RunBlock(manager, input, 480, 480, 2);
  EXPECT_EQ(mutedFrames, 480u);
  EXPECT_EQ(muted, std::vector<float>(960, 0.0f));
  EXPECT_GT(stage.energy, 100.0) << "the chain still saw the signal";

  manager.SetMute(false);
  auto [heard, heardFrames] = RunBlock(manager, input, 480, 480, 2);
  EXPECT_EQ(heard, input);
}

TEST(ZORAPOProcessManager, BypassMixesBitExactly) {
  struct Case {
    uint32_t in, out, frames, seed;
    float (*expected)(const float* frame, uint32_t c);
  };
  // Odd frame counts: not a multiple of the unrolling. Stereo to four has no
  // kernel: two channels pass, two stay silent.
  const Case cases[] = {
      {6, 2, 483, 5, [](const float* x, uint32_t c) { return (x[4 + c] + x[2]) * 0.707f + x[c]; }},
      {1, 2, 477, 6, [](const float* x, uint32_t) { return x[0]; }},
      {2, 4, 50, 7, [](const float* x, uint32_t c) { return c < 2 ? x[c] : 0.0f; }},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(testing::Message() << test.in << " to " << test.out);
    ZORAPOProcessManager manager;
    manager.Initialize(test.in, test.out, kRate, 0, kLocationSfx);
    const std::vector<float> input = Noise(test.frames * test.in, test.seed);
    auto [output, frames] = RunBlock(manager, input, test.frames, test.frames, test.out);
    ASSERT_EQ(frames, test.frames);
    for (uint32_t f = 0; f < test.frames; ++f) {
      for (uint32_t c = 0; c < test.out; ++c) {
        ASSERT_EQ(output[f * test.out + c], test.expected(&input[f * test.in], c)) << f << "/" << c;
      }
    }
  }
}

TEST(ZORAPOProcessManager, SwitchStateFollowsTheStateTable) {
  ZORAPOProcessManager manager;
  manager.Initialize(2, 2, kRate, 0, kLocationSfx);
  const auto start = manager.GetChainPointers();
  EXPECT_EQ(start.state, ManagerState_Steady);
  ASSERT_NE(start.active, nullptr);
  ASSERT_NE(start.prepared, nullptr);
  ASSERT_NE(start.spare, nullptr);
  EXPECT_EQ(start.fadeIn, nullptr);

  EXPECT_TRUE(manager.SwitchState(ManagerState_Steady)) << "steady while steady";
  EXPECT_EQ(manager.GetChainPointers().active, start.active);

  EXPECT_TRUE(manager.SwitchState(ManagerState_Fading));
  const auto fading = manager.GetChainPointers();
  EXPECT_EQ(fading.state, ManagerState_Fading);
  EXPECT_EQ(fading.active, start.active);
  EXPECT_EQ(fading.fadeIn, start.prepared);
  EXPECT_EQ(fading.prepared, start.spare);
  EXPECT_EQ(fading.spare, nullptr);
  EXPECT_TRUE(fading.fadeIn->IsLive());

  EXPECT_TRUE(manager.SwitchState(ManagerState_Fading)) << "fading while fading";
  const auto still = manager.GetChainPointers();
  EXPECT_EQ(still.fadeIn, fading.fadeIn);
  EXPECT_EQ(still.prepared, fading.prepared);

  EXPECT_TRUE(manager.SwitchState(ManagerState_Steady));
  const auto steady = manager.GetChainPointers();
  EXPECT_EQ(steady.active, start.prepared);
  EXPECT_EQ(steady.spare, start.active);
  EXPECT_EQ(steady.prepared, start.spare);
  EXPECT_EQ(steady.fadeIn, nullptr);
  EXPECT_FALSE(steady.spare->IsLive());
  EXPECT_TRUE(steady.active->IsLive());
}

TEST(ZORAPOProcessManager, FadeBetweenUnbuiltChainsEndsOnTheAudioThread) {
  ZORAPOProcessManager manager;
  manager.Initialize(2, 2, kRate, 0, kLocationSfx);
  const auto before = manager.GetChainPointers();
  ASSERT_TRUE(manager.SwitchState(ManagerState_Fading));
  const std::vector<float> input = Noise(960, 8);
  // 3072 fade frames at 48 kHz with no latency: six blocks of 480 are not
  // enough, the seventh ends the fade.
  for (int block = 0; block < 7; ++block) {
    EXPECT_EQ(manager.GetState(), ManagerState_Fading) << block;
    auto [output, frames] = RunBlock(manager, input, 480, 480, 2);
    ASSERT_EQ(frames, 480u);
    for (size_t i = 0; i < output.size(); ++i) {
      ASSERT_NEAR(output[i], input[i], 1e-6f) << "two equal chains mix to the same signal";
    }
  }
  const auto after = manager.GetChainPointers();
  EXPECT_EQ(after.state, ManagerState_Steady);
  EXPECT_EQ(after.active, before.prepared);
  EXPECT_EQ(after.spare, before.active);
}

// A fade between chains that sound different: one scales its block by
// `from`, the other by `to`. Frame by frame the output is the old chain's
// sound times 1 - gain plus the new one's times the gain, which holds only if
// the new chain heard the untouched input and the law runs the right way.
TEST(ZORAPOProcessManager, FadeBetweenChainsThatSoundDifferentFollowsTheLaw) {
  for (const auto& [from, to] : {std::pair{0.0f, 1.0f}, {1.0f, 0.0f}, {0.5f, -1.0f}}) {
    SCOPED_TRACE(testing::Message() << from << " to " << to);
    TestManager manager;
    std::map<const ZORAPOProcessChain*, std::unique_ptr<RecordingStage>> stages;
    manager.builder.build = [&](ZORAPOProcessChain* chain) {
      auto& stage = stages[chain];
      stage = std::make_unique<RecordingStage>();
      stage->gain = manager.builder.updates == 1 ? from : to;
      IZORAudioProcess<float>* list[] = {stage.get()};
      chain->BuildFromStages(2, kRate, true, list);
    };
    manager.Initialize(2, 2, kRate, 0, kLocationSfx);
    const uint32_t fadeFrames = manager.GetCrossfade().GetFadeFrames();
    ASSERT_EQ(manager.GetCrossfade().GetDelayFrames(), 0u);
    ASSERT_TRUE(manager.SwitchState(ManagerState_Fading));
    const std::vector<float> tone = Noise(2 * 480, 18);
    for (uint32_t start = 0; start < fadeFrames + 960; start += 480) {
      auto [output, frames] = RunBlock(manager, tone, 480, 480, 2);
      ASSERT_EQ(frames, 480u);
      for (uint32_t i = 0; i < 960; ++i) {
        const uint32_t frame = start + i / 2;
        const float gain = frame < fadeFrames ? ZORXFadeFunction::GainAt(frame, fadeFrames) : 1.0f;
        const float expected =
            frame < fadeFrames ? tone[i] * from * (1.0f - gain) + gain * (tone[i] * to) : tone[i] * to;
        ASSERT_EQ(output[i], expected) << "frame " << frame;
      }
    }
    EXPECT_EQ(manager.GetState(), ManagerState_Steady);
  }
}

TEST(ZORAPOProcessManager, WorkerTurnsUpdatesIntoOneFadeAtATime) {
  ManualClock clock(1000);
  TestManager manager;
  manager.SetClock(&clock);
  zor::os::Event switched(zor::os::EventReset::Auto);
  manager.SetClientEvent(&switched);
  manager.Initialize(2, 2, kRate, 0, kLocationSfx);
  const int afterPrepare = manager.builder.updates.load();
  EXPECT_EQ(afterPrepare, 2) << "the active and the prepared chain";
  const auto start = manager.GetChainPointers();

  // Several requests before the worker wakes collapse into one pass.
  manager.RequestUpdate();
  manager.RequestUpdate();
  ASSERT_TRUE(switched.Wait(5000));
  const auto fading = manager.GetChainPointers();
  EXPECT_EQ(fading.state, ManagerState_Fading);
  EXPECT_EQ(fading.fadeIn, start.prepared);
  EXPECT_EQ(manager.builder.updates.load(), afterPrepare + 2) << "the fading chain and the next candidate";

  // Two requests during the fade wait for its end and make one more fade.
  manager.RequestUpdate();
  manager.RequestUpdate();
  const std::vector<float> input = Noise(960, 9);
  for (int block = 0; block < 7; ++block) {
    RunBlock(manager, input, 480, 480, 2);
  }
  ASSERT_TRUE(switched.Wait(5000));
  const auto second = manager.GetChainPointers();
  EXPECT_EQ(second.state, ManagerState_Fading);
  EXPECT_EQ(second.active, start.prepared);
  EXPECT_EQ(second.fadeIn, fading.prepared);
  EXPECT_EQ(manager.builder.updates.load(), afterPrepare + 4);
}

TEST(ZORAPOProcessManager, StaleAfterMoreThan300MillisecondsAndFlushesLatencyPlus20Ms) {
  RecordedManager recorded;  // one tick per millisecond
  auto& [clock, manager, stages] = recorded;
  RecordingStage& stage = recorded.Active();
  const std::vector<float> input = Noise(960, 10);
  ZORLogCapture log;

  RunBlock(manager, input, 480, 480, 2);
  clock.Advance(300);
  RunBlock(manager, input, 480, 480, 2);
  EXPECT_EQ(stage.frames, (std::vector<uint32_t>{480, 480})) << "exactly 300 ms is not stale";
  EXPECT_EQ(log.Count("was stale"), 0u);

  clock.Advance(301);
  auto [output, frames] = RunBlock(manager, input, 480, 480, 2);
  EXPECT_EQ(stage.frames, (std::vector<uint32_t>{480, 480, 960, 480}))
      << "20 ms of silence at 48 kHz go through first";
  EXPECT_EQ(frames, 480u);
  EXPECT_EQ(output, input) << "the real block follows the flush unchanged";
  EXPECT_TRUE(log.Contains("VELAPOProcessManager::Process - was stale for 301 ms , APO location=1\n"));
}

TEST(ZORAPOProcessManager, CounterArithmeticWrapsAsTheEngineDoes) {
  struct Case {
    int64_t now, then, frequency;
    uint32_t milliseconds;
  };
  const Case cases[] = {
      {5000000, 0, 10000000, 70},   // 500 ms on 10 MHz: 5e9 wraps to 705032704
      {3020000, 0, 10000000, 302},
      {3010000, 0, 10000000, 300},  // 3.01e9 rounds down as a single-precision float
      {(int64_t{7} << 32) + 301, int64_t{7} << 32, 1000, 301},
      {int64_t{5} << 32 | 10, (int64_t{4} << 32) | 0xFFFFFFF0u, 1000, 26},  // low 32 bits subtracted
  };
  uint32_t ms = 0;
  for (const Case& c : cases) {
    ASSERT_TRUE(ZORElapsedMilliseconds32(c.now, c.then, c.frequency, ms));
    EXPECT_EQ(ms, c.milliseconds) << c.now << " - " << c.then;
  }
  EXPECT_FALSE(ZORElapsedMilliseconds32(10, 0, int64_t{1} << 32, ms)) << "low bits of 0";

  // The platform clock's frequency keeps a stall of 400 ms within reach.
  int64_t frequency = 0;
  ASSERT_TRUE(zor::os::QueryFrequency(frequency));
  ASSERT_TRUE(ZORElapsedMilliseconds32(frequency * 400 / 1000, 0, frequency, ms));
  EXPECT_EQ(ms, 400u);

  // So a 500 ms gap does not flush a stream on a 10 MHz clock.
  RecordedManager recorded(true, kLocationSfx, 1, 10000000);
  const std::vector<float> input = Noise(480, 11);
  RunBlock(recorded.manager, input, 480, 480, 1);
  recorded.clock.Advance(5000000);
  RunBlock(recorded.manager, input, 480, 480, 1);
  EXPECT_EQ(recorded.Active().frames, (std::vector<uint32_t>{480, 480}));
}

TEST(ZORAPOProcessManager, OffloadLocationsFlushOnlySilentBlocksButRestartTheStopwatch) {
  for (uint32_t location : {4u, 5u}) {
    RecordedManager recorded(true, location);
    auto& [clock, manager, stages] = recorded;
    RecordingStage& stage = recorded.Active();
    const std::vector<float> input = Noise(960, 12);
    ZORLogCapture log;

    RunBlock(manager, input, 480, 480, 2);
    clock.Advance(400);
    RunBlock(manager, input, 480, 480, 2, /*silent=*/false);
    EXPECT_EQ(stage.frames.size(), 2u) << "no flush on a block with sound";
    EXPECT_EQ(log.Count("was stale"), 0u);

    // Measured from the stale block, not from the one before it.
    clock.Advance(299);
    RunBlock(manager, input, 480, 480, 2, /*silent=*/true);
    EXPECT_EQ(stage.frames.size(), 3u);

    clock.Advance(301);
    RunBlock(manager, input, 480, 480, 2, /*silent=*/true);
    EXPECT_EQ(stage.frames, (std::vector<uint32_t>{480, 480, 480, 960, 480}));
    EXPECT_EQ(log.Count("was stale for 301 ms"), 1u);
  }
}

// The capture APO's location, 0xFFFFFFFF, is no offload location: a stale
// block flushes whatever the engine says of its silence.
TEST(ZORAPOProcessManager, CaptureLocationFlushesEveryStaleBlock) {
  for (const bool silent : {false, true}) {
    RecordedManager recorded(true, 0xFFFFFFFFu);
    RecordingStage& stage = recorded.Active();
    const std::vector<float> input = Noise(960, 17);
    ZORLogCapture log;
    RunBlock(recorded.manager, input, 480, 480, 2);
    recorded.clock.Advance(301);
    RunBlock(recorded.manager, input, 480, 480, 2, silent);
    EXPECT_EQ(stage.frames, (std::vector<uint32_t>{480, 960, 480})) << silent;
    EXPECT_TRUE(log.Contains("was stale for 301 ms , APO location=-1\n"));
  }
}

TEST(ZORAPOProcessManager, FlushDoesNotFlushAgainFromItsOwnPass) {
  RecordedManager recorded;
  auto& [clock, manager, stages] = recorded;
  RecordingStage& stage = recorded.Active();
  const std::vector<float> input = Noise(960, 13);
  ZORLogCapture log;

  // Every reading of the clock is 400 ms after the last, so the flush's own
  // pass finds the stream stale as well.
  clock.AdvanceOnEveryQuery(400);
  RunBlock(manager, input, 480, 480, 2);
  EXPECT_EQ(stage.frames, (std::vector<uint32_t>{960, 480}))
      << "the nested pass runs once and does not flush";
  EXPECT_EQ(log.Count("was stale"), 2u) << "both passes report the gap";
}

TEST(ZORAPOProcessManager, StaleDuringAFadeRebuildsTheFadingChain) {
  ManualClock clock(1000);
  TestManager manager;
  manager.SetClock(&clock);
  manager.Initialize(2, 2, kRate, 0, kLocationSfx);
  const std::vector<float> input = Noise(960, 14);
  RunBlock(manager, input, 480, 480, 2);
  ASSERT_TRUE(manager.SwitchState(ManagerState_Fading));
  ASSERT_EQ(manager.GetCrossfade().GetPosition(), 0.0f);
  clock.Advance(1000);
  RunBlock(manager, input, 480, 480, 2);
  EXPECT_EQ(manager.builder.updatesOfFadingChain.load(), 1);
  // The flush (960 frames) and the block (480) both moved the fade on.
  EXPECT_FLOAT_EQ(manager.GetCrossfade().GetPosition(), 1440.0f / 3072.0f);
}

// One thread plays blocks while another starts fades as fast as the state
// machine lets it. The pointers must always name three distinct chains (or
// the nulls of their state), no fade may be cut short or restarted, and
// ThreadSanitizer must see no race.
TEST(ZORAPOProcessManager, FadesStartedFromAnotherThreadNeverRaceTheAudioThread) {
  constexpr int kFades = 150;
  ManualClock clock(1000);
  ZORAPOProcessManager manager;
  manager.SetClock(&clock);  // never stale: no flush interferes
  manager.Initialize(2, 2, kRate, 0, kLocationSfx);

  std::atomic<bool> done{false};
  std::atomic<int> blocks{0};
  std::atomic<bool> fadeCutShort{false};
  std::thread audio([&] {
    const std::vector<float> input = Noise(2 * 256, 15);
    std::vector<float> output(2 * 256);
    float previous = manager.GetCrossfade().GetPosition();
    while (!done.load()) {
      uint32_t in = 256;
      uint32_t out = 256;
      manager.Process(input.data(), &in, output.data(), &out, false);
      const float position = manager.GetCrossfade().GetPosition();
      // Within a fade the position only rises; it starts again only from a
      // finished fade.
      if (position < previous && previous < 1.0f) {
        fadeCutShort = true;
      }
      previous = position;
      ++blocks;
    }
  });

  int started = 0;
  bool distinct = true;
  while (started < kFades) {
    if (manager.GetState() != ManagerState_Steady) {
      std::this_thread::yield();
      continue;
    }
    const auto steady = manager.GetChainPointers();
    if (steady.state == ManagerState_Steady) {
      distinct &= steady.fadeIn == nullptr && steady.active != steady.prepared &&
                  steady.active != steady.spare && steady.prepared != steady.spare &&
                  steady.active && steady.prepared && steady.spare;
    }
    ASSERT_TRUE(manager.SwitchState(ManagerState_Fading));
    ++started;
    const auto fading = manager.GetChainPointers();
    if (fading.state == ManagerState_Fading) {
      distinct &= fading.spare == nullptr && fading.active != fading.fadeIn &&
                  fading.active != fading.prepared && fading.fadeIn != fading.prepared &&
                  fading.active && fading.fadeIn && fading.prepared;
    }
  }
  while (manager.GetState() != ManagerState_Steady) {
    std::this_thread::yield();
  }
  done = true;
  audio.join();

  EXPECT_TRUE(distinct);
  EXPECT_FALSE(fadeCutShort);
  // Each fade of 3072 frames takes 12 blocks of 256.
  EXPECT_GE(blocks.load(), kFades * 12);
}

// With both meters on, too.
TEST(ZORAPOProcessManager, SteadyStateAllocatesNothingOnTheAudioThread) {
  for (const auto& [channelsIn, channelsOut] : {std::pair{2u, 2u}, std::pair{6u, 2u}}) {
    ManualClock clock(1000);
    ZORAPOProcessManager manager;
    manager.SetClock(&clock);
    manager.SetMeteringMode(ZORAPOProcessManager::kMeterInput | ZORAPOProcessManager::kMeterOutput);
    manager.Initialize(channelsIn, channelsOut, kRate, 0, kLocationSfx);
    const std::vector<float> input = Noise(480 * channelsIn, 16);
    std::vector<float> output(480 * channelsOut);
    auto block = [&] {
      uint32_t in = 480;
      uint32_t out = 480;
      manager.Process(input.data(), &in, output.data(), &out, false);
    };
    auto fade = [&] {
      ASSERT_TRUE(manager.SwitchState(ManagerState_Fading));
      while (manager.GetState() != ManagerState_Steady) {
        block();
      }
    };
    // The first block and the first fade size the stores, as does the first
    // flush.
    block();
    fade();
    clock.Advance(400);
    block();

    velapo::test::AllocationCounter allocations;
    for (int i = 0; i < 20; ++i) {
      block();
    }
    fade();
    clock.Advance(400);
    block();  // stale: flushes
    EXPECT_EQ(allocations.Count(), 0u) << channelsIn << " to " << channelsOut;
  }
}

// Against a plain scan: every channel count the fast paths and the general
// one take, the side channel's entry kept, entries carried from before, and
// a NaN, which replaces an entry as the comparison is written.
TEST(ZORAPOProcessManager, PeaksMatchAPlainScanForEveryWidth) {
  for (uint32_t channels = 1; channels <= 12; ++channels) {
    for (uint32_t seed = 0; seed < 4; ++seed) {
      SCOPED_TRACE(testing::Message() << channels << " channels, seed " << seed);
      const uint32_t frames = 37 * seed;
      std::vector<float> samples = Noise(static_cast<size_t>(frames) * channels, seed + 40 * channels);
      ZORAudioDataFloat block;
      block.AssignMemory(samples.data(), frames, channels, true, kRate);
      const uint32_t side = (seed + channels) % channels;
      for (uint32_t c = 0; c < channels; ++c) {
        block.SetChannelRole(c, c == side ? IZORAudioData<float>::kSideChannelRole : IZORAudioData<float>::kNoRole);
      }
      std::vector<float> peaks(channels, 0.25f);
      std::vector<float> expected = peaks;
      for (uint32_t c = 0; c < channels; ++c) {
        for (uint32_t f = 0; c != side && f < frames; ++f) {
          expected[c] = std::max(expected[c], std::abs(samples[f * channels + c]));
        }
      }
      ZORAPOProcessManager::ComputePeaks(block, peaks);
      EXPECT_EQ(peaks, expected);
    }
  }
  std::vector<float> nan = {std::nanf(""), 0.5f};
  ZORAudioDataFloat block;
  block.AssignMemory(nan.data(), 1, 2, true, kRate);
  std::vector<float> peaks = {1.0f, 1.0f};
  ZORAPOProcessManager::ComputePeaks(block, peaks);
  EXPECT_TRUE(std::isnan(peaks[0]));
  EXPECT_EQ(peaks[1], 1.0f);
}
