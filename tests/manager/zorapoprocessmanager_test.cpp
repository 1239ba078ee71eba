// The process manager: frame counts, mute, bypass mixing, the chain state
// table, the fade law, stale detection and flush, races with the audio
// thread, and the meters' scan. Allocations are counted in the chain tests.
#include "manager/zorapoprocessmanager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <thread>
#include <tuple>
#include <vector>

#include "audiotesting.h"
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
    counter = m_counter;
    return true;
  }
  bool QueryFrequency(int64_t& frequency) override {
    frequency = m_frequency;
    return true;
  }
  void Advance(int64_t ticks) { m_counter += ticks; }

 private:
  std::atomic<int64_t> m_counter{1000000};
  int64_t m_frequency;
};

// Builds the manager's chains with a function of the test's and counts the
// builds, which run on the worker and the audio thread too.
class TestBuilder : public IZORAPOChainBuilder {
 public:
  void BuildChain(ZORAPOProcessChain& chain) override {
    ++updates;
    if (build) build(&chain);
  }
  std::function<void(ZORAPOProcessChain*)> build;
  std::atomic<int> updates{0};
};

// A manager whose chains the test builds. The builder is the first base, so
// it is destroyed only after the manager has stopped its worker.
struct BuilderHolder {
  TestBuilder builder;
};
struct TestManager : BuilderHolder, ZORAPOProcessManager {
  TestManager() { SetChainBuilder(&builder); }
};

// A manager whose chains each hold a RecordingStage of their own, on the platform's clock or on a hand-moved one.
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

// The caller gets the frames the chain left, never more than its buffer holds, and zeros after them.
TEST(ZORAPOProcessManager, OutputFramesFollowTheChainAndTheBuffer) {
  struct Case {
    int frameChange;  // what the chain's stage adds to the block; no stage when 1
    uint32_t framesIn, capacity, framesOut;
  } const cases[] = {{1, 100, 480, 100}, {300 - 480, 480, 480, 300}, {1, 64, 16, 16}, {0, 0, 0, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.framesIn << " into " << c.capacity);
    RecordedManager recorded(/*manualClock=*/false);
    ZORAPOProcessManager plain;
    plain.Initialize(2, 2, kRate, 0, kLocationSfx);
    ZORAPOProcessManager& manager = c.frameChange == 1 ? plain : recorded.manager;
    recorded.Active().frameChange = c.frameChange == 1 ? 0 : c.frameChange;
    const std::vector<float> input = Noise(2 * c.framesIn + 2, c.framesIn);
    auto [output, frames] = RunBlock(manager, input, c.framesIn, c.capacity, 2);
    EXPECT_EQ(frames, c.framesOut);
    for (size_t i = 0; i < output.size(); ++i) {
      ASSERT_EQ(output[i], i < 2 * c.framesOut ? input[i] : 0.0f) << i;
    }
  }
}

TEST(ZORAPOProcessManager, MuteZeroesTheOutputWhileTheChainGoesOn) {
  RecordedManager recorded(/*manualClock=*/false);
  const std::vector<float> input = Noise(960, 4);
  recorded.manager.SetMute(true);
  EXPECT_EQ(RunBlock(recorded.manager, input, 480, 480, 2), std::pair(std::vector<float>(960, 0.0f), 480u));
  EXPECT_GT(recorded.Active().energy, 100.0) << "the chain still saw the signal";
  recorded.manager.SetMute(false);
  EXPECT_EQ(RunBlock(recorded.manager, input, 480, 480, 2).first, input);
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

// Fading takes the prepared chain in and the spare as the next prepared;
// steady again, the old active chain becomes the spare, no longer live.
TEST(ZORAPOProcessManager, SwitchStateFollowsTheStateTable) {
  ZORAPOProcessManager manager;
  EXPECT_FALSE(manager.SwitchState(ManagerState_Fading)) << "nothing prepared before Initialize";
  manager.Initialize(2, 2, kRate, 0, kLocationSfx);
  const auto s = manager.GetChainPointers();
  EXPECT_TRUE(manager.SwitchState(ManagerState_Steady) && manager.SwitchState(ManagerState_Fading) &&
              manager.SwitchState(ManagerState_Fading)) << "a switch to the present state is allowed";
  const auto f = manager.GetChainPointers();
  EXPECT_EQ(std::tuple(f.state, f.active, f.fadeIn, f.prepared, f.spare),
            std::tuple(uint32_t{ManagerState_Fading}, s.active, s.prepared, s.spare, nullptr));
  EXPECT_TRUE(manager.SwitchState(ManagerState_Steady));
  const auto t = manager.GetChainPointers();
  EXPECT_EQ(std::tuple(t.active, t.fadeIn, t.prepared, t.spare), std::tuple(s.prepared, nullptr, s.spare, s.active));
  EXPECT_TRUE(t.active->IsLive() && !t.spare->IsLive());
}

// Chains scaling by `from` and `to`: each output frame follows the fade law on the
// untouched input, so the new chain heard the input and the law runs the right way.
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
    ASSERT_EQ(fadeFrames, 3072u) << "64 ms at 48 kHz";
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
}

