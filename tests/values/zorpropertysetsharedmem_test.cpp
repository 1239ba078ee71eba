#include "values/zorpropertysetsharedmem.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "childprocess.h"
#include "platform/namedmutex.h"
#include "platform/text.h"

using velapo::test::ChildProcess;
using velapo::test::HelperBesideTest;
using zor::os::NamedMutex;

namespace {

constexpr uint32_t kChildWaitMs = 30000;
constexpr uint32_t kSmallBlock = 64;

// A block name no other test run uses: a random run id and a counter.
std::u16string UniqueName() {
  static const uint64_t run = (uint64_t{std::random_device{}()} << 32) ^ std::random_device{}();
  static std::atomic<int> counter{0};
  return u"Local\\velapo-shm-test-" +
         zor::os::NarrowToWide(std::to_string(run) + "-" + std::to_string(counter++));
}

std::string Narrow(std::u16string_view text) { return zor::os::Utf16ToUtf8(text); }

int RunHelper(const std::vector<std::string>& arguments) {
  ChildProcess child;
  if (!child.Start(HelperBesideTest(VELAPO_SHAREDMEMORY_HELPER), arguments)) return -1;
  return child.Wait(kChildWaitMs);
}

std::string TextOf(const ZORPropertySet& set, std::u16string_view name) {
  std::string text;
  return set.GetPropertyAString(name, text) ? text : "<absent>";
}

// One block opened by the test, with its set attached.
struct Block {
  explicit Block(std::u16string blockName, uint32_t size = 0) : name(std::move(blockName)) {
    shared.SetPropertySet(&set);
    opened = shared.Open(name, size);
  }
  uint8_t* Bytes() { return static_cast<uint8_t*>(shared.MapView()); }
  bool IsZero() {
    const uint8_t* bytes = Bytes();
    for (uint32_t i = 0; i < shared.GetSize(); ++i) {
      if (bytes[i] != 0) return false;
    }
    return true;
  }
  std::u16string name;
  ZORPropertySet set;
  ZORPropertySetSharedMem shared;
  bool opened = false;
};

TEST(ZORPropertySetSharedMem, FirstOpenGivesADefaultSizedZeroBlockThatReadsAsNothing) {
  Block block(UniqueName());
  ASSERT_TRUE(block.opened);
  EXPECT_TRUE(block.shared.IsOpen());
  EXPECT_EQ(block.shared.GetName(), block.name);
  EXPECT_EQ(block.shared.GetSize(), 65536u);
  EXPECT_TRUE(block.IsZero());
  block.set.SetPropertyLong(u"Kept", 1);
  EXPECT_EQ(block.shared.Read(false, true, true), 0u);
  EXPECT_EQ(TextOf(block.set, u"Kept"), "1");
}

// What another process may have left in the block, and what Read makes of
// it, replacing and merging. The set holds "Kept" before each read.
struct BlockCase {
  const char* what;
  uint32_t length;              // the length field
  std::vector<uint8_t> bytes;   // from offset 4
  bool merge;
  uint32_t status;
  const char* kept;             // "Kept" afterwards
  const char* ab;               // "Ab" afterwards
};

std::vector<uint8_t> Record(const char* name, int32_t number) {
  std::vector<uint8_t> bytes;
  auto put32 = [&bytes](uint32_t v) {
    for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<uint8_t>(v >> (8 * i)));
  };
  const size_t length = std::strlen(name);
  put32(static_cast<uint32_t>(length * 2));
  put32(1);
  put32(4);
  for (size_t i = 0; i < length; ++i) bytes.insert(bytes.end(), {static_cast<uint8_t>(name[i]), 0});
  bytes.push_back(0);  // VELAnyValLong
  put32(static_cast<uint32_t>(number));
  return bytes;
}

std::vector<uint8_t> AbThenBroken() {
  std::vector<uint8_t> bytes = Record("Ab", 7);
  std::vector<uint8_t> broken = Record("Cd", 8);
  broken[0] = 0x04;  // name size 2052: past what a reader accepts
  broken[1] = 0x08;
  bytes.insert(bytes.end(), broken.begin(), broken.end());
  return bytes;
}

class ZORPropertySetSharedMemBlock : public testing::TestWithParam<BlockCase> {};

