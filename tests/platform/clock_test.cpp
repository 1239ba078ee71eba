// The performance counter runs forward at its frequency.
#include "platform/clock.h"

#include <gtest/gtest.h>

#include "platform/event.h"

TEST(Clock, CounterRunsForwardAtTheReportedFrequency) {
  int64_t frequency = 0;
  ASSERT_TRUE(zor::os::QueryFrequency(frequency));
  EXPECT_GE(frequency, 1000000);  // at least microsecond resolution
  int64_t before = 0;
  int64_t after = 0;
  ASSERT_TRUE(zor::os::QueryCounter(before));
  zor::os::Event never(zor::os::EventReset::Auto);
  never.Wait(20);
  ASSERT_TRUE(zor::os::QueryCounter(after));
  EXPECT_GE(after - before, frequency * 15 / 1000);
  // Consecutive reads never go back.
  int64_t previous = after;
  for (int i = 0; i < 1000; ++i) {
    int64_t now = 0;
    ASSERT_TRUE(zor::os::QueryCounter(now));
    ASSERT_GE(now, previous);
    previous = now;
  }
}
