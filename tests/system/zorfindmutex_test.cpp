// Mutex discovery: the probe's outcomes and what the notifier hears, in this
// process on names of the test's own, and across processes on the capture
// object's mutex, whose holder unlocks or is killed.
#include "system/zorfindmutex.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
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

// What the notifier heard, with the time, from whichever thread.
class Recorder : public IZORFindMutexNotify {
 public:
  struct Call {
    bool present;
    Clock::time_point when;
  };
  void OnMutexChanged(ZORFindMutex&, bool present) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_calls.push_back({present, Clock::now()});
    m_changed.notify_all();
  }
  // Waits until a call with `present` arrives; its time, or nothing.
  bool WaitFor(bool present, Clock::time_point& when, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, timeout, [&] {
      for (const Call& call : m_calls) {
        if (call.present == present) {
          when = call.when;
          return true;
        }
      }
      return false;
    });
  }
  Clock::time_point LastTime() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_calls.empty() ? Clock::time_point{} : m_calls.back().when;
  }
  std::vector<bool> Heard() {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<bool> heard;
    for (const Call& call : m_calls) heard.push_back(call.present);
    return heard;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<Call> m_calls;
};

std::u16string FreshName() {
  static int count = 0;
  return u"Global\\velapo-findmutex-test-" +
         zor::os::Utf8ToUtf16(std::to_string(Clock::now().time_since_epoch().count()) + "-" +
                              std::to_string(++count));
}

// Check's outcomes and what a notifier hears, one step at a time.
TEST(ZORFindMutexTest, CheckReportsChangesOnlyAndForceReportsAlways) {
  enum Action { kNone, kCreate, kClose };
  struct Step {
    Action action;
    bool force;
    uint32_t outcome;
    int32_t state;
  };
  const Step steps[] = {
      {kNone, false, ZORFindMutex::kNowAbsent, ZORFindMutex::kStateAbsent},  // from unknown
      {kNone, false, ZORFindMutex::kNoChange, ZORFindMutex::kStateAbsent},
      {kNone, true, ZORFindMutex::kNowAbsent, ZORFindMutex::kStateAbsent},
      {kCreate, false, ZORFindMutex::kNowPresent, ZORFindMutex::kStatePresent},
      {kNone, false, ZORFindMutex::kNoChange, ZORFindMutex::kStatePresent},
      {kNone, true, ZORFindMutex::kNowPresent, ZORFindMutex::kStatePresent},
      {kClose, false, ZORFindMutex::kNowAbsent, ZORFindMutex::kStateAbsent},
  };
  Recorder recorder;
  ZORFindMutex finder;
  finder.Configure(FreshName(), 50);
  ASSERT_TRUE(finder.Start(&recorder));
  finder.Stop();  // a stopped finder keeps no notifier
  EXPECT_EQ(finder.GetState(), ZORFindMutex::kStateUnknown);
  EXPECT_EQ(recorder.Heard(), std::vector<bool>{false});

  NamedMutex mutex;
  for (size_t i = 0; i < std::size(steps); ++i) {
    if (steps[i].action == kCreate) {
      ASSERT_EQ(mutex.Create(finder.GetName()), NamedMutex::OpenStatus::Ok);
    }
    if (steps[i].action == kClose) mutex.Close();
    EXPECT_EQ(finder.Check(steps[i].force), steps[i].outcome) << "step " << i;
    EXPECT_EQ(finder.GetState(), steps[i].state) << "step " << i;
  }
  EXPECT_EQ(recorder.Heard(), std::vector<bool>{false}) << "no notifier after Stop";
}

// Start tells the state before it returns; IsPresent tells every probe;
// Stop silences at once and a later Start tells the state afresh.
TEST(ZORFindMutexTest, StartReportsAtOnceAndIsPresentReportsEveryProbe) {
  Recorder recorder;
  ZORFindMutex finder;
  finder.Configure(FreshName(), 10000);  // the poller never probes in this test
  NamedMutex mutex;
  ASSERT_EQ(mutex.Create(finder.GetName()), NamedMutex::OpenStatus::Ok);

  ASSERT_TRUE(finder.Start(&recorder));
  EXPECT_EQ(recorder.Heard(), std::vector<bool>{true});
  EXPECT_TRUE(finder.IsPresent());
  EXPECT_TRUE(finder.IsPresent());
  EXPECT_EQ(recorder.Heard(), (std::vector<bool>{true, true, true}));

  finder.Stop();
  EXPECT_FALSE(finder.IsPolling());
  EXPECT_TRUE(finder.IsPresent());
  EXPECT_EQ(recorder.Heard().size(), 3u);

  mutex.Close();
  ASSERT_TRUE(finder.Start(&recorder));
  EXPECT_EQ(recorder.Heard(), (std::vector<bool>{true, true, true, false}));
}