TEST_P(ZORPropertySetSharedMemBlock, ReadsWithinTheBlockAndAnswersItsCode) {
  const BlockCase& c = GetParam();
  Block block(UniqueName(), kSmallBlock);
  ASSERT_TRUE(block.opened);
  uint8_t* bytes = block.Bytes();
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(c.length >> (8 * i));
  std::memcpy(bytes + 4, c.bytes.data(), std::min<size_t>(c.bytes.size(), kSmallBlock - 4));
  block.set.SetPropertyLong(u"Kept", 1);
  EXPECT_EQ(block.shared.Read(c.merge, true, true), c.status);
  EXPECT_EQ(TextOf(block.set, u"Kept"), c.kept);
  EXPECT_EQ(TextOf(block.set, u"Ab"), c.ab);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ZORPropertySetSharedMemBlock,
    testing::Values(
        BlockCase{"length 0", 0, Record("Ab", 7), false, 0, "1", "<absent>"},
        BlockCase{"one record", 21, Record("Ab", 7), false, 0, "<absent>", "7"},
        BlockCase{"one record merged", 21, Record("Ab", 7), true, 0, "1", "7"},
        BlockCase{"length one past the block", kSmallBlock - 3, Record("Ab", 7), false,
                  ZOR_SHM_ERROR_PARSE, "1", "<absent>"},
        BlockCase{"length far past the block", 0xFFFFFFFF, Record("Ab", 7), true,
                  ZOR_SHM_ERROR_PARSE, "1", "<absent>"},
        BlockCase{"length cuts the record", 20, Record("Ab", 7), false, ZOR_SHM_ERROR_PARSE,
                  "<absent>", "<absent>"},
        BlockCase{"corrupt second record", 42, AbThenBroken(), false, ZOR_SHM_ERROR_PARSE,
                  "<absent>", "7"},
        BlockCase{"corrupt second record merged", 42, AbThenBroken(), true, 0, "1", "7"}),
    [](const testing::TestParamInfo<BlockCase>& param) {
      std::string name = param.param.what;
      for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
      return name;
    });

TEST(ZORPropertySetSharedMem, WriteFitsABlobOfTheBlockSizeMinusFourAndNoMore) {
  Block block(UniqueName(), kSmallBlock);
  ASSERT_TRUE(block.opened);
  // One text record: 12 + name 2 + kind 1 + value V fills 60 bytes at V 45.
  block.set.SetPropertyAString(u"S", std::string(45, 'x'));
  ASSERT_EQ(block.shared.Write(), 0u);
  const std::vector<uint8_t> before(block.Bytes(), block.Bytes() + kSmallBlock);
  EXPECT_EQ(before[0], kSmallBlock - 4);

  block.set.SetPropertyAString(u"S", std::string(46, 'y'));
  EXPECT_EQ(block.shared.Write(), ZOR_SHM_ERROR_TOO_LARGE);
  EXPECT_EQ(std::vector<uint8_t>(block.Bytes(), block.Bytes() + kSmallBlock), before);
  ASSERT_EQ(block.shared.Read(false, true, true), 0u);
  EXPECT_EQ(TextOf(block.set, u"S"), std::string(45, 'x'));
}

TEST(ZORPropertySetSharedMem, AnEmptySetWritesLengthZeroWhichReadsAsNoChange) {
  Block writer(UniqueName());
  Block reader(writer.name);
  writer.set.SetPropertyLong(u"A", 1);
  ASSERT_EQ(writer.shared.Write(), 0u);
  writer.set.ClearAllProperties();
  ASSERT_EQ(writer.shared.Write(), 0u);
  reader.set.SetPropertyLong(u"Kept", 1);
  EXPECT_EQ(reader.shared.Read(false, true, true), 0u);
  EXPECT_EQ(TextOf(reader.set, u"Kept"), "1");
}

TEST(ZORPropertySetSharedMem, AfterCloseReadAndWriteFindNoView) {
  Block block(UniqueName());
  block.shared.Close();
  EXPECT_FALSE(block.shared.IsOpen());
  EXPECT_EQ(block.shared.Read(false, true, true), ZOR_SHM_ERROR_NO_VIEW);
  EXPECT_EQ(block.shared.Write(), ZOR_SHM_ERROR_NO_VIEW);
}

TEST(ZORPropertySetSharedMem, ReadGivesUpOnAMutexHeldLongerThanHalfASecond) {
  Block block(UniqueName());
  std::atomic<bool> held{false};
  std::atomic<bool> done{false};
  std::thread holder([&] {
    NamedMutex mutex;
    // The mixed case is the name's: "_Mutex" would be another mutex.
    mutex.Create(block.name + u"_MuteX");
    held = mutex.Wait(1000) == NamedMutex::WaitResult::Acquired;
    while (!done) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    mutex.Release();
  });
  while (!held) std::this_thread::yield();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(block.shared.Read(false, true, true), ZOR_SHM_ERROR_MUTEX);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(450));
  EXPECT_EQ(block.shared.Write(), ZOR_SHM_ERROR_MUTEX);
  done = true;
  holder.join();
  EXPECT_EQ(block.shared.Write(), 0u);
}

