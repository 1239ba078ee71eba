// The capture link across processes: mutex discovery (locked, killed, not ours to open),
// follow-capture into auto_mic and back, and capture audio in a render side channel.
#include <algorithm>
#include <chrono>
#include <fstream>
#include <mutex>
#include <thread>

#include "apo/czor_lfx_capture_apo_universal.h"
#include "audio/zorapoprocesswrapper.h"
#include "chaintesting.h"
#include "childprocess.h"
#include "manager/zorapoprocessmanager.h"
#include "platform/namedmutex.h"

#if !defined(_WIN32)
#include <sys/stat.h>
#include <unistd.h>

#include "platform/posix/sharedobject.h"
#endif

namespace {

using namespace velapo::test;
using Clock = std::chrono::steady_clock;
using zor::os::NamedMutex;
constexpr auto kPoll = std::chrono::milliseconds(ZORFindMutex::kDefaultPollMs);
constexpr auto kSlack = std::chrono::milliseconds(150);  // a loaded machine's scheduling
constexpr char kHelper[] = "../system/velapo_capture_helper";

// What the notifier heard, in order: '1' present, '0' absent; and when last.
struct Recorder : IZORFindMutexNotify {
  std::mutex mutex;
  std::string heard;
  Clock::time_point last;
  void OnMutexChanged(ZORFindMutex&, bool present) override {
    std::lock_guard<std::mutex> lock(mutex);
    heard += present ? '1' : '0';
    last = Clock::now();
  }
  // Waits up to 10 s for `count` calls.
  std::string Wait(size_t count) {
    for (int i = 0; i < 2000 && Heard().size() < count; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return Heard();
  }
  std::string Heard() {
    std::lock_guard<std::mutex> lock(mutex);
    return heard;
  }
};

std::u16string FreshName() {
  return zor::os::Utf8ToUtf16("Global\\velapo-findmutex-" + std::to_string(Clock::now().time_since_epoch().count()));
}

// The helper's time stamp of `what` (it may still be writing it).
Clock::time_point Marked(const std::filesystem::path& marker, const std::string& what) {
  for (int i = 0; i < 500; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(10))) {
    std::ifstream in(marker);
    std::string word;
    int64_t ns = 0;
    while (in >> word >> ns) {
      if (word == what) return Clock::time_point(std::chrono::nanoseconds(ns));
    }
  }
  ADD_FAILURE() << "the helper never wrote " << what;
  return {};
}

// A lock in another process is heard within one poll, once, its kill as absent within one (the
// follow-capture test sees the unlock); forced probes are told always, Stop silences.
TEST(ZORFindMutexTest, CaptureLockIsHeardWithinOnePollOnceAndItsKillReadsAbsent) {
  const std::filesystem::path marker =
      std::filesystem::temp_directory_path() / zor::os::Utf16ToUtf8(FreshName().substr(7));
  Recorder recorder;
  ZORFindMutex finder;
  finder.Configure(std::u16string(CZOR_LFX_Capture_APO_Universal::kMutexName));
  ASSERT_TRUE(finder.Start(&recorder));
  ChildProcess helper;
  ASSERT_TRUE(helper.Start(HelperBesideTest(kHelper), {"lock", marker.string(), "0"}));
  ASSERT_EQ(recorder.Wait(2), "01") << "was another capture object locked?";
  EXPECT_LE(recorder.last - Marked(marker, "locked"), kPoll + kSlack);
  std::filesystem::remove(marker);

  std::this_thread::sleep_for(2 * kPoll);  // polls while held
  const Clock::time_point killed = Clock::now();
  helper.Kill();
  ASSERT_EQ(recorder.Wait(3), "010");
  EXPECT_LE(recorder.last - killed, kPoll + kSlack);
  std::this_thread::sleep_for(kPoll + kSlack);
  EXPECT_EQ(finder.Check(false), ZORFindMutex::kNoChange);
  EXPECT_EQ(finder.Check(true), ZORFindMutex::kNowAbsent);
  finder.Stop();
  EXPECT_EQ(finder.GetState(), ZORFindMutex::kStateUnknown);
  EXPECT_FALSE(finder.IsPresent());
  EXPECT_EQ(recorder.Heard(), "0100") << "told once; forced: told again; stopped: silent";
}

#if !defined(_WIN32)
TEST(ZORFindMutexTest, RootOnlyMutexIsPresentToAnUnprivilegedProber) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to make a mutex others may not open";
  const std::u16string name = FreshName();
  NamedMutex mutex;
  ASSERT_EQ(mutex.Create(name), NamedMutex::OpenStatus::Ok);
  ASSERT_EQ(::chmod(("/dev/shm" + zor::os::posix::SharedObjectName(name, "x")).c_str(), 0600), 0);
  ChildProcess prober;
  ASSERT_TRUE(prober.Start(HelperBesideTest(kHelper), {"probe", zor::os::Utf16ToUtf8(name)}));
  EXPECT_EQ(prober.Wait(10000), 0) << "0 present, 1 absent, 3 could not drop root";
}
#endif

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
  Clock::time_point next = Clock::now();
};

