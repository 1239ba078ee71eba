// ZORThreadBasic: how workers of every kind end, and that Stop never returns
// while its worker can still touch what its owner gave it.
#include "core/zorthreadbasic.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "support/zorlogcapture.h"

using zor::os::Event;
using zor::os::EventReset;
using zor::os::kInfinite;

namespace {

constexpr uint32_t kMustNotTimeOutMs = 10000;
using RunFunction = std::function<bool(ZORThreadBasic&, Event&)>;

// A worker whose Run is the test's own function; says when it has started.
struct Worker : IZORThreadBasicWorker {
  explicit Worker(RunFunction run) : m_run(std::move(run)) {}
  bool Run(ZORThreadBasic& thread, Event& stopEvent) override {
    runs.fetch_add(1);
    ranOn = &thread;
    stopAtStart = stopEvent.Wait(0);
    started.Set();
    return m_run(thread, stopEvent);
  }
  Event started{EventReset::Auto};
  std::atomic<int> runs{0};
  std::atomic<ZORThreadBasic*> ranOn{nullptr};
  std::atomic<bool> stopAtStart{false};
  RunFunction m_run;
};

void SleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

}  // namespace

// Each kind of worker, stopped with a given wait: its exit code and what the log says.
TEST(ZORThreadBasic, EveryKindOfWorkerEndsWithItsResult) {
  struct Row {
    const char* what;
    RunFunction run;
    uint32_t stopWaitMs;
    uint32_t exitCode;
    const char* logged;  // nullptr: nothing about the stop
  };
  const Row rows[] = {
      {"honours the stop event", [](ZORThreadBasic&, Event& stop) { return stop.Wait(kMustNotTimeOutMs); }, 0,
       ZORThreadBasic::kExitRunSucceeded, nullptr},
      {"fails", [](ZORThreadBasic&, Event& stop) { return !stop.Wait(kMustNotTimeOutMs); }, 0,
       ZORThreadBasic::kExitRunFailed, nullptr},
      {"returns early and keeps the thread until Stop", [](ZORThreadBasic&, Event&) { return false; }, 0,
       ZORThreadBasic::kExitRunFailed, nullptr},
      // Stop(0) waits the default time, ample for a worker that takes a moment.
      {"takes a moment",
       [](ZORThreadBasic&, Event& stop) {
         stop.Wait(kInfinite);
         SleepMs(20);
         return true;
       },
       0, ZORThreadBasic::kExitRunSucceeded, nullptr},
      {"stops itself",
       [](ZORThreadBasic& self, Event& stop) {
         self.Stop(0);
         return stop.Wait(0);
       },
       0, ZORThreadBasic::kExitRunSucceeded, "ZORThreadBasic::Stop | called by its own worker"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    ZORLogCapture log;
    ZORThreadBasic thread;
    Worker worker(row.run);
    ASSERT_TRUE(thread.Start(&worker));
    ASSERT_TRUE(worker.started.Wait(kMustNotTimeOutMs));
    EXPECT_FALSE(worker.stopAtStart);  // Start reset it
    EXPECT_EQ(worker.ranOn.load(), &thread);
    SleepMs(5);
    EXPECT_TRUE(thread.IsStarted());  // the owner collects it, even from a worker that ended
    EXPECT_NE(thread.ThreadId(), 0u);
    thread.Stop(row.stopWaitMs);
    EXPECT_FALSE(thread.IsStarted());
    EXPECT_EQ(thread.ThreadId(), 0u);
    EXPECT_EQ(thread.ExitCode(), row.exitCode);
    EXPECT_TRUE(thread.StopEvent().Wait(0));  // stays signalled until the next Start
    EXPECT_EQ(log.Contains("ZORThreadBasic::Stop"), row.logged != nullptr);
    if (row.logged != nullptr) {
      EXPECT_TRUE(log.Contains(row.logged));
    }
    if (&row != &rows[0]) continue;
    // Start again resets the stop event; a second Start is refused while the worker is held; Stop forgets the worker.
    ASSERT_TRUE(thread.Start(&worker));
    EXPECT_FALSE(thread.Start(&worker));
    ASSERT_TRUE(worker.started.Wait(kMustNotTimeOutMs));
    thread.Stop(0);
    EXPECT_EQ(worker.runs.load(), 2);
    EXPECT_FALSE(thread.Start(nullptr));
    EXPECT_EQ(log.Count("ZORThreadBasic::Start | no worker to run\n"), 1u);
  }
}

// A worker that ignores the stop event for longer than the wait, then uses
// what its owner gave it, as a slow module load or a stuck store does.
TEST(ZORThreadBasic, WorkerThatOutlastsTheWaitNeverOutlivesStop) {
  ZORLogCapture log;
  auto owned = std::make_unique<std::atomic<int>>(0);
  Worker worker([&](ZORThreadBasic&, Event& stopEvent) {
    stopEvent.Wait(kInfinite);
    SleepMs(300);
    owned->store(1);  // freed right after Stop: ASan sees a late worker
    return true;
  });
  ZORThreadBasic thread;
  ASSERT_TRUE(thread.Start(&worker));
  thread.Stop(50);
  EXPECT_FALSE(thread.IsStarted());
#ifdef _WIN32
  EXPECT_TRUE(log.Contains(" ignored the stop event for 50 ms and was terminated\n"));
  EXPECT_EQ(thread.ExitCode(), ZORThreadBasic::kExitRunFailed);
  EXPECT_EQ(owned->load(), 0);
#else
  EXPECT_TRUE(log.Contains(" ignored the stop event for 50 ms; waiting for it to end\n"));
  EXPECT_EQ(owned->load(), 1) << "Stop returned before the worker ended";
#endif
  owned.reset();
}

TEST(ZORThreadBasic, DestructorStopsARunningWorkerAndAStopWithoutOneDoesNothing) {
  ZORThreadBasic idle;
  idle.Stop(0);
  EXPECT_FALSE(idle.IsStarted() || idle.StopEvent().Wait(0));
  std::atomic<bool> stopSeen{false};
  Worker worker([&](ZORThreadBasic&, Event& stop) {
    stopSeen = stop.Wait(kMustNotTimeOutMs);
    return true;
  });
  {
    ZORThreadBasic thread;
    ASSERT_TRUE(thread.Start(&worker));
    ASSERT_TRUE(worker.started.Wait(kMustNotTimeOutMs));
  }
  EXPECT_TRUE(stopSeen);
}
