// Events: auto reset, WaitAny racing Set, and destruction right after a wait.
#include "platform/event.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "platform/clock.h"

using zor::os::Event;
using zor::os::EventReset;
using zor::os::kInfinite;
using zor::os::kWaitTimeout;
using zor::os::WaitAny;

namespace {

// Generous bound for waits that must succeed; reaching it means a lost Set.
constexpr uint32_t kMustNotTimeOutMs = 10000;

double ElapsedMs(int64_t since) {
  int64_t now = 0;
  int64_t frequency = 1;
  zor::os::QueryCounter(now);
  zor::os::QueryFrequency(frequency);
  return static_cast<double>(now - since) * 1000.0 / static_cast<double>(frequency);
}

}  // namespace

TEST(Event, AutoResetSetReleasesExactlyOneWaiterEachTime) {
  constexpr int kWaiters = 4;
  Event gate(EventReset::Auto);
  Event woke(EventReset::Auto);
  std::atomic<int> sets{0};
  std::atomic<int> wakes{0};
  std::atomic<bool> moreWakesThanSets{false};
  std::vector<std::thread> waiters;
  for (int i = 0; i < kWaiters; ++i) {
    waiters.emplace_back([&] {
      if (!gate.Wait(kMustNotTimeOutMs)) return;
      if (wakes.fetch_add(1) + 1 > sets.load()) moreWakesThanSets = true;
      woke.Set();
    });
  }
  for (int i = 0; i < kWaiters; ++i) {
    sets.fetch_add(1);
    gate.Set();
    ASSERT_TRUE(woke.Wait(kMustNotTimeOutMs));
  }
  for (std::thread& waiter : waiters) waiter.join();
  EXPECT_FALSE(moreWakesThanSets);
  EXPECT_EQ(wakes.load(), kWaiters);
  EXPECT_FALSE(gate.Wait(0));
}

TEST(Event, SetRacingWithWaitAnyIsNeverLost) {
  constexpr int kRounds = 2000;
  Event unrelated(EventReset::Auto);
  Event target(EventReset::Auto);
  Event taken(EventReset::Auto);
  std::atomic<int> received{0};
  std::atomic<bool> lost{false};
  std::thread waiter([&] {
    Event* events[] = {&unrelated, &target};
    for (int round = 0; round < kRounds && !lost; ++round) {
      int64_t start = 0;
      zor::os::QueryCounter(start);
      // Alternate blocking waits with short time-outs that race the Set.
      const uint32_t timeout = round % 2 == 0 ? kMustNotTimeOutMs : 1;
      while (WaitAny(events, 2, timeout) != 1) {
        if (ElapsedMs(start) > kMustNotTimeOutMs) {
          lost = true;
          break;
        }
      }
      received.fetch_add(1);
      taken.Set();
    }
  });
  for (int round = 0; round < kRounds; ++round) {
    target.Set();
    if (!taken.Wait(kMustNotTimeOutMs)) {
      lost = true;
      break;
    }
  }
  waiter.join();
  EXPECT_FALSE(lost);
  EXPECT_EQ(received.load(), kRounds);
  EXPECT_FALSE(target.Wait(0));
}

TEST(Event, MayBeDestroyedAsSoonAsAWaitHasSeenItSignalled) {
  // A finished-signal pattern: the waiter frees the event the moment its wait
  // returns, while the setting thread may still be inside Set.
  for (int round = 0; round < 300; ++round) {
    auto event = std::make_unique<Event>(round % 2 == 0 ? EventReset::Auto : EventReset::Manual);
    std::thread setter([raw = event.get()] { raw->Set(); });
    if (round % 3 == 0) {
      while (!event->Wait(0)) std::this_thread::yield();
    } else {
      ASSERT_TRUE(event->Wait(kMustNotTimeOutMs));
    }
    event.reset();
    setter.join();
  }
}