// Every block's gain stays between the two modes' levels: -3 and -15 dB.
TEST_F(ManagerLink, FollowCaptureCrossfadesIntoAutoMicAndBack) {
  Start("followcapture.xml", true);
  ASSERT_EQ(manager->GetCaptureFinder().GetState(), ZORFindMutex::kStateAbsent) << "a capture object is locked";
  ChildProcess capture;
  ASSERT_TRUE(capture.Start(HelperBesideTest(kHelper), {"lock", Marker().string(), "1500"}));
  bool mic = false, back = false;
  for (uint64_t frame = 0; frame < 480 * 1000 && !back; frame += 480) {
    const std::vector<float> x = Sine(480, 2, 997.0, 48000.0, frame);
    const double db = LevelDb(Play(x)) - LevelDb(x);
    ASSERT_TRUE(db > -15.05 && db < -2.95) << db;
    mic = mic || db < -14.95;
    back = mic && db > -3.05;
  }
  EXPECT_TRUE(mic) << "never crossed into the auto_mic mode";
  EXPECT_TRUE(back) << "never came back after the unlock";
}

// Stereo 48 kHz capture -> 16 kHz mono pipe -> 48 kHz side channel: (L + R) x 0.707, bounded delay.
TEST_F(ManagerLink, CaptureStreamReachesTheRenderSideChannel) {
  UseProbeModule();
  Start("sidechannel.xml", false);
  const ZORAPOProcessManager::ChainPointers chains = manager->GetChainPointers();
  for (const ZORAPOProcessChain* chain : {chains.active, chains.prepared}) {
    chain->GetProcess(0)->SetHooks(nullptr, const_cast<ZORAPOProcessChain*>(chain));  // as an embedder would
  }
  constexpr double kAmplitude = 0.25;
  ChildProcess capture;
  ASSERT_TRUE(capture.Start(HelperBesideTest(kHelper),
                            {"link", m_area.Root(), configPath.string(), Marker().string(), "50", "150", "0.25"}));
  std::vector<std::pair<double, Clock::time_point>> blocks;  // level in dB, due time
  int exitCode = ChildProcess::kStillRunning;
  // Until the helper ends, and 100 blocks more for what is still on its way.
  for (int i = 0, after = 0; i < 800 && after < 100; ++i, after += exitCode != ChildProcess::kStillRunning) {
    // Stamped with its due time: a render stream behind the clock leaves a backlog the pipe can't help.
    blocks.emplace_back(LevelDb(Play(std::vector<float>(960))) + 3.01, next);  // the first channel's
    ASSERT_EQ(output[1], 0.0f) << "only the first channel is the side channel";
    if (exitCode == ChildProcess::kStillRunning) exitCode = capture.Wait(0);
  }
  ASSERT_EQ(exitCode, 0) << "4: the capture object did not bind its capture endpoint";

  const auto first = std::find_if(blocks.begin(), blocks.end(), [](const auto& b) { return b.first > -34.0; });
  ASSERT_NE(first, blocks.end()) << "no tone arrived";
  const auto delay = first->second - Marked(Marker(), "tone");
  RecordProperty("delay_ms", int(std::chrono::duration_cast<std::chrono::milliseconds>(delay).count()));
  // At most the ring's 240 ms of backlog, and a loaded machine's scheduling.
  EXPECT_LT(delay, std::chrono::milliseconds(500));
  ASSERT_GT(blocks.end() - first, 110) << "the tone did not arrive whole";
  // The median block of the tone's steady part, against the fold's RMS.
  std::vector<double> steady;
  for (auto b = first + 10; b != first + 110; ++b) steady.push_back(b->first);
  std::nth_element(steady.begin(), steady.begin() + 50, steady.end());
  EXPECT_NEAR(steady[50] - 20.0 * std::log10(kAmplitude * 2 * 0.707 / std::sqrt(2.0)), 0.0, 0.5);
}

}  // namespace
