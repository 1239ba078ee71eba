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

bool StartHelper(ChildProcess& child, const std::vector<std::string>& arguments) {
  return child.Start(velapo::test::HelperBesideTest(VELAPO_SHAREDMEMORY_HELPER), arguments);
}

std::string TextOf(const ZORPropertySet& set, std::u16string_view name) {
  std::string text;
  return set.GetPropertyAString(name, text) ? text : "-";
}

// One block opened by the test, with its set attached.
struct Block {
  explicit Block(std::u16string blockName, uint32_t size = 0) : name(std::move(blockName)) {
    shared.SetPropertySet(&set);
    opened = shared.Open(name, size);
  }
  uint8_t* Bytes() { return static_cast<uint8_t*>(shared.MapView()); }
  bool IsZero() {
    return std::all_of(Bytes(), Bytes() + shared.GetSize(), [](uint8_t b) { return b == 0; });
  }
  std::string Narrow() const { return zor::os::Utf16ToUtf8(name); }
  std::u16string name;
  ZORPropertySet set;
  ZORPropertySetSharedMem shared;
  bool opened = false;
};

TEST(ZORPropertySetSharedMem, FirstOpenGivesADefaultSizedZeroBlockAndCloseLeavesNoView) {
  Block block(UniqueName());
  ASSERT_TRUE(block.opened);
  EXPECT_EQ(block.shared.GetName(), block.name);
  EXPECT_EQ(block.shared.GetSize(), 65536u);
  EXPECT_TRUE(block.IsZero());
  block.shared.Close();
  EXPECT_FALSE(block.shared.IsOpen());
  EXPECT_EQ(block.shared.Read(false, true, true), ZOR_SHM_ERROR_NO_VIEW);
  EXPECT_EQ(block.shared.Write(), ZOR_SHM_ERROR_NO_VIEW);
}

// What another process may leave in a 64-byte block, and what Read makes of it.
struct BlockCase {
  const char* what;
  uint32_t length;  // the length field
  bool breakSecond;
  bool merge;
  uint32_t status;
  const char* kept;  // then
  const char* ab;
};

class ZORPropertySetSharedMemBlock : public testing::TestWithParam<BlockCase> {};

TEST_P(ZORPropertySetSharedMemBlock, ReadsWithinTheBlockAndAnswersItsCode) {
  const BlockCase& c = GetParam();
  Block block(UniqueName(), kSmallBlock);
  ZORPropertySet source;
  source.SetPropertyLong(u"Ab", 7);
  source.SetPropertyLong(u"Cd", 8);
  std::vector<uint8_t> blob;
  source.GetAllPropertiesBinary(blob);
  if (c.breakSecond) blob[22] = 0x08;  // name size 2052: past what a reader takes
  std::memcpy(block.Bytes(), &c.length, 4);
  std::memcpy(block.Bytes() + 4, blob.data(), blob.size());
  block.set.SetPropertyLong(u"Kept", 1);
  EXPECT_EQ(block.shared.Read(c.merge, true, true), c.status);
  EXPECT_EQ(TextOf(block.set, u"Kept"), c.kept);
  EXPECT_EQ(TextOf(block.set, u"Ab"), c.ab);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ZORPropertySetSharedMemBlock,
    testing::Values(
        BlockCase{"LengthZero", 0, false, false, 0, "1", "-"},
        BlockCase{"Replaced", 42, false, false, 0, "-", "7"},
        BlockCase{"Merged", 42, false, true, 0, "1", "7"},
        BlockCase{"LengthOnePastTheBlock", kSmallBlock - 3, false, false, ZOR_SHM_ERROR_PARSE, "1", "-"},
        BlockCase{"LengthFarPastTheBlock", 0xFFFFFFFF, false, true, ZOR_SHM_ERROR_PARSE, "1", "-"},
        BlockCase{"LengthCutsARecord", 41, false, false, ZOR_SHM_ERROR_PARSE, "-", "7"},
        BlockCase{"CorruptSecondRecord", 42, true, false, ZOR_SHM_ERROR_PARSE, "-", "7"},
        BlockCase{"CorruptSecondRecordMerged", 42, true, true, 0, "1", "7"}),
    [](const testing::TestParamInfo<BlockCase>& param) { return std::string(param.param.what); });

