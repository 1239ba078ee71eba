#include "system/zoraposharedmeter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "allocationcounter.h"
#include "childprocess.h"
#include "platform/namedmutex.h"
#include "platform/text.h"
#include "system/zorapoendpointinfo.h"

using velapo::test::ChildProcess;
using velapo::test::HelperBesideTest;

namespace {

using Levels = std::vector<float>;

// A display name no other test run uses.
std::u16string UniqueDisplayName() {
  static const uint64_t run = (uint64_t{std::random_device{}()} << 32) ^ std::random_device{}();
  static std::atomic<int> counter{0};
  return u"Test Adapter " + zor::os::NarrowToWide(std::to_string(run) + "-" +
                                                  std::to_string(counter++));
}

struct Meter {
  Meter() : name(ZORAPOSharedMeter::BlockName(UniqueDisplayName(), 1)) { opened = meter.OpenCreateNamed(name); }
  explicit Meter(const std::u16string& blockName) : name(blockName) {
    opened = meter.OpenCreateNamed(name);
  }
  Levels Read() {
    Levels levels;
    EXPECT_TRUE(meter.ReadWrite(levels, true));
    return levels;
  }
  std::u16string name;
  ZORAPOSharedMeter meter;
  bool opened = false;
};

const Levels kZero(8, 0.0f);

struct WriteCase {
  const char* what;
  std::vector<Levels> writes;
  Levels block;  // what a reader then sees
};

class ZORAPOSharedMeterWrites : public testing::TestWithParam<WriteCase> {};

TEST_P(ZORAPOSharedMeterWrites, KeepTheMaximumOfWhatIsSuppliedAndZeroTheRest) {
  Meter meter;
  ASSERT_TRUE(meter.opened);
  for (Levels levels : GetParam().writes) ASSERT_TRUE(meter.meter.ReadWrite(levels, false));
  Levels seen = {9.0f, 9.0f, 9.0f};  // a reader's array becomes eight levels
  ASSERT_TRUE(meter.meter.ReadWrite(seen, true));
  EXPECT_EQ(seen, GetParam().block);
  EXPECT_EQ(meter.Read(), kZero);  // reading started a new period
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ZORAPOSharedMeterWrites,
    testing::Values(
        WriteCase{"LouderFirst", {{0.5f}, {0.3f}}, {0.5f, 0, 0, 0, 0, 0, 0, 0}},
        WriteCase{"LouderLater", {{0.3f, 0.1f}, {0.5f, 0.05f}}, {0.5f, 0.1f, 0, 0, 0, 0, 0, 0}},
        WriteCase{"TwoLevelsZeroChannelsTwoToSeven",
                  {{1, 2, 3, 4, 5, 6, 7, 8}, {0.5f, 0.5f}}, {1, 2, 0, 0, 0, 0, 0, 0}},
        WriteCase{"EmptyZeroesAll", {{1, 2, 3, 4, 5, 6, 7, 8}, {}}, kZero},
        WriteCase{"NineLevelsKeepEight", {{1, 2, 3, 4, 5, 6, 7, 8, 9}}, {1, 2, 3, 4, 5, 6, 7, 8}}),
    [](const testing::TestParamInfo<WriteCase>& param) { return std::string(param.param.what); });

TEST(ZORAPOSharedMeter, AClosedMeterWritesNothingAndZeroesAReadersArrayInPlace) {
  ZORAPOSharedMeter closed;
  EXPECT_FALSE(closed.IsOpen());
  Levels levels = {0.5f, 0.7f, 0.9f};
  EXPECT_FALSE(closed.ReadWrite(levels, false));
  EXPECT_EQ(levels, (Levels{0.5f, 0.7f, 0.9f}));
  EXPECT_FALSE(closed.ReadWrite(levels, true));
  EXPECT_EQ(levels, (Levels{0, 0, 0}));

  Meter meter;
  meter.meter.Close();  // keeps the mutex for the next OpenCreate
  EXPECT_FALSE(meter.meter.ReadWrite(levels, false));
  EXPECT_TRUE(meter.meter.OpenCreateNamed(meter.name));
  EXPECT_TRUE(meter.meter.ReadWrite(levels, false));
}

TEST(ZORAPOSharedMeter, NamesTheBlockFromTheDisplayNameAndTheIndex) {
  EXPECT_EQ(ZORAPOSharedMeter::BlockName(u"Realtek(R) Audio Speakers", 1),
            u"Global\\ZOR_Realtek(R) Audio Speakers_Meter_1");
  const ZORAPOEndpointInfo info;
  std::u16string name;
  ZORAPOSharedMeter::BuildName(info, 12, name);
  EXPECT_EQ(name, ZORAPOSharedMeter::BlockName(info.GetDisplayName(), 12));
}

TEST(ZORAPOSharedMeter, AWriterDropsItsReadingWhileTheMutexIsTaken) {
  Meter meter;
  zor::os::NamedMutex other;
  ASSERT_EQ(other.Create(meter.name + u"_MuteX"), zor::os::NamedMutex::OpenStatus::Ok);
  ASSERT_EQ(other.Wait(0), zor::os::NamedMutex::WaitResult::Acquired);
  Levels levels = {0.5f};
  EXPECT_TRUE(meter.meter.ReadWrite(levels, false));  // another case, another mutex
  other.Release();

  std::atomic<bool> held{false};
  std::atomic<bool> done{false};
  std::thread holder([&] {
    zor::os::NamedMutex mutex;
    mutex.Create(meter.name + u"_Mutex");
    held = mutex.Wait(1000) == zor::os::NamedMutex::WaitResult::Acquired;
    while (!done) std::this_thread::yield();
    mutex.Release();
  });
  while (!held) std::this_thread::yield();
  levels = {0.9f};
  EXPECT_FALSE(meter.meter.ReadWrite(levels, false));
  EXPECT_FALSE(meter.meter.ReadWrite(levels, true));
  done = true;
  holder.join();
  EXPECT_EQ(meter.Read()[0], 0.5f);
}

TEST(ZORAPOSharedMeter, WritingAllocatesNothing) {
  Meter meter;
  Levels levels(2, 0.25f);
  const velapo::test::AllocationCounter counter;
  for (int i = 0; i < 1000; ++i) {
    levels[0] = static_cast<float>(i) / 1000.0f;
    ASSERT_TRUE(meter.meter.ReadWrite(levels, false));
  }
  EXPECT_EQ(counter.Count(), 0u);
}

TEST(ZORAPOSharedMeterProcesses, TwoWritersOfOneMeterAndAReaderThatSeesTheirMaximum) {
  Meter reader;  // holds the block while the writers come and go
  // A second object of this process shares the block, as two APO objects
  // of one endpoint do.
  Meter sameProcess(reader.name);
  Levels own = {0.1f, 0.1f, 0.1f, 0.1f};
  ASSERT_TRUE(sameProcess.meter.ReadWrite(own, false));
  const std::string name = zor::os::Utf16ToUtf8(reader.name);
  for (const std::vector<std::string>& levels :
       {std::vector<std::string>{"0.5", "0.2", "0.7"}, std::vector<std::string>{"0.3", "0.6"}}) {
    std::vector<std::string> arguments = {"meter", name};
    arguments.insert(arguments.end(), levels.begin(), levels.end());
    ChildProcess writer;
    ASSERT_TRUE(writer.Start(HelperBesideTest(VELAPO_SHAREDMEMORY_HELPER), arguments));
    EXPECT_EQ(writer.Wait(30000), 0);
  }
  // Each write zeroes the channels it does not supply.
  EXPECT_EQ(reader.Read(), (Levels{0.5f, 0.6f, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(reader.Read(), kZero);
}

}  // namespace