// Stale is over 300 ms since the last block: a flush pushes latency + 20 ms of silence
// first; offload locations flush only blocks marked silent.
TEST(ZORAPOProcessManager, StaleBlocksFlushLatencyPlus20MsByLocation) {
  for (uint32_t location : {kLocationSfx, 4u, 5u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(location);
    const bool offload = location == 4 || location == 5;
    RecordedManager recorded(true, location);  // one tick per millisecond
    auto& [clock, manager, stages] = recorded;
    const std::vector<float> input = Noise(960, 12);
    ZORLogCapture log;
    RunBlock(manager, input, 480, 480, 2);
    clock.Advance(300);  // exactly 300 ms is not stale
    RunBlock(manager, input, 480, 480, 2);
    clock.Advance(400);
    RunBlock(manager, input, 480, 480, 2, /*silent=*/false);
    clock.Advance(299);
    RunBlock(manager, input, 480, 480, 2, /*silent=*/true);
    clock.Advance(301);
    auto [output, frames] = RunBlock(manager, input, 480, 480, 2, /*silent=*/true);
    std::vector<uint32_t> expected = {480, 480, 480, 480, 960, 480};
    if (!offload) expected.insert(expected.begin() + 2, 960);
    EXPECT_EQ(recorded.Active().frames, expected);
    EXPECT_EQ(output, input);
    EXPECT_EQ(log.Count("VELAPOProcessManager::Process - was stale for 301 ms , APO location=" +
                        std::to_string(int32_t(location)) + "\n"), 1u);
  }
}

// The chains a state names are three distinct ones, and the fourth slot is
// null: fadeIn while steady, spare while fading.
static bool NamesThreeChains(const ZORAPOProcessManager::ChainPointers& p) {
  const ZORAPOProcessChain* const fourth = p.state == ManagerState_Steady ? p.fadeIn : p.spare;
  const std::set<const ZORAPOProcessChain*> named = {p.active, p.fadeIn, p.prepared, p.spare};
  return fourth == nullptr && named.size() == 4;
}

// Fades started from another thread as fast as allowed: none cut short, the pointers
// always name three chains, no race (TSan).
TEST(ZORAPOProcessManager, FadesStartedFromAnotherThreadNeverRaceTheAudioThread) {
  constexpr int kFades = 150;
  ManualClock clock(1000);
  ZORAPOProcessManager manager;
  manager.SetClock(&clock);  // never stale: no flush interferes
  manager.Initialize(2, 2, kRate, 0, kLocationSfx);
  std::atomic<bool> done{false}, fadeCutShort{false};
  std::atomic<int> blocks{0};
  std::thread audio([&] {
    const std::vector<float> input = Noise(2 * 256, 15);
    std::vector<float> output(2 * 256);
    for (float previous = manager.GetCrossfade().GetPosition(); !done.load(); ++blocks) {
      uint32_t in = 256, out = 256;
      manager.Process(input.data(), &in, output.data(), &out, false);
      // Within a fade the position only rises; it starts again only from a finished fade.
      const float position = manager.GetCrossfade().GetPosition();
      fadeCutShort = fadeCutShort || (position < previous && previous < 1.0f);
      previous = position;
    }
  });
  bool distinct = true;
  for (int started = 0; started < kFades;) {
    if (manager.GetState() != ManagerState_Steady) {
      std::this_thread::yield();
      continue;
    }
    distinct &= NamesThreeChains(manager.GetChainPointers());
    ASSERT_TRUE(manager.SwitchState(ManagerState_Fading));
    ++started;
    distinct &= NamesThreeChains(manager.GetChainPointers());
  }
  while (manager.GetState() != ManagerState_Steady) std::this_thread::yield();
  done = true;
  audio.join();
  EXPECT_TRUE(distinct);
  EXPECT_FALSE(fadeCutShort);
  EXPECT_GE(blocks.load(), kFades * 12) << "each fade of 3072 frames takes 12 blocks of 256";
}