TEST(ZORPropertySetSharedMem, WriteFitsABlobOfTheBlockSizeMinusFourAndNoMore) {
  Block block(UniqueName(), kSmallBlock);
  // One text record: 12 + name 2 + kind 1 + value V is 60 bytes at V 45.
  block.set.SetPropertyAString(u"S", std::string(45, 'x'));
  ASSERT_EQ(block.shared.Write(), 0u);
  const std::vector<uint8_t> before(block.Bytes(), block.Bytes() + kSmallBlock);
  EXPECT_EQ(before[0], kSmallBlock - 4);
  block.set.SetPropertyAString(u"S", std::string(46, 'y'));
  EXPECT_EQ(block.shared.Write(), ZOR_SHM_ERROR_TOO_LARGE);
  EXPECT_EQ(std::vector<uint8_t>(block.Bytes(), block.Bytes() + kSmallBlock), before);
  block.set.ClearAllProperties();
  ASSERT_EQ(block.shared.Write(), 0u);  // an empty set stores length 0
  EXPECT_EQ(block.Bytes()[0], 0);
  EXPECT_EQ(block.Bytes()[4], before[4]);  // and leaves the rest
}

// The block is first opened under another name: a set that moves to another
// block must wait for that block's mutex, not keep the one it left.
TEST(ZORPropertySetSharedMem, ReadGivesUpOnAMutexHeldLongerThanHalfASecond) {
  Block block(UniqueName());
  block.name = UniqueName();
  ASSERT_TRUE(block.shared.Open(block.name, 0));
  std::atomic<int> stage{0};
  std::thread holder([&] {
    NamedMutex mutex;
    mutex.Create(block.name + u"_MuteX");  // the mixed case is the name's
    mutex.Wait(1000);
    for (stage = 1; stage == 1;) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    mutex.Release();
  });
  while (stage == 0) std::this_thread::yield();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(block.shared.Read(false, true, true), ZOR_SHM_ERROR_MUTEX);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(450));
  EXPECT_EQ(block.shared.Write(), ZOR_SHM_ERROR_MUTEX);
  stage = 2;
  holder.join();
  EXPECT_EQ(block.shared.Write(), 0u);
}

// Cross-process cases run the helper beside this executable.

TEST(ZORPropertySetSharedMemProcesses, TheLastHolderLeavingNormallyOrKilledEndsTheBlock) {
  const std::u16string name = UniqueName();
  const std::string narrow = zor::os::Utf16ToUtf8(name);
  ChildProcess writer;
  ASSERT_TRUE(StartHelper(writer, {"write", narrow, "Gain", "1"}));
  ASSERT_EQ(writer.Wait(kChildWaitMs), 0);
  EXPECT_TRUE(Block(name).IsZero());

  // Another process sees what one wrote, while that one holds the block.
  ChildProcess child;
  ASSERT_TRUE(StartHelper(child, {"writehold", narrow, "Gain", "2"}));
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
  ASSERT_TRUE(StartHelper(child, {"holdmutex", block.Narrow()}));
  NamedMutex probe;
  ASSERT_EQ(probe.Create(block.name + u"_MuteX"), NamedMutex::OpenStatus::Ok);
  bool heldByChild = false;
  for (int i = 0; i < 3000 && !heldByChild; ++i) {
    heldByChild = probe.Wait(0) != NamedMutex::WaitResult::Acquired;
    if (!heldByChild) probe.Release();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ASSERT_TRUE(heldByChild);
  child.Kill();
  child.Wait(kChildWaitMs);
  // The wait that finds the owner gone fails, and gives the mutex back.
  EXPECT_EQ(block.shared.Read(false, true, true), ZOR_SHM_ERROR_MUTEX);
  EXPECT_EQ(block.shared.Write(), 0u);
  EXPECT_EQ(probe.Wait(0), NamedMutex::WaitResult::Acquired);
  probe.Release();
}

TEST(ZORPropertySetSharedMemProcesses, FourProcessesWritingAndReadingNeverSeeATornBlob) {
  Block block(UniqueName());
  std::vector<ChildProcess> children(4);
  for (size_t i = 0; i < children.size(); ++i) {
    ASSERT_TRUE(StartHelper(children[i], {"hammer", block.Narrow(), std::to_string(i), "300"}));
  }
  for (ChildProcess& child : children) EXPECT_EQ(child.Wait(kChildWaitMs * 4), 0);
}

}  // namespace
