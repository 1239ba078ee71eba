// The capture pipe: what a reader stores; across processes (readers in the helper) five readers and a
// sixth, a kill, garbage, other accounts, stalls; the render side's FIFO and its audio-thread read.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#if !defined(_WIN32)
#include <unistd.h>
#endif

#include "allocationcounter.h"
#include "audiotesting.h"
#include "audio/zoraudiodatafloat.h"
#include "childprocess.h"
#include "platform/criticalsection.h"
#include "registrytestarea.h"
#include "sidechannel/zornamedpipemarshall.h"
#include "support/zorlogcapture.h"

namespace {

using Clock = std::chrono::steady_clock;
using velapo::test::ChildProcess;
using velapo::test::kMustNotTimeOutMs;
constexpr char16_t kTestPipeName[] = u"\\\\.\\pipe\\velapo-test-capture";  // the helper's too

// Packet k of the stream the helper checks: samples k * 480 + i, so loss or tearing shows.
ZORPipePacket TestPacket(uint32_t k) {
  ZORPipePacket packet{kZORPipePacketSamples, kZORCapturePipeRate, {}};
  for (uint32_t i = 0; i < kZORPipePacketSamples; ++i) packet.samples[i] = float(k * kZORPipePacketSamples + i);
  return packet;
}

std::vector<uint8_t> TestPacketBytes(uint32_t k) {
  const ZORPipePacket packet = TestPacket(k);
  const auto* bytes = reinterpret_cast<const uint8_t*>(&packet);  // little-endian hosts only
  return std::vector<uint8_t>(bytes, bytes + kZORPipePacketBytes);
}

template <typename Condition>
bool WaitFor(Condition condition) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(kMustNotTimeOutMs);
  while (!condition()) {
    if (Clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// Random bytes around a header: stored whole or not at all, and only at a plausible, agreed rate.
TEST(PipeStoreTest, StoresOnlyWhatIsWholeAndPlausible) {
  const uint32_t seed = testing::UnitTest::GetInstance()->random_seed();
  std::mt19937 random(seed);
  const uint32_t rates[] = {16000, 48000, 384000, 384001, 0xFFFFFFFFu};
  const uint32_t counts[] = {0, 1, 10, 479, 480, 481, 0xFFFFFFFFu};
  for (int round = 0; round < 2000; ++round) {
    const uint32_t known = random() % 2 ? 0 : 16000;
    const uint32_t count = counts[random() % std::size(counts)];
    const uint32_t rate = rates[random() % std::size(rates)];
    const bool immediate = random() % 2;
    const size_t length = random() % 3 ? kZORPipePacketBytes : random() % (kZORPipePacketBytes + 8);
    std::vector<uint8_t> bytes = TestPacketBytes(0);
    std::memcpy(bytes.data(), &count, 4);
    std::memcpy(bytes.data() + 4, &rate, 4);
    bytes.resize(length);

    const bool whole = immediate ? length >= 8 && length <= kZORPipePacketBytes &&
                                       (count > 480 || length >= 8 + 4 * size_t{count})
                                 : length == kZORPipePacketBytes;
    const bool stored = whole && count <= 480 && rate <= 384000 && (known == 0 || known == rate);
    ZORNamedPipeAudio pipe;
    pipe.Init(kTestPipeName, known, kZORPipeRoleReader);
    ASSERT_EQ(pipe.StorePacket(bytes.data(), bytes.size(), immediate), stored)
        << "seed " << seed << " count " << count << " rate " << rate << " length " << length;
    ASSERT_EQ(pipe.GetSampleRate(), stored ? rate : known) << "seed " << seed;
    ASSERT_EQ(pipe.GetDroppedPackets() + pipe.GetStoredPackets(), 1u);
    std::vector<float> ring(kZORPipeRingSamples);
    const uint32_t read = pipe.ReadSamples(ring.data(), kZORPipeRingSamples);
    ASSERT_EQ(read, stored ? count : 0u) << "seed " << seed;
    for (uint32_t i = 0; i < read; ++i) ASSERT_EQ(ring[i], static_cast<float>(i));
  }
}

// Streams numbered packets from this process at a steady pace.
struct PacedWriter {
  PacedWriter(uint32_t packets, uint32_t paceMs) {
    m_pipe.Init(kTestPipeName, kZORCapturePipeRate, kZORPipeRoleWriter);
    EXPECT_TRUE(m_pipe.StartThread());
    EXPECT_FALSE(m_pipe.StartThread());  // once only
    m_thread = std::thread([this, packets, paceMs] {
      for (uint32_t k = 0; k < packets && !m_stop; ++k) {
        m_pipe.WriteSamples(TestPacket(k).samples, kZORPipePacketSamples);
        std::this_thread::sleep_for(std::chrono::milliseconds(paceMs));
      }
    });
  }
  ~PacedWriter() {
    m_stop = true;
    m_thread.join();
    EXPECT_TRUE(m_pipe.StopThread());
  }
  ZORNamedPipeAudio m_pipe;
  std::atomic<bool> m_stop{false};
  std::thread m_thread;
};

// The pipe of the test area's root, so tests never meet.
class PipeProcessTest : public testing::Test {
 protected:
  // Starts a helper of `mode` that touches a ready file once it listens; false if it never does.
  bool StartListener(ChildProcess& child, std::vector<std::string> args, const char* mode = "read") {
    // In the temporary folder, where a helper running as nobody may write too.
    const std::filesystem::path ready = std::filesystem::temp_directory_path() /
        (std::filesystem::path(m_area.Root()).filename().string() + "-ready" + std::to_string(m_listeners++));
    args.insert(args.begin(), {mode, m_area.Root(), ready.string()});
    const bool listening = child.Start(velapo::test::HelperBesideTest("../system/velapo_capture_helper"), args) &&
                           WaitFor([&] { return exists(ready) || child.Wait(0) != ChildProcess::kStillRunning; }) &&
                           exists(ready);
    std::filesystem::remove(ready);
    return listening;
  }

  velapo::test::RegistryTestArea m_area;
  int m_listeners = 0;
};

// Five readers get every packet, a sixth fails, and one killed mid-stream leaves room for a new one.
TEST_F(PipeProcessTest, FiveReadersGetEveryPacketASixthFailsAKilledOneIsReplaced) {
  ChildProcess readers[5], sixth, restarted;
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(StartListener(readers[i], {i == 4 ? "100000" : "100"})) << "reader " << i;
  EXPECT_FALSE(StartListener(sixth, {"1"}));
  EXPECT_EQ(sixth.Wait(kMustNotTimeOutMs), 4);

  PacedWriter writer(100000, 50);  // the writer's ring spans 400 ms of a starved thread
  ASSERT_TRUE(WaitFor([&] { return writer.m_pipe.GetConnectedReaders() == 5; }));
  readers[4].Kill();
  readers[4].Wait(kMustNotTimeOutMs);
  ASSERT_TRUE(WaitFor([&] { return writer.m_pipe.GetConnectedReaders() == 4; }));
  ASSERT_TRUE(StartListener(restarted, {"50"}));
  EXPECT_EQ(restarted.Wait(kMustNotTimeOutMs), 0);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(readers[i].Wait(kMustNotTimeOutMs), 0) << "reader " << i;
}

// Garbage of random lengths leaves every packet whole, a writer that goes leaves room for the next,
// and another account neither writes nor reads.
TEST_F(PipeProcessTest, GarbageAndOtherAccountsLeaveEveryPacketWhole) {
  constexpr uint32_t kPackets = 200;
  ChildProcess reader, foreign;
  ASSERT_TRUE(StartListener(reader, {std::to_string(kPackets + 1)}));
  zor::os::PipeClient client;
  bool asNobody = false;  // a helper as another account needs root
#if !defined(_WIN32)
  asNobody = ::geteuid() == 0;
#endif
  ASSERT_TRUE(!asNobody || StartListener(foreign, {}, "foreign"));  // nobody writes to the reader first
  EXPECT_FALSE(asNobody && client.Open(kTestPipeName, 1));
  ASSERT_TRUE(client.Open(kTestPipeName, 0));
  std::mt19937 random(2211);
  for (uint32_t k = 0; k < kPackets; ++k) {
    std::vector<uint8_t> garbage(1 + random() % (2 * kZORPipePacketBytes));
    for (uint8_t& byte : garbage) byte = static_cast<uint8_t>(random());
    ASSERT_EQ(client.Write(garbage.data(), static_cast<uint32_t>(garbage.size()), 1000), garbage.size());
    ASSERT_EQ(client.Write(TestPacketBytes(k).data(), kZORPipePacketBytes, 1000), kZORPipePacketBytes);
    // Keeps the reader's ring (eight packets) from overflowing on a busy machine.
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  // A writer that goes leaves its instance to the next: the last packet comes over a new connection.
  client.Close();
  EXPECT_TRUE(WaitFor([&] {
    if (reader.Wait(0) != ChildProcess::kStillRunning) return true;
    if (client.Open(kTestPipeName, 0)) client.Write(TestPacketBytes(kPackets).data(), kZORPipePacketBytes, 1000);
    return reader.Wait(100) != ChildProcess::kStillRunning;
  }));
  EXPECT_EQ(reader.Wait(kMustNotTimeOutMs), 0);
  EXPECT_EQ(asNobody ? foreign.Wait(kMustNotTimeOutMs) : 0, 0) << "1: nobody's reader got packets";
}

// Instances that never read: a writer waiting on them would let its ring overflow at this pace.
TEST_F(PipeProcessTest, StalledReadersCostTheOthersNoPacket) {
  zor::os::Event completion{zor::os::EventReset::Manual, false};
  zor::os::PipeServer stalled[3];
  for (zor::os::PipeServer& server : stalled) ASSERT_TRUE(server.Create(kTestPipeName, kZORPipePacketBytes, completion));
  ChildProcess reader;
  ASSERT_TRUE(StartListener(reader, {"150"}));
  PacedWriter writer(150, 10);
  EXPECT_EQ(reader.Wait(kMustNotTimeOutMs), 0);
}

// The render FIFO keeps the newest samples, counts what it drops, and pads its front with zeros.
TEST(PipeFifoTest, KeepsTheNewestCountsDropsAndPadsTheFront) {
  struct Case {
    uint32_t capacity;
    std::vector<float> queued, pushed;  // pushed at the back, then `pushed` in one call
    uint32_t frontZeros;
    std::vector<float> expected;  // the whole FIFO, front first
    uint32_t dropped;
  } const cases[] = {
      {4, {}, {1, 2, 3}, 0, {1, 2, 3}, 0},
      {6, {1}, {2}, 3, {0, 0, 0, 1, 2}, 0},        // zeros go first
      {4, {}, {1, 2, 3}, 3, {0, 1, 2, 3}, 0},      // zeros only as far as there is room
      {3, {}, {1, 2, 3, 4, 5}, 0, {3, 4, 5}, 2},   // overflow drops the oldest
      {3, {1, 2}, {3, 4}, 0, {2, 3, 4}, 1},        // ... the oldest queued
      {0, {}, {1, 2}, 2, {}, 2},                   // no capacity takes nothing
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "case " << (&c - cases));
    ZORPipeFifo fifo;
    fifo.Allocate(c.capacity);
    const float seed[] = {-1.0f, -2.0f};  // wraps the positions before the case
    fifo.PushBack(seed, std::min<uint32_t>(2, c.capacity));
    float sink[2];
    fifo.PopFront(sink, 2);
    fifo.PushBack(c.queued.data(), static_cast<uint32_t>(c.queued.size()));
    EXPECT_EQ(fifo.PushBack(c.pushed.data(), static_cast<uint32_t>(c.pushed.size())), c.dropped);
    fifo.PushFrontZeros(c.frontZeros);
    std::vector<float> all(fifo.Size() + 3, 99.0f);
    all.resize(fifo.PopFront(all.data(), static_cast<uint32_t>(all.size())));
    EXPECT_EQ(all, c.expected);
    EXPECT_EQ(fifo.Size(), 0u);
  }
}

// A render marshall whose pipe has no writer: the test feeds its ring.
TEST(MarshallTest, ReadsTheRingStraightAtItsRateThenSteadilyWithOneLockAndNoAllocation) {
  velapo::test::RegistryTestArea area;
  ZORLogCapture log;
  ZORNamedPipeMarshall marshall;
  ZORPipePacket packet = TestPacket(0);
  const auto feed = [&](uint32_t rate, uint32_t count) {
    packet.count = count;
    packet.sampleRate = rate;
    ASSERT_TRUE(marshall.GetPipe().WritePacket(packet));
  };
  ZORAudioDataFloat block = velapo::test::Wrap(std::vector<float>(480, 0.25f), 1);
  EXPECT_EQ(marshall.ReadPipe(block), 0u);  // not running
  marshall.OpenPipe(0, true);
  marshall.StartPipe();
  EXPECT_EQ(marshall.ReadPipe(block), 0u);  // nothing before the first packet
  EXPECT_EQ(marshall.GetFifoSize(), ZORNamedPipeMarshall::kFifoLeadZeros);
  feed(48000, 100);
  EXPECT_EQ(marshall.ReadPipe(block), 100u);
  EXPECT_EQ(block.GetData(false, false)[99], 99.0f);
  EXPECT_EQ(block.GetData(false, false)[100], 0.25f);  // frames not delivered stay as they were
  EXPECT_EQ(block.GetChannelRole(0), kZORPipeChannelRole);

  // A new stream at 16 kHz, resampled: warm up, then count.
  marshall.StopPipe();
  EXPECT_TRUE(log.Contains("ZORNamedPipeAudio::ServerRoutine : Kill event."));
  marshall.OpenPipe(0, true);
  marshall.StartPipe();
  for (int round = 0; round < 54; ++round) {
    feed(kZORCapturePipeRate, 160);
    const velapo::test::AllocationCounter allocations;
    const uint64_t locks = zor::os::CriticalSection::EntriesOnThisThread();
    marshall.ReadPipe(block);
    if (round < 4) continue;
    ASSERT_EQ(zor::os::CriticalSection::EntriesOnThisThread() - locks, 1u);
    ASSERT_EQ(allocations.Count(), 0u);
  }
  EXPECT_EQ(marshall.GetUnderruns(), 0u);
}

}  // namespace
