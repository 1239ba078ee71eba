#include "system/zoraposharedmeter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "childprocess.h"
#include "platform/namedmutex.h"
#include "platform/text.h"
#include "system/zorapoendpointinfo.h"

namespace {

using Levels = std::vector<float>;
const Levels kZero(8, 0.0f);

// A meter block no other test run uses.
struct Meter {
  Meter() {
    static const uint64_t run = (uint64_t{std::random_device{}()} << 32) ^ std::random_device{}();
    static std::atomic<int> counter{0};
    name = ZORAPOSharedMeter::BlockName(
        zor::os::NarrowToWide("Test " + std::to_string(run) + "-" + std::to_string(counter++)), 1);
    opened = meter.OpenCreateNamed(name);
  }
  Levels Read() {
    Levels levels = {9.0f, 9.0f, 9.0f};  // a reader's array becomes eight levels
    EXPECT_TRUE(meter.ReadWrite(levels, true));
    return levels;
  }
  std::u16string name;
  ZORAPOSharedMeter meter;
  bool opened = false;
};

TEST(ZORAPOSharedMeter, AClosedMeterWritesNothingAndZeroesAReadersArrayInPlace) {
  Meter meter;
  meter.meter.Close();  // keeps the mutex for the next OpenCreate
  Levels levels = {0.5f, 0.7f, 0.9f};
  EXPECT_FALSE(meter.meter.ReadWrite(levels, false));
  EXPECT_EQ(levels, (Levels{0.5f, 0.7f, 0.9f}));
  EXPECT_FALSE(meter.meter.ReadWrite(levels, true));
  EXPECT_EQ(levels, (Levels{0, 0, 0}));
  EXPECT_TRUE(meter.meter.OpenCreateNamed(meter.name));
  EXPECT_TRUE(meter.meter.ReadWrite(levels, false));
}

// The meter is first opened under another name: reopened, it must take the
// new block's mutex, not keep the one it left.
TEST(ZORAPOSharedMeter, AWriterDropsItsReadingWhileAnotherHasTheMutex) {
  Meter meter;
  Meter moved;
  meter.meter.Close();
  meter.name = moved.name;
  ASSERT_TRUE(meter.meter.OpenCreateNamed(meter.name));
  std::atomic<int> stage{0};
  std::thread other([&] {
    zor::os::NamedMutex mutex;
    mutex.Create(meter.name + u"_Mutex");
    mutex.Wait(1000);
    for (stage = 1; stage == 1;) std::this_thread::yield();
    mutex.Release();
  });
  while (stage == 0) std::this_thread::yield();
  Levels levels = {0.9f};
  EXPECT_FALSE(meter.meter.ReadWrite(levels, false));
  EXPECT_FALSE(meter.meter.ReadWrite(levels, true));
  stage = 2;
  other.join();
  EXPECT_EQ(meter.Read(), kZero);
}

TEST(ZORAPOSharedMeterProcesses, TwoWritersOfOneMeterAndAReaderThatSeesTheirMaximum) {
  Meter reader;  // holds the block while the writers come and go
  const std::string name = zor::os::Utf16ToUtf8(reader.name);
  for (const char* second : {"0.2", "0.6"}) {
    velapo::test::ChildProcess writer;
    ASSERT_TRUE(writer.Start(velapo::test::HelperBesideTest(VELAPO_SHAREDMEMORY_HELPER),
                             {"meter", name, "0.4", second}));
    EXPECT_EQ(writer.Wait(30000), 0);
  }
  ZORAPOSharedMeter sameProcess;  // a second APO object of the endpoint
  Levels own = {0.5f, 0.1f};
  ASSERT_TRUE(sameProcess.OpenCreateNamed(reader.name) && sameProcess.ReadWrite(own, false));
  EXPECT_EQ(reader.Read(), (Levels{0.5f, 0.6f, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(reader.Read(), kZero);
}

}  // namespace