// The poller on a mutex of this process: created after Start, it is heard
// within one poll, once; closed, it is heard gone within one poll.
TEST(ZORFindMutexTest, PollerHearsAppearAndGoOnce) {
  Recorder recorder;
  ZORFindMutex finder;
  finder.Configure(FreshName(), 40);
  ASSERT_TRUE(finder.Start(&recorder));
  NamedMutex mutex;
  ASSERT_EQ(mutex.Create(finder.GetName()), NamedMutex::OpenStatus::Ok);
  Clock::time_point when;
  ASSERT_TRUE(recorder.WaitFor(true, when, std::chrono::seconds(5)));
  mutex.Close();
  std::vector<bool> heard;
  for (int i = 0; i < 100 && (heard = recorder.Heard()).size() < 3; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(120));  // three more polls
  EXPECT_EQ(recorder.Heard(), (std::vector<bool>{false, true, false}));
}

// A capture object locked in another process, unlocked there or killed with it.
class ZORFindMutexCrossProcessTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    m_marker = std::filesystem::temp_directory_path() /
               ("velapo-findmutex-" + zor::os::Utf16ToUtf8(FreshName().substr(7)));
    std::filesystem::remove(m_marker);
  }
  void TearDown() override { std::filesystem::remove(m_marker); }
  // The helper's time stamp of `what`, waiting for it to be written.
  Clock::time_point Marked(const std::string& what) {
    for (int i = 0; i < 500; ++i) {
      std::ifstream in(m_marker);
      std::string word;
      int64_t ns = 0;
      while (in >> word >> ns) {
        if (word == what) return Clock::time_point(std::chrono::nanoseconds(ns));
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ADD_FAILURE() << "the helper never wrote " << what;
    return Clock::now();
  }

  std::filesystem::path m_marker;
};

// One poll of 300 ms, and room for a loaded machine's scheduling.
constexpr auto kPoll = std::chrono::milliseconds(ZORFindMutex::kDefaultPollMs);
constexpr auto kSlack = std::chrono::milliseconds(150);

TEST_P(ZORFindMutexCrossProcessTest, LockIsHeardWithinOnePollOnceAndReleaseReadsAbsent) {
  const bool kill = GetParam();
  Recorder recorder;
  ZORFindMutex finder;
  finder.Configure(std::u16string(CZOR_LFX_Capture_APO_Universal::kMutexName));
  ASSERT_TRUE(finder.Start(&recorder));
  ASSERT_EQ(recorder.Heard(), std::vector<bool>{false}) << "another capture object is locked";

  velapo::test::ChildProcess helper;
  ASSERT_TRUE(helper.Start(velapo::test::HelperBesideTest("velapo_findmutex_helper"),
                           {"capture", m_marker.string(), kill ? "0" : "1000"}));
  Clock::time_point heard;
  ASSERT_TRUE(recorder.WaitFor(true, heard, std::chrono::seconds(10)));
  const Clock::time_point locked = Marked("locked");
  EXPECT_LE(heard - locked, kPoll + kSlack);

  Clock::time_point released;
  if (kill) {
    std::this_thread::sleep_for(std::chrono::milliseconds(700));  // a few polls while held
    released = Clock::now();
    helper.Kill();
    EXPECT_NE(helper.Wait(5000), velapo::test::ChildProcess::kStillRunning);
  } else {
    released = Marked("unlocked");
  }
  Clock::time_point gone;
  ASSERT_TRUE(recorder.WaitFor(false, gone, std::chrono::seconds(10)));
  // WaitFor finds the first "absent", the one of Start; take the last call.
  std::this_thread::sleep_for(kPoll + kSlack);  // one more poll tells nothing
  const std::vector<bool> told = recorder.Heard();
  EXPECT_EQ(told, (std::vector<bool>{false, true, false})) << "each change told once";
  EXPECT_LE(recorder.LastTime() - released, kPoll + kSlack);
  finder.Stop();
}

INSTANTIATE_TEST_SUITE_P(UnlockOrKill, ZORFindMutexCrossProcessTest, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& param) { return param.param ? "Killed" : "Unlocked"; });

#if !defined(_WIN32)
// A mutex root made for itself alone is present to an account that may not
// open it.
TEST(ZORFindMutexTest, RootOnlyMutexIsPresentToAnUnprivilegedProber) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to make a mutex others may not open";
  const std::u16string name = FreshName();
  NamedMutex mutex;
  ASSERT_EQ(mutex.Create(name), NamedMutex::OpenStatus::Ok);
  const std::string file = "/dev/shm" + zor::os::posix::SharedObjectName(name, "x");
  ASSERT_EQ(::chmod(file.c_str(), 0600), 0);

  velapo::test::ChildProcess prober;
  ASSERT_TRUE(prober.Start(velapo::test::HelperBesideTest("velapo_findmutex_helper"),
                           {"probe", zor::os::Utf16ToUtf8(name)}));
  EXPECT_EQ(prober.Wait(10000), 0) << "0 present, 1 absent, 3 could not drop root";
  EXPECT_EQ(NamedMutex::Probe(name), NamedMutex::Presence::Present) << "root itself may open it";
}
#endif

}  // namespace
