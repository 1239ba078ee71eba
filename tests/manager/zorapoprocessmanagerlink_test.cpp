// The manager's capture link with other processes: a render stream that
// follows capture crossfades into its auto_mic mode while a capture object
// is locked elsewhere and back after the unlock; and a capture object's
// stereo stream reaches a render stream's side channel over the pipe, at
// its level and with a bounded delay.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "audio/zorapoprocesswrapper.h"
#include "chaintesting.h"
#include "childprocess.h"
#include "manager/zorapoprocessmanager.h"

namespace {

using namespace velapo::test;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kFrames = 480;
constexpr uint32_t kRate = 48000;

double Rms(const float* samples, size_t count, size_t stride) {
  double sum = 0;
  for (size_t i = 0; i < count; ++i) sum += double(samples[i * stride]) * samples[i * stride];
  return std::sqrt(sum / double(count));
}

// One stereo block through the manager, paced as the engine paces it.
struct Player {
  ZORAPOProcessManager& manager;
  Clock::time_point next = Clock::now();
  std::vector<float> output = std::vector<float>(kFrames * 2);
  uint64_t frame = 0;

  // The block's gain in dB on channel 1, for a 997 Hz sine in.
  double PlayDb() {
    const std::vector<float> x = Sine(kFrames, 2, 997.0, kRate, frame);
    Play(x);
    return 20.0 * std::log10(Rms(output.data() + 1, kFrames, 2) / Rms(x.data() + 1, kFrames, 2));
  }
  void Play(const std::vector<float>& input) {
    uint32_t in = kFrames, out = kFrames;
    manager.Process(input.data(), &in, output.data(), &out, false);
    frame += kFrames;
    next += std::chrono::milliseconds(10);
    std::this_thread::sleep_until(next);
  }
};

class ManagerLink : public ChainEndpoint {};

// A lock of a capture object in another process takes the render stream
// into its auto_mic mode by a crossfade, and the unlock takes it back:
// every block's gain stays between the two modes' levels.
TEST_F(ManagerLink, FollowCaptureCrossfadesIntoAutoMicAndBack) {
  const ZORAPOEndpointInfo& info = MakeEndpoint(DataFile("followcapture.xml"));
  ZORAPOProcessManager manager;
  ASSERT_TRUE(manager.SetEndpointInfo(info, 1));
  manager.SetPipeLink(true, true);
  ASSERT_TRUE(manager.Initialize(2, 2, kRate, 0, 1));
  ASSERT_TRUE(manager.GetCaptureFinder().IsPolling());
  ASSERT_EQ(manager.GetCaptureFinder().GetState(), ZORFindMutex::kStateAbsent)
      << "another capture object is locked";

  Player player{manager};
  for (int i = 0; i < 10; ++i) player.PlayDb();
  EXPECT_NEAR(player.PlayDb(), -3.0, 0.05);

  const std::filesystem::path marker = configPath.parent_path() / "capture-marker";
  ChildProcess capture;
  ASSERT_TRUE(capture.Start(HelperBesideTest("../system/velapo_findmutex_helper"),
                            {"capture", marker.string(), "2000"}));
  // Until the level has gone down to the auto_mic mode's and back.
  std::vector<double> levels;
  bool reachedMic = false;
  const Clock::time_point deadline = Clock::now() + std::chrono::seconds(10);
  while (Clock::now() < deadline) {
    const double db = player.PlayDb();
    levels.push_back(db);
    reachedMic = reachedMic || std::abs(db + 15.0) < 0.05;
    if (reachedMic && std::abs(db + 3.0) < 0.05) break;
  }
  EXPECT_TRUE(reachedMic) << "never crossed into the auto_mic mode";
  EXPECT_NEAR(levels.back(), -3.0, 0.05) << "never came back after the unlock";
  for (const double db : levels) {
    EXPECT_GE(db, -15.05);
    EXPECT_LE(db, -2.95);
  }
  capture.Kill();
}

// Attaches every built chain's first process to the chain as its side
// channel's post hook, as an embedder would.
void AttachSideChannel(ZORAPOProcessManager& manager) {
  const ZORAPOProcessManager::ChainPointers chains = manager.GetChainPointers();
  for (const ZORAPOProcessChain* chain : {chains.active, chains.prepared, chains.fadeIn, chains.spare}) {
    if (chain == nullptr || chain->GetProcessCount() == 0) continue;
    auto* hook = const_cast<ZORAPOProcessChain*>(chain);
    chain->GetProcess(0)->SetHooks(nullptr, hook);
  }
}

// Stereo capture at 48 kHz in another process, 16 kHz mono on the wire, and
// back at 48 kHz in the render stream's side channel (its first channel):
// the tone arrives at the fold's level, (L + R) x 0.707, within 200 ms.
TEST_F(ManagerLink, CaptureStreamReachesTheRenderSideChannel) {
  UseProbeModule();  // its "quietside" hands channel 0 to the side channel
  const ZORAPOEndpointInfo& info = MakeEndpoint(DataFile("sidechannel.xml"));
  ZORAPOProcessManager manager;
  ASSERT_TRUE(manager.SetEndpointInfo(info, 1));
  manager.SetPipeLink(true, false);
  ASSERT_TRUE(manager.Initialize(2, 2, kRate, 0, 1));
  ASSERT_TRUE(manager.GetPipe().IsRunning());
  AttachSideChannel(manager);

  constexpr double kAmplitude = 0.25;
  const std::filesystem::path marker = configPath.parent_path() / "link-marker";
  ChildProcess capture;
  ASSERT_TRUE(capture.Start(HelperBesideTest("velapo_link_helper"),
                            {m_area.Root(), configPath.string(), marker.string(), "50", "150",
                             std::to_string(kAmplitude)}));
  // The render stream plays silence; its first channel is the side channel.
  Player player{manager};
  const std::vector<float> silence(kFrames * 2, 0.0f);
  std::vector<double> blockRms;
  std::vector<Clock::time_point> blockTimes;
  int exitCode = ChildProcess::kStillRunning;
  for (int i = 0; i < 600 && exitCode == ChildProcess::kStillRunning; ++i) {
    player.Play(silence);
    blockRms.push_back(Rms(player.output.data(), kFrames, 2));
    blockTimes.push_back(Clock::now());
    EXPECT_EQ(player.output[1], 0.0f) << "the second channel is not the side channel";
    exitCode = capture.Wait(0);
  }
  if (exitCode == 4) GTEST_SKIP() << "the device list does not hold the store's endpoints";
  ASSERT_EQ(exitCode, 0) << "the capture helper failed";

  std::ifstream in(marker);
  std::string word;
  int64_t ns = 0;
  ASSERT_TRUE(in >> word >> ns);
  const Clock::time_point toneStart{std::chrono::nanoseconds(ns)};
  const auto first = std::find_if(blockRms.begin(), blockRms.end(), [](double rms) { return rms > 0.02; });
  ASSERT_NE(first, blockRms.end()) << "no tone arrived";
  const size_t index = static_cast<size_t>(first - blockRms.begin());
  const auto delay = std::chrono::duration_cast<std::chrono::milliseconds>(blockTimes[index] - toneStart);
  EXPECT_GE(delay.count(), 0);
  EXPECT_LT(delay.count(), 200);
  RecordProperty("delay_ms", static_cast<int>(delay.count()));

  // The middle of the tone, past the first packets: the median block level.
  ASSERT_GT(blockRms.size(), index + 110);
  std::vector<double> steady(blockRms.begin() + long(index) + 10, blockRms.begin() + long(index) + 110);
  std::nth_element(steady.begin(), steady.begin() + 50, steady.end());
  const double expectedRms = kAmplitude * 2.0 * 0.707 / std::sqrt(2.0);
  const double levelDb = 20.0 * std::log10(steady[50] / expectedRms);
  EXPECT_NEAR(levelDb, 0.0, 0.5);
  RecordProperty("level_error_cdb", static_cast<int>(std::lround(levelDb * 100)));
  EXPECT_EQ(manager.GetPipe().GetPipe().GetSampleRate(), kZORCapturePipeRate);
}

}  // namespace
