// The manager's capture link with a capture object in another process: a
// render stream that follows capture crossfades into its auto_mic mode while
// the object is locked and back after the unlock; and the object's stereo
// stream reaches a render stream's side channel over the pipe.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fstream>
#include <memory>
#include <thread>

#include "audio/zorapoprocesswrapper.h"
#include "chaintesting.h"
#include "childprocess.h"
#include "manager/zorapoprocessmanager.h"

namespace {

using namespace velapo::test;

double Rms(const float* samples, size_t stride) {
  double sum = 0;
  for (size_t i = 0; i < 480; ++i) sum += double(samples[i * stride]) * samples[i * stride];
  return std::sqrt(sum / 480.0);
}

class ManagerLink : public ChainEndpoint {
 protected:
  // The manager holds the endpoint's device, which the fixture frees.
  void TearDown() override {
    manager.reset();
    ChainEndpoint::TearDown();
  }
  // Binds a stereo 48 kHz render stream on a copy of `file` with the link on.
  void Start(const char* file, bool followCapture) {
    ASSERT_TRUE(manager->SetEndpointInfo(MakeEndpoint(DataFile(file)), 1));
    manager->SetPipeLink(true, followCapture);
    ASSERT_TRUE(manager->Initialize(2, 2, 48000, 0, 1));
    ASSERT_TRUE(manager->GetPipe().IsRunning());
  }
  // One block as the engine paces it: 480 frames every 10 ms.
  const std::vector<float>& Play(const std::vector<float>& input) {
    uint32_t in = 480, out = 480;
    manager->Process(input.data(), &in, output.data(), &out, false);
    std::this_thread::sleep_until(next += std::chrono::milliseconds(10));
    return output;
  }
  std::filesystem::path Marker() const { return configPath.parent_path() / "marker"; }

  std::unique_ptr<ZORAPOProcessManager> manager = std::make_unique<ZORAPOProcessManager>();
  std::vector<float> output = std::vector<float>(960);
  std::chrono::steady_clock::time_point next = std::chrono::steady_clock::now();
};

// Every block's gain stays between the two modes' levels: -3 and -15 dB.
TEST_F(ManagerLink, FollowCaptureCrossfadesIntoAutoMicAndBack) {
  Start("followcapture.xml", true);
  ASSERT_EQ(manager->GetCaptureFinder().GetState(), ZORFindMutex::kStateAbsent) << "a capture object is locked";
  ChildProcess capture;
  ASSERT_TRUE(capture.Start(HelperBesideTest("../system/velapo_capture_helper"), {"lock", Marker().string(), "1500"}));
  bool mic = false, back = false;
  for (uint64_t frame = 0; frame < 480 * 1000 && !back; frame += 480) {
    const std::vector<float> x = Sine(480, 2, 997.0, 48000.0, frame);
    const double db = 20.0 * std::log10(Rms(Play(x).data() + 1, 2) / Rms(x.data() + 1, 2));
    ASSERT_TRUE(db > -15.05 && db < -2.95) << db;
    mic = mic || db < -14.95;
    back = mic && db > -3.05;
  }
  EXPECT_TRUE(mic) << "never crossed into the auto_mic mode";
  EXPECT_TRUE(back) << "never came back after the unlock";
}

// A capture object that binds its own capture endpoint, stereo at 48 kHz,
// 16 kHz mono on the wire, 48 kHz in the render
// stream's side channel (its first channel, by the recording module's
// "quietside"): the tone arrives at the fold's level, (L + R) x 0.707,
// with a bounded delay.
TEST_F(ManagerLink, CaptureStreamReachesTheRenderSideChannel) {
  UseProbeModule();
  Start("sidechannel.xml", false);
  const ZORAPOProcessManager::ChainPointers chains = manager->GetChainPointers();
  for (const ZORAPOProcessChain* chain : {chains.active, chains.prepared}) {
    chain->GetProcess(0)->SetHooks(nullptr, const_cast<ZORAPOProcessChain*>(chain));  // as an embedder would
  }
  constexpr double kAmplitude = 0.25;
  ChildProcess capture;
  ASSERT_TRUE(capture.Start(HelperBesideTest("../system/velapo_capture_helper"),
                            {"link", m_area.Root(), configPath.string(), Marker().string(), "50", "150", "0.25"}));
  std::vector<std::pair<double, std::chrono::steady_clock::time_point>> blocks;
  int exitCode = ChildProcess::kStillRunning;
  // Until the helper ends, and 100 blocks more for what is still on its way.
  for (int i = 0, after = 0; i < 800 && after < 100; ++i, after += exitCode != ChildProcess::kStillRunning) {
    // Stamped with the block's due time: a render stream that falls behind
    // the clock (Wine on a busy machine) leaves a backlog the pipe can't help.
    blocks.emplace_back(Rms(Play(std::vector<float>(960)).data(), 2), next);
    ASSERT_EQ(output[1], 0.0f) << "only the first channel is the side channel";
    if (exitCode == ChildProcess::kStillRunning) exitCode = capture.Wait(0);
  }
  ASSERT_NE(exitCode, 4) << "the capture object did not bind its capture endpoint";
  ASSERT_EQ(exitCode, 0);

  std::ifstream marker(Marker());
  std::string word;
  int64_t ns = 0;
  ASSERT_TRUE(marker >> word >> ns);
  const auto first = std::find_if(blocks.begin(), blocks.end(), [](const auto& b) { return b.first > 0.02; });
  ASSERT_NE(first, blocks.end()) << "no tone arrived";
  const auto delay = first->second - std::chrono::steady_clock::time_point(std::chrono::nanoseconds(ns));
  RecordProperty("delay_ms", int(std::chrono::duration_cast<std::chrono::milliseconds>(delay).count()));
  // At most the ring's 240 ms of backlog, and a loaded machine's scheduling.
  EXPECT_LT(delay, std::chrono::milliseconds(500));
  ASSERT_GT(blocks.end() - first, 110) << "the tone did not arrive whole";
  // The median block of the tone's steady part, against the fold's RMS.
  std::vector<double> steady;
  for (auto b = first + 10; b != first + 110; ++b) steady.push_back(b->first);
  std::nth_element(steady.begin(), steady.begin() + 50, steady.end());
  EXPECT_NEAR(20.0 * std::log10(steady[50] / (kAmplitude * 2 * 0.707 / std::sqrt(2.0))), 0.0, 0.5);
}

}  // namespace
