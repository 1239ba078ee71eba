// The process manager: frame counts and mute, the chain state table, the fade
// law, stale detection and flush, and fades raced against the audio thread.
// Bypass mixing is pinned by the kernel tests, allocations by the chain tests.
#include "manager/zorapoprocessmanager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <memory>
#include <set>
#include <thread>
#include <tuple>
#include <vector>

#include "audiotesting.h"
#include "manualclock.h"
#include "support/zorlogcapture.h"

namespace {

using velapo::test::ManualClock;
using velapo::test::Noise;
using velapo::test::RecordingStage;

constexpr uint32_t kRate = 48000;
constexpr uint32_t kLocationSfx = 1;

// A manager whose chains each hold a RecordingStage of their own: the first
// chain built scales by `first`, every later one by `later`. The manager is
// the last member, so it stops its worker (which builds too) before the rest goes.
struct RecordedManager : IZORAPOChainBuilder {
  explicit RecordedManager(uint32_t location = kLocationSfx, bool manualClock = true, float first = 1.0f,
                           float later = 1.0f)
      : gains{first, later} {
    manager.SetChainBuilder(this);
    if (manualClock) manager.SetClock(&clock);
    EXPECT_TRUE(manager.Initialize(2, 2, kRate, 0, location));
  }
  void BuildChain(ZORAPOProcessChain& chain) override {
    auto& stage = stages[&chain];
    if (!stage) stage = std::make_unique<RecordingStage>();
    stage->gain = gains[builds++ == 0 ? 0 : 1];
    IZORAudioProcess<float>* list[] = {stage.get()};
    chain.BuildFromStages(2, kRate, true, list);
  }
  RecordingStage& Active() { return *stages.at(manager.GetChainPointers().active); }

  const float gains[2];
  std::atomic<int> builds{0};
  ManualClock clock;
  std::map<const ZORAPOProcessChain*, std::unique_ptr<RecordingStage>> stages;
  ZORAPOProcessManager manager;
};

// Runs one stereo block through the manager; returns the output buffer, whose
// capacity is `framesOut` frames, and the frame count reported.
std::pair<std::vector<float>, uint32_t> RunBlock(ZORAPOProcessManager& manager, const std::vector<float>& input,
                                                 uint32_t framesIn, uint32_t framesOut, bool silent = false) {
  std::vector<float> output(size_t{framesOut} * 2, 7.0f);
  uint32_t in = framesIn, out = framesOut;
  manager.Process(input.data(), &in, output.data(), &out, silent);
  EXPECT_EQ(in, framesIn) << "the input count is never written";
  return {output, out};
}

}  // namespace

// The caller gets the frames the chain left, never more than its buffer holds,
// and zeros after them; muted, only zeros, while the chain still hears the input.
TEST(ZORAPOProcessManager, OutputFramesFollowTheChainAndTheBufferAndMuteZeroesThem) {
  struct Case {
    int frameChange;  // what the chain's stage adds to the block; no stage when 1
    uint32_t framesIn, capacity, framesOut;
    bool mute;
  } const cases[] = {{1, 100, 480, 100, false}, {300 - 480, 480, 480, 300, false}, {1, 64, 16, 16, false},
                     {0, 0, 0, 0, false},       {0, 480, 480, 480, true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.framesIn << " into " << c.capacity << (c.mute ? " muted" : ""));
    RecordedManager recorded(kLocationSfx, /*manualClock=*/false);
    ZORAPOProcessManager plain;
    plain.Initialize(2, 2, kRate, 0, kLocationSfx);
    ZORAPOProcessManager& manager = c.frameChange == 1 ? plain : recorded.manager;
    recorded.Active().frameChange = c.frameChange == 1 ? 0 : c.frameChange;
    manager.SetMute(c.mute);
    const std::vector<float> input = Noise(2 * c.framesIn + 2, c.framesIn);
    auto [output, frames] = RunBlock(manager, input, c.framesIn, c.capacity);
    EXPECT_EQ(frames, c.framesOut);
    for (size_t i = 0; i < output.size(); ++i) {
      ASSERT_EQ(output[i], i < 2 * c.framesOut && !c.mute ? input[i] : 0.0f) << i;
    }
    if (c.mute) {
      EXPECT_GT(recorded.Active().energy, 100.0) << "the muted chain still heard the signal";
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
    RecordedManager recorded(kLocationSfx, /*manualClock=*/false, from, to);
    ZORAPOProcessManager& manager = recorded.manager;
    const uint32_t fadeFrames = manager.GetCrossfade().GetFadeFrames();
    ASSERT_EQ(fadeFrames, 3072u) << "64 ms at 48 kHz";
    ASSERT_EQ(manager.GetCrossfade().GetDelayFrames(), 0u);
    ASSERT_TRUE(manager.SwitchState(ManagerState_Fading));
    const std::vector<float> tone = Noise(2 * 480, 18);
    for (uint32_t start = 0; start < fadeFrames + 960; start += 480) {
      auto [output, frames] = RunBlock(manager, tone, 480, 480);
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
  } const cases[] = {
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
    RecordedManager recorded(location);
    const std::vector<float> input = Noise(960, 12);
    ZORLogCapture log;
    // Gaps before each block, and whether the engine marked it silent.
    for (const auto& [gap, silent] : {std::pair{0, false}, {300, false}, {400, false}, {299, true}}) {
      recorded.clock.Advance(gap);  // exactly 300 ms is not stale
      RunBlock(recorded.manager, input, 480, 480, silent);
    }
    recorded.clock.Advance(301);
    EXPECT_EQ(RunBlock(recorded.manager, input, 480, 480, true).first, input);
    std::vector<uint32_t> expected = {480, 480, 480, 480, 960, 480};
    if (!offload) expected.insert(expected.begin() + 2, 960);
    EXPECT_EQ(recorded.Active().frames, expected);
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
  ManualClock clock;
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
