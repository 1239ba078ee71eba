// Mutex discovery: what probes and the notifier report, and the capture
// object's mutex seen from another process: locked, unlocked, killed; and a
// mutex this account may not open.
#include "system/zorfindmutex.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "apo/czor_lfx_capture_apo_universal.h"
#include "childprocess.h"
#include "platform/namedmutex.h"
#include "platform/text.h"

#if !defined(_WIN32)
#include <sys/stat.h>
#include <unistd.h>

#include "platform/posix/sharedobject.h"
#endif

namespace {

using Clock = std::chrono::steady_clock;
using zor::os::NamedMutex;
using velapo::test::ChildProcess;
constexpr auto kPoll = std::chrono::milliseconds(ZORFindMutex::kDefaultPollMs);
constexpr auto kSlack = std::chrono::milliseconds(150);  // a loaded machine's scheduling

struct Recorder : IZORFindMutexNotify {
  std::mutex mutex;
  std::vector<bool> heard;
  Clock::time_point last;
  void OnMutexChanged(ZORFindMutex&, bool present) override {
    std::lock_guard<std::mutex> lock(mutex);
    heard.push_back(present);
    last = Clock::now();
  }
  // Waits up to 10 s for `count` calls; what was heard by then.
  std::vector<bool> Wait(size_t count) {
    for (int i = 0; i < 2000; ++i) {
      if (std::lock_guard<std::mutex> lock(mutex); heard.size() >= count) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    std::lock_guard<std::mutex> lock(mutex);
    return heard;
  }
};

std::u16string FreshName() {
  static int count = 0;
  return zor::os::Utf8ToUtf16("Global\\velapo-findmutex-" + std::to_string(Clock::now().time_since_epoch().count()) +
                              "-" + std::to_string(++count));
}

TEST(ZORFindMutexTest, ChangesAreToldOnceAndForcedProbesAlways) {
  enum Action { kStart, kStop, kCheck, kForce, kIsPresent, kCreate, kClose };
  struct Step {
    Action action;
    uint32_t outcome;  // of Check, or IsPresent's answer
    int32_t state;
    std::vector<bool> heard;
  } const steps[] = {
      {kStart, 0, ZORFindMutex::kStateAbsent, {false}},  // told before Start returns
      {kCheck, ZORFindMutex::kNoChange, ZORFindMutex::kStateAbsent, {false}},
      {kForce, ZORFindMutex::kNowAbsent, ZORFindMutex::kStateAbsent, {false, false}},
      {kCreate, 0, ZORFindMutex::kStateAbsent, {false, false}},
      {kCheck, ZORFindMutex::kNowPresent, ZORFindMutex::kStatePresent, {false, false, true}},
      {kIsPresent, 1, ZORFindMutex::kStatePresent, {false, false, true, true}},
      {kStop, 0, ZORFindMutex::kStateUnknown, {false, false, true, true}},
      {kIsPresent, 1, ZORFindMutex::kStatePresent, {false, false, true, true}},  // silenced
      {kClose, 0, ZORFindMutex::kStatePresent, {false, false, true, true}},
      {kStart, 0, ZORFindMutex::kStateAbsent, {false, false, true, true, false}},  // afresh
  };
  Recorder recorder;
  ZORFindMutex finder;
  finder.Configure(FreshName(), 60000);  // the poller stays out of the way
  NamedMutex mutex;
  for (const Step& step : steps) {
    SCOPED_TRACE(testing::Message() << "step " << (&step - steps));
    uint32_t outcome = 0;
    switch (step.action) {
      case kStart: ASSERT_TRUE(finder.Start(&recorder)); break;
      case kStop: finder.Stop(); break;
      case kCheck: outcome = finder.Check(false); break;
      case kForce: outcome = finder.Check(true); break;
      case kIsPresent: outcome = finder.IsPresent() ? 1 : 0; break;
      case kCreate: ASSERT_EQ(mutex.Create(finder.GetName()), NamedMutex::OpenStatus::Ok); break;
      case kClose: mutex.Close(); break;
    }
    EXPECT_EQ(outcome, step.outcome);
    EXPECT_EQ(finder.GetState(), step.state);
    EXPECT_EQ(recorder.Wait(0), step.heard);
  }
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

class CrossProcess : public testing::TestWithParam<bool> {};

// A capture object locked in another process is heard within one poll,
// once; its unlock, or the kill of its process, reads absent within one.
TEST_P(CrossProcess, CaptureLockIsHeardWithinOnePollOnce) {
  const bool kill = GetParam();
  const std::filesystem::path marker =
      std::filesystem::temp_directory_path() / zor::os::Utf16ToUtf8(FreshName().substr(7));
  Recorder recorder;
  ZORFindMutex finder;
  finder.Configure(std::u16string(CZOR_LFX_Capture_APO_Universal::kMutexName));
  ASSERT_TRUE(finder.Start(&recorder));
  ChildProcess helper;
  ASSERT_TRUE(helper.Start(velapo::test::HelperBesideTest("velapo_capture_helper"),
                           {"lock", marker.string(), kill ? "0" : "1000"}));
  ASSERT_EQ(recorder.Wait(2), (std::vector<bool>{false, true})) << "was another capture object locked?";
  EXPECT_LE(recorder.last - Marked(marker, "locked"), kPoll + kSlack);

  std::this_thread::sleep_for(kill ? 2 * kPoll : std::chrono::milliseconds(0));  // polls while held
  const Clock::time_point released = kill ? Clock::now() : Marked(marker, "unlocked");
  if (kill) helper.Kill();
  ASSERT_EQ(recorder.Wait(3), (std::vector<bool>{false, true, false}));
  EXPECT_LE(recorder.last - released, kPoll + kSlack);
  std::this_thread::sleep_for(kPoll + kSlack);
  EXPECT_EQ(recorder.Wait(0).size(), 3u) << "told once";
  std::filesystem::remove(marker);
}

INSTANTIATE_TEST_SUITE_P(UnlockOrKill, CrossProcess, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& param) { return param.param ? "Kill" : "Unlock"; });

#if !defined(_WIN32)
TEST(ZORFindMutexTest, RootOnlyMutexIsPresentToAnUnprivilegedProber) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to make a mutex others may not open";
  const std::u16string name = FreshName();
  NamedMutex mutex;
  ASSERT_EQ(mutex.Create(name), NamedMutex::OpenStatus::Ok);
  ASSERT_EQ(::chmod(("/dev/shm" + zor::os::posix::SharedObjectName(name, "x")).c_str(), 0600), 0);
  ChildProcess prober;
  ASSERT_TRUE(prober.Start(velapo::test::HelperBesideTest("velapo_capture_helper"),
                           {"probe", zor::os::Utf16ToUtf8(name)}));
  EXPECT_EQ(prober.Wait(10000), 0) << "0 present, 1 absent, 3 could not drop root";
}
#endif

}  // namespace
