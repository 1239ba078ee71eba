// The scoped lock holds one level and lets go at the end of its scope.
#include "core/zorscopedlock.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

bool TakenByAnotherThread(zor::os::CriticalSection& section) {
  bool taken = false;
  std::thread other([&] {
    taken = section.TryLock();
    if (taken) section.Unlock();
  });
  other.join();
  return taken;
}

}  // namespace

TEST(ZORScopedLock, HoldsOneLevelWhateverLockAndUnlockAreCalled) {
  zor::os::CriticalSection section;
  {
    ZORScopedLock lock(section);
    EXPECT_TRUE(lock.IsHeld());
    lock.Lock();  // already held: no second level
    EXPECT_FALSE(TakenByAnotherThread(section));
    lock.Unlock();
    EXPECT_FALSE(lock.IsHeld());
    EXPECT_TRUE(TakenByAnotherThread(section));
    lock.Unlock();  // not held: nothing to release
    lock.Lock();
    EXPECT_FALSE(TakenByAnotherThread(section));
  }
  EXPECT_TRUE(TakenByAnotherThread(section));
}
