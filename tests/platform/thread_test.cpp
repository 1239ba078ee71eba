#include "platform/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "platform/criticalsection.h"
#include "platform/event.h"
#include "platform/threadpriority.h"

using zor::os::Event;
using zor::os::EventReset;
using zor::os::kInfinite;
using zor::os::Thread;

namespace {

constexpr uint32_t kMustNotTimeOutMs = 10000;

struct Probe {
  Event release{EventReset::Manual};
  Event finished{EventReset::Manual};
  std::atomic<uint32_t> seenId{0};
  uint32_t exitCode = 42;
};

unsigned RecordId(void* arg) {
  auto* probe = static_cast<Probe*>(arg);
  probe->seenId = zor::os::CurrentThreadId();
  return probe->exitCode;
}

unsigned WaitForRelease(void* arg) {
  auto* probe = static_cast<Probe*>(arg);
  probe->release.Wait(kInfinite);
  const unsigned exitCode = probe->exitCode;
  probe->finished.Set();  // the probe may be gone after this
  return exitCode;
}

}  // namespace

// A thread runs its entry under its own id, times out a join while running,
// refuses a second start, and keeps its exit code after the join.
TEST(Thread, RunsJoinsAndRestarts) {
  Probe probe;
  Thread thread;
  ASSERT_TRUE(thread.Start(&WaitForRelease, &probe));
  EXPECT_TRUE(thread.Running());
  EXPECT_FALSE(thread.Join(10));
  EXPECT_FALSE(thread.Start(&RecordId, &probe));
  probe.release.Set();
  ASSERT_TRUE(probe.finished.Wait(kMustNotTimeOutMs));
  ASSERT_TRUE(thread.Join(kMustNotTimeOutMs));
  EXPECT_FALSE(thread.Running() || thread.Holds());
  probe.exitCode = 7;
  ASSERT_TRUE(thread.Start(&RecordId, &probe));
  const uint32_t id = thread.Id();
  EXPECT_NE(id, zor::os::CurrentThreadId());
  ASSERT_TRUE(thread.Join(kInfinite));
  EXPECT_EQ(probe.seenId.load(), id);
  EXPECT_EQ(thread.ExitCode(), 7u);
  EXPECT_EQ(thread.Id(), 0u);
  EXPECT_TRUE(thread.Join(0));  // nothing left to wait for
}

TEST(Thread, TerminateKillsWhereThePlatformCanAndElseKeepsTheThread) {
  Probe probe;
  Thread thread;
  ASSERT_TRUE(thread.Start(&WaitForRelease, &probe));
  if (thread.Terminate(0xFFFFFFFFu)) {
    EXPECT_FALSE(thread.Holds());
    EXPECT_EQ(thread.Id(), 0u);
    EXPECT_EQ(thread.ExitCode(), 0xFFFFFFFFu);
    return;
  }
  // POSIX: still held and running, to be joined once it ends.
  EXPECT_TRUE(thread.Holds());
  EXPECT_TRUE(thread.Running());
  probe.release.Set();
  ASSERT_TRUE(thread.Join(kMustNotTimeOutMs));
  EXPECT_TRUE(thread.Terminate(0xFFFFFFFFu)) << "nothing left to kill";
}

TEST(CriticalSection, IsRecursiveAndExcludesOtherThreads) {
  zor::os::CriticalSection section;
  section.Lock();
  EXPECT_TRUE(section.TryLock());
  const auto tryFromOtherThread = [&section] {
    bool taken = false;
    std::thread other([&] {
      taken = section.TryLock();
      if (taken) section.Unlock();
    });
    other.join();
    return taken;
  };
  EXPECT_FALSE(tryFromOtherThread());
  section.Unlock();
  EXPECT_FALSE(tryFromOtherThread());  // still held once
  section.Unlock();
  EXPECT_TRUE(tryFromOtherThread());
}

// Raised where allowed, always put back, never inherited by a thread started meanwhile.
TEST(ThreadPriority, ABoostIsUndoneOnItsOwnThreadAndNotInherited) {
  const int before = zor::os::ThreadPriorityBoost::CurrentLevel();
  int started = -1;
  {
    const zor::os::ThreadPriorityBoost boost(15);
    EXPECT_EQ(zor::os::ThreadPriorityBoost::CurrentLevel() != before, boost.Raised());
    zor::os::Thread thread;
    ASSERT_TRUE(thread.Start(
        [](void* level) {
          *static_cast<int*>(level) = zor::os::ThreadPriorityBoost::CurrentLevel();
          return 0u;
        },
        &started));
    ASSERT_TRUE(thread.Join(kInfinite));
  }
  EXPECT_EQ(started, before);
  EXPECT_EQ(zor::os::ThreadPriorityBoost::CurrentLevel(), before);
}
