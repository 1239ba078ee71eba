#include "sidechannel/zornamedpipeaudio.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#if !defined(_WIN32)
#include <unistd.h>
#endif

#include "childprocess.h"
#include "registrytestarea.h"
#include "sidechannel/pipetesting.h"
#include "support/zorlogcapture.h"

namespace {

using velapo::test::ChildProcess;
using Clock = std::chrono::steady_clock;

template <typename Condition>
bool WaitFor(Condition condition, uint32_t timeoutMs = velapo::test::kMustNotTimeOutMs) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  while (!condition()) {
    if (Clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

std::vector<uint8_t> PacketBytes(uint32_t count, uint32_t rate, size_t length) {
  std::vector<uint8_t> bytes(TestPacketBytes(0));
  std::memcpy(bytes.data(), &count, 4);
  std::memcpy(bytes.data() + 4, &rate, 4);
  bytes.resize(length);
  return bytes;
}

struct StoreCase {
  const char* name;
  uint32_t count;
  uint32_t rate;
  size_t length;
  bool immediate;
  uint32_t knownRate;  // the reader's rate before the packet
  bool stored;
  uint32_t rateAfter;
};

class PipeStoreTest : public testing::TestWithParam<StoreCase> {};

TEST_P(PipeStoreTest, StoresOnlyWhatIsWholeAndPlausible) {
  const StoreCase& c = GetParam();
  ZORNamedPipeAudio pipe;
  pipe.Init(kTestPipeName, c.knownRate, kZORPipeRoleReader);
  const std::vector<uint8_t> bytes = PacketBytes(c.count, c.rate, c.length);
  EXPECT_EQ(pipe.StorePacket(bytes.data(), bytes.size(), c.immediate), c.stored);
  EXPECT_EQ(pipe.GetSampleRate(), c.rateAfter);
  EXPECT_EQ(pipe.GetDroppedPackets(), c.stored ? 0u : 1u);

  std::vector<float> ring(kZORPipeRingSamples);
  const uint32_t read = pipe.ReadSamples(ring.data(), kZORPipeRingSamples);
  ASSERT_EQ(read, c.stored ? c.count : 0u);
  for (uint32_t i = 0; i < read; ++i) ASSERT_EQ(ring[i], static_cast<float>(i));
}

constexpr size_t kWhole = kZORPipePacketBytes;
INSTANTIATE_TEST_SUITE_P(
    Packets, PipeStoreTest,
    testing::Values(
        StoreCase{"WholeAdoptsItsRate", 480, 16000, kWhole, false, 0, true, 16000},
        StoreCase{"WholeImmediate", 480, 16000, kWhole, true, 16000, true, 16000},
        StoreCase{"CountZeroStillAdopts", 0, 22050, kWhole, false, 0, true, 22050},
        StoreCase{"OneSampleIsStillAWholePacket", 1, 16000, kWhole, false, 0, true, 16000},
        StoreCase{"OverlappedShortDropped", 10, 16000, kWhole - 1, false, 0, false, 0},
        StoreCase{"ImmediateShortWithItsSamples", 10, 16000, 8 + 40, true, 0, true, 16000},
        StoreCase{"ImmediateShortMissingSamples", 10, 16000, 8 + 39, true, 0, false, 0},
        StoreCase{"ImmediateNoHeader", 0, 16000, 7, true, 0, false, 0},
        StoreCase{"LongerThanAPacket", 480, 16000, kWhole + 1, true, 0, false, 0},
        StoreCase{"CountOverAPacket", 481, 16000, kWhole, false, 0, false, 0},
        StoreCase{"CountHuge", 0xFFFFFFFFu, 16000, kWhole, true, 0, false, 0},
        StoreCase{"RateAboveTheCapNeverAdopted", 480, 384001, kWhole, false, 0, false, 0},
        StoreCase{"RateAtTheCap", 480, 384000, kWhole, false, 0, true, 384000},
        StoreCase{"OtherRateDropped", 480, 48000, kWhole, false, 16000, false, 16000}),
    [](const testing::TestParamInfo<StoreCase>& param) { return param.param.name; });

TEST(PipeRingTest, WritesTakeAtMostTheRingAndOverflowIsLost) {
  ZORNamedPipeAudio pipe;
  pipe.Init(kTestPipeName, kTestRate, kZORPipeRoleWriter);
  std::vector<float> samples(4000, 1.0f);
  EXPECT_EQ(pipe.WriteSamples(samples.data(), 4000), kZORPipeRingSamples);
  EXPECT_EQ(pipe.WriteSamples(samples.data(), 1), 0u);
  ZORPipePacket packet;
  EXPECT_EQ(pipe.ReadPacket(packet), kZORPipePacketSamples);
  EXPECT_EQ(packet.sampleRate, kTestRate);
  // A whole packet that finds the ring nearly full keeps what fits.
  const ZORPipePacket next = TestPacket(0);
  EXPECT_TRUE(pipe.WritePacket(next));
  pipe.ClearRing();
  EXPECT_EQ(pipe.ReadSamples(samples.data(), 4000), 0u);
}

// The stream's thread runs on the test area's pipe, so tests never meet.
class PipeThreadTest : public testing::Test {
 protected:
  velapo::test::RegistryTestArea m_area;
};

TEST_F(PipeThreadTest, ASecondStartIsRefusedAndAStopEndsTheReaderInTime) {
  ZORLogCapture log;
  ZORNamedPipeAudio reader;
  reader.Init(kTestPipeName, 0, kZORPipeRoleReader);
  ASSERT_TRUE(reader.StartThread());
  EXPECT_FALSE(reader.StartThread());
  ASSERT_TRUE(WaitFor([&] { return reader.IsListening(); }));
  EXPECT_TRUE(reader.StopThread());
  EXPECT_FALSE(reader.IsListening());
  EXPECT_TRUE(log.Contains("ZORNamedPipeAudio::ServerRoutine : Kill event."));
  EXPECT_FALSE(log.Contains("Thread manually terminated"));
  // Stopped, it starts again.
  ASSERT_TRUE(reader.StartThread());
  EXPECT_TRUE(WaitFor([&] { return reader.IsListening(); }));
}

TEST_F(PipeThreadTest, AWriterWithNoReaderFailsSilently) {
  ZORLogCapture log;
  ZORNamedPipeAudio writer;
  writer.Init(kTestPipeName, kTestRate, kZORPipeRoleWriter);
  ASSERT_TRUE(writer.StartThread());
  const ZORPipePacket packet = TestPacket(0);
  writer.WriteSamples(packet.samples, kZORPipePacketSamples);
  ASSERT_TRUE(WaitFor([&] {
    float probe;
    return writer.ReadSamples(&probe, 1) == 0;  // the writer took the packet
  }));
  EXPECT_TRUE(writer.StopThread());
  EXPECT_EQ(writer.GetConnectedReaders(), 0u);
  EXPECT_FALSE(log.Contains("write failed"));
  EXPECT_FALSE(log.Contains("Connected!"));
}

// Streams numbered packets from this process at a steady pace until told
// to stop.
class PacedWriter {
 public:
  // Real time, 30 ms a packet: the rings (eight packets) give a busy
  // machine a quarter of a second of slack.
  explicit PacedWriter(uint32_t packets) {
    m_pipe.Init(kTestPipeName, kTestRate, kZORPipeRoleWriter);
    m_pipe.StartThread();
    m_thread = std::thread([this, packets] {
      for (uint32_t k = 0; k < packets && !m_stop; ++k) {
        const ZORPipePacket packet = TestPacket(k);
        m_pipe.WriteSamples(packet.samples, kZORPipePacketSamples);
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
      }
    });
  }
  ~PacedWriter() {
    m_stop = true;
    m_thread.join();
    m_pipe.StopThread();
  }
  ZORNamedPipeAudio& Pipe() { return m_pipe; }

 private:
  ZORNamedPipeAudio m_pipe;
  std::atomic<bool> m_stop{false};
  std::thread m_thread;
};

class PipeProcessTest : public PipeThreadTest {
 protected:
  std::filesystem::path ReadyFile(int index) {
    return std::filesystem::temp_directory_path() /
           ("velapo-pipe-ready-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
            "-" + std::to_string(reinterpret_cast<uintptr_t>(this)) + "-" + std::to_string(index));
  }

  // Starts a reader process that needs `packets` whole packets in sequence
  // and waits until it listens.
  bool StartReader(ChildProcess& child, int index, uint32_t packets) {
    const std::filesystem::path ready = ReadyFile(index);
    std::error_code ignored;
    std::filesystem::remove(ready, ignored);
    if (!child.Start(velapo::test::HelperBesideTest(VELAPO_PIPE_HELPER),
                     {"read", m_area.Root(), ready.string(), std::to_string(packets)})) {
      return false;
    }
    const bool listening = WaitFor([&] { return std::filesystem::exists(ready); });
    std::filesystem::remove(ready, ignored);
    return listening;
  }
};

TEST_F(PipeProcessTest, FiveReaderProcessesGetEveryPacketAndASixthFails) {
  constexpr uint32_t kPackets = 100;
  std::vector<std::unique_ptr<ChildProcess>> readers;
  for (int i = 0; i < 5; ++i) {
    readers.push_back(std::make_unique<ChildProcess>());
    ASSERT_TRUE(StartReader(*readers.back(), i, kPackets)) << "reader " << i;
  }
  ChildProcess sixth;
  ASSERT_TRUE(sixth.Start(velapo::test::HelperBesideTest(VELAPO_PIPE_HELPER),
                          {"read", m_area.Root(), ReadyFile(6).string(), "1"}));
  EXPECT_EQ(sixth.Wait(velapo::test::kMustNotTimeOutMs), 4);

  PacedWriter writer(kPackets);
  for (size_t i = 0; i < readers.size(); ++i) {
    EXPECT_EQ(readers[i]->Wait(velapo::test::kMustNotTimeOutMs), 0) << "reader " << i;
  }
}

TEST_F(PipeProcessTest, AReaderKilledAndRestartedGetsPacketsAgain) {
  PacedWriter writer(100000);
  ChildProcess first;
  ASSERT_TRUE(StartReader(first, 0, 100000));
  ASSERT_TRUE(WaitFor([&] { return writer.Pipe().GetConnectedReaders() == 1; }));
  first.Kill();
  first.Wait(velapo::test::kMustNotTimeOutMs);
  ASSERT_TRUE(WaitFor([&] { return writer.Pipe().GetConnectedReaders() == 0; }));

  ChildProcess second;
  ASSERT_TRUE(StartReader(second, 1, 50));
  EXPECT_EQ(second.Wait(velapo::test::kMustNotTimeOutMs), 0);
}

TEST_F(PipeProcessTest, GarbageOfAnyLengthBetweenPacketsLeavesEveryPacketWhole) {
  constexpr uint32_t kPackets = 200;
  ZORNamedPipeAudio reader;
  reader.Init(kTestPipeName, 0, kZORPipeRoleReader);
  ASSERT_TRUE(reader.StartThread());
  ASSERT_TRUE(WaitFor([&] { return reader.IsListening(); }));
  ChildProcess sender;
  ASSERT_TRUE(sender.Start(velapo::test::HelperBesideTest(VELAPO_PIPE_HELPER),
                           {"garbage", m_area.Root(), std::to_string(kPackets), "2211"}));

  TestStreamChecker checker;
  const auto deadline = Clock::now() + std::chrono::milliseconds(velapo::test::kMustNotTimeOutMs);
  while (checker.Samples() < uint64_t{kPackets} * kZORPipePacketSamples && Clock::now() < deadline) {
    ASSERT_TRUE(checker.Take(reader)) << "after sample " << checker.Next();
  }
  EXPECT_EQ(checker.Next(), uint64_t{kPackets} * kZORPipePacketSamples);
  EXPECT_EQ(sender.Wait(velapo::test::kMustNotTimeOutMs), 0);
  EXPECT_EQ(reader.GetStoredPackets(), kPackets);
  EXPECT_EQ(reader.GetDroppedPackets(), kPackets);
  EXPECT_EQ(reader.GetSampleRate(), kTestRate);
}

#if !defined(_WIN32)
// Like a Windows pipe's default security: the same account or root only.
TEST_F(PipeProcessTest, AnotherAccountNeitherWritesNorListens) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to run a helper as another account";
  ZORNamedPipeAudio reader;
  reader.Init(kTestPipeName, 0, kZORPipeRoleReader);
  ASSERT_TRUE(reader.StartThread());
  ASSERT_TRUE(WaitFor([&] { return reader.IsListening(); }));
  ChildProcess foreignWriter;
  ASSERT_TRUE(foreignWriter.Start(velapo::test::HelperBesideTest(VELAPO_PIPE_HELPER),
                                  {"foreign-write", m_area.Root(), "50"}));
  EXPECT_EQ(foreignWriter.Wait(velapo::test::kMustNotTimeOutMs), 0);
  EXPECT_EQ(reader.GetStoredPackets(), 0u);
  reader.StopThread();

  const std::filesystem::path ready = ReadyFile(0);
  ChildProcess foreignReader;
  ASSERT_TRUE(foreignReader.Start(velapo::test::HelperBesideTest(VELAPO_PIPE_HELPER),
                                  {"foreign-read", m_area.Root(), ready.string()}));
  ASSERT_TRUE(WaitFor([&] { return std::filesystem::exists(ready); }));
  std::filesystem::remove(ready);
  PacedWriter writer(1000);
  EXPECT_EQ(foreignReader.Wait(velapo::test::kMustNotTimeOutMs), 0);
  EXPECT_EQ(writer.Pipe().GetConnectedReaders(), 0u);
}
#endif

}  // namespace