TEST(ZORPropertySetSharedMem, LookingForAnUnusedNameLeavesNothingBehind) {
  const std::u16string name = UniqueName();
  ZORSharedMemory probe;
  EXPECT_FALSE(ZORSharedMemory::Exists(name));
  EXPECT_FALSE(probe.Create(name, 16, true));
  EXPECT_EQ(probe.MapView(), nullptr);
  zor::os::SharedMemory raw;
  EXPECT_EQ(raw.Open(name, 16), zor::os::SharedMemory::OpenStatus::Created);
  EXPECT_TRUE(ZORSharedMemory::Exists(name));
  EXPECT_TRUE(probe.Create(name, 16, true));
  raw.Close();
  EXPECT_FALSE(ZORSharedMemory::Exists(name));
}

// Cross-process cases run the helper beside this executable.

TEST(ZORPropertySetSharedMemProcesses, AnotherProcessSeesWhatOneWrote) {
  Block block(UniqueName());
  block.set.SetPropertyAString(u"Gain", "-3.5");
  ASSERT_EQ(block.shared.Write(), 0u);
  EXPECT_EQ(RunHelper({"expect", Narrow(block.name), "Gain", "-3.5"}), 0);
  EXPECT_EQ(RunHelper({"expect", Narrow(block.name), "Gain", "0"}), 1);
}

TEST(ZORPropertySetSharedMemProcesses, TheLastHolderLeavingEndsTheBlock) {
  const std::u16string name = UniqueName();
  // Leaving normally: the helper was the only holder.
  ASSERT_EQ(RunHelper({"write", Narrow(name), "Gain", "1"}), 0);
  EXPECT_TRUE(Block(name).IsZero());

  // Killed: the block lives while it holds it, and ends with it.
  ChildProcess child;
  ASSERT_TRUE(child.Start(HelperBesideTest(VELAPO_SHAREDMEMORY_HELPER),
                          {"writehold", Narrow(name), "Gain", "2"}));
  bool seen = false;
  for (int i = 0; i < 1000 && !seen; ++i) {
    Block block(name);
    seen = block.shared.Read(false, true, true) == 0 && TextOf(block.set, u"Gain") == "2";
    if (!seen) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ASSERT_TRUE(seen);
  child.Kill();
  child.Wait(kChildWaitMs);
  EXPECT_FALSE(ZORSharedMemory::Exists(name));
  EXPECT_TRUE(Block(name).IsZero());
}

TEST(ZORPropertySetSharedMemProcesses, AMutexOwnerKilledFailsOneWaitThenTheMutexWorksOn) {
  Block block(UniqueName());
  ChildProcess child;
  ASSERT_TRUE(child.Start(HelperBesideTest(VELAPO_SHAREDMEMORY_HELPER),
                          {"holdmutex", Narrow(block.name)}));
  NamedMutex probe;
  ASSERT_EQ(probe.Create(block.name + u"_MuteX"), NamedMutex::OpenStatus::Ok);
  bool heldByChild = false;
  for (int i = 0; i < 3000 && !heldByChild; ++i) {
    if (probe.Wait(0) == NamedMutex::WaitResult::Acquired) {
      probe.Release();
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    } else {
      heldByChild = true;
    }
  }
  ASSERT_TRUE(heldByChild);
  child.Kill();
  child.Wait(kChildWaitMs);
  // The wait that finds the owner gone fails; it still released the mutex.
  EXPECT_EQ(block.shared.Read(false, true, true), ZOR_SHM_ERROR_MUTEX);
  block.set.SetPropertyLong(u"After", 1);
  EXPECT_EQ(block.shared.Write(), 0u);
  EXPECT_EQ(block.shared.Read(false, true, true), 0u);
  EXPECT_EQ(probe.Wait(0), NamedMutex::WaitResult::Acquired);
  probe.Release();
}

TEST(ZORPropertySetSharedMemProcesses, FourProcessesWritingAndReadingNeverSeeATornBlob) {
  Block block(UniqueName());
  std::vector<ChildProcess> children(4);
  for (size_t i = 0; i < children.size(); ++i) {
    ASSERT_TRUE(children[i].Start(HelperBesideTest(VELAPO_SHAREDMEMORY_HELPER),
                                  {"hammer", Narrow(block.name), std::to_string(i), "300"}));
  }
  for (ChildProcess& child : children) EXPECT_EQ(child.Wait(kChildWaitMs * 4), 0);
}

}  // namespace
