// The capture pipe: what a reader stores of any bytes, its thread's life,
// and across processes: five readers and a sixth, a reader killed and
// restarted, garbage between packets, stalled readers, other accounts.
#include "sidechannel/zornamedpipeaudio.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
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
using velapo::test::kMustNotTimeOutMs;

template <typename Condition>
bool WaitFor(Condition condition) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(kMustNotTimeOutMs);
  while (!condition()) {
    if (Clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// Random bytes around a header against the reader's rules: a packet is
// stored whole or not at all, and only at a plausible, agreed rate.
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

TEST(PipeRingTest, WritesTakeAtMostTheRingAndOverflowIsLost) {
  ZORNamedPipeAudio pipe;
  pipe.Init(kTestPipeName, kTestRate, kZORPipeRoleWriter);
  std::vector<float> samples(4000, 1.0f);
  EXPECT_EQ(pipe.WriteSamples(samples.data(), 4000), kZORPipeRingSamples);
  EXPECT_EQ(pipe.WriteSamples(samples.data(), 1), 0u);
  ZORPipePacket packet;
  EXPECT_EQ(pipe.ReadPacket(packet), kZORPipePacketSamples);
  EXPECT_EQ(packet.sampleRate, kTestRate);
  pipe.ClearRing();
  EXPECT_EQ(pipe.ReadSamples(samples.data(), 4000), 0u);
}

// The stream's thread runs on the test area's pipe, so tests never meet.
class PipeThreadTest : public testing::Test {
 protected:
  velapo::test::RegistryTestArea m_area;
};

TEST_F(PipeThreadTest, ThreadsStartOnceStopInTimeAndAWriterWithNoReaderIsSilent) {
  ZORLogCapture log;
  ZORNamedPipeAudio reader, writer;
  reader.Init(kTestPipeName, 0, kZORPipeRoleReader);
  ASSERT_TRUE(reader.StartThread());
  EXPECT_FALSE(reader.StartThread());
  ASSERT_TRUE(WaitFor([&] { return reader.IsListening(); }));
  EXPECT_TRUE(reader.StopThread());
  EXPECT_FALSE(reader.IsListening());
  EXPECT_TRUE(log.Contains("ZORNamedPipeAudio::ServerRoutine : Kill event."));

  writer.Init(kTestPipeName, kTestRate, kZORPipeRoleWriter);
  ASSERT_TRUE(writer.StartThread());
  writer.WriteSamples(TestPacket(0).samples, kZORPipePacketSamples);
  ASSERT_TRUE(WaitFor([&] {
    float probe;
    return writer.ReadSamples(&probe, 1) == 0;  // the writer took the packet
  }));
  EXPECT_TRUE(writer.StopThread());
  EXPECT_EQ(writer.GetConnectedReaders(), 0u);
  EXPECT_FALSE(log.Contains("write failed") || log.Contains("Connected!") || log.Contains("manually terminated"));
}

// Streams numbered packets from this process at a steady pace.
class PacedWriter {
 public:
  // 30 ms a packet: the rings (eight packets) give a busy machine a quarter
  // of a second of slack.
  explicit PacedWriter(uint32_t packets, uint32_t paceMs = 30) {
    m_pipe.Init(kTestPipeName, kTestRate, kZORPipeRoleWriter);
    m_pipe.StartThread();
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
           ("velapo-pipe-ready-" + std::to_string(testing::UnitTest::GetInstance()->random_seed()) + "-" +
            std::to_string(reinterpret_cast<uintptr_t>(this)) + "-" + std::to_string(index));
  }
  // Starts a helper that touches a ready file once it listens, and waits
  // for that file.
  bool StartListener(ChildProcess& child, const char* mode, int index, const std::string& packets = "") {
    const std::filesystem::path ready = ReadyFile(index);
    std::vector<std::string> args = {mode, m_area.Root(), ready.string()};
    if (!packets.empty()) args.push_back(packets);
    if (!child.Start(velapo::test::HelperBesideTest(VELAPO_PIPE_HELPER), args)) return false;
    const bool listening = WaitFor([&] { return std::filesystem::exists(ready); });
    std::error_code ignored;
    std::filesystem::remove(ready, ignored);
    return listening;
  }
  // A reader in this process, listening.
  void Listen(ZORNamedPipeAudio& reader) {
    reader.Init(kTestPipeName, 0, kZORPipeRoleReader);
    ASSERT_TRUE(reader.StartThread());
    ASSERT_TRUE(WaitFor([&] { return reader.IsListening(); }));
  }
};

TEST_F(PipeProcessTest, FiveReaderProcessesGetEveryPacketAndASixthFails) {
  constexpr uint32_t kPackets = 100;
  std::vector<std::unique_ptr<ChildProcess>> readers;
  for (int i = 0; i < 5; ++i) {
    readers.push_back(std::make_unique<ChildProcess>());
    ASSERT_TRUE(StartListener(*readers.back(), "read", i, std::to_string(kPackets))) << "reader " << i;
  }
  ChildProcess sixth;
  ASSERT_TRUE(sixth.Start(velapo::test::HelperBesideTest(VELAPO_PIPE_HELPER),
                          {"read", m_area.Root(), ReadyFile(6).string(), "1"}));
  EXPECT_EQ(sixth.Wait(kMustNotTimeOutMs), 4);

  PacedWriter writer(kPackets, 50);  // the writer's ring spans 400 ms of a starved thread
  for (size_t i = 0; i < readers.size(); ++i) EXPECT_EQ(readers[i]->Wait(kMustNotTimeOutMs), 0) << "reader " << i;
}

TEST_F(PipeProcessTest, AReaderKilledAndRestartedGetsPacketsAgain) {
  PacedWriter writer(100000);
  ChildProcess first, second;
  ASSERT_TRUE(StartListener(first, "read", 0, "100000"));
  ASSERT_TRUE(WaitFor([&] { return writer.Pipe().GetConnectedReaders() == 1; }));
  first.Kill();
  first.Wait(kMustNotTimeOutMs);
  ASSERT_TRUE(WaitFor([&] { return writer.Pipe().GetConnectedReaders() == 0; }));
  ASSERT_TRUE(StartListener(second, "read", 1, "50"));
  EXPECT_EQ(second.Wait(kMustNotTimeOutMs), 0);
}

TEST_F(PipeProcessTest, GarbageOfAnyLengthBetweenPacketsLeavesEveryPacketWhole) {
  constexpr uint32_t kPackets = 200;
  ZORNamedPipeAudio reader;
  Listen(reader);
  ChildProcess sender;
  ASSERT_TRUE(sender.Start(velapo::test::HelperBesideTest(VELAPO_PIPE_HELPER),
                           {"garbage", m_area.Root(), std::to_string(kPackets), "2211"}));
  TestStreamChecker checker;
  ASSERT_TRUE(checker.TakeAll(reader, kPackets)) << "after sample " << checker.Next();
  EXPECT_EQ(sender.Wait(kMustNotTimeOutMs), 0);
  EXPECT_EQ(reader.GetStoredPackets(), kPackets);
  EXPECT_EQ(reader.GetDroppedPackets(), kPackets);
}

// Three instances that never read: a writer that waited for each of them
// would leave its ring (eight packets) to overflow at this pace.
TEST_F(PipeProcessTest, StalledReadersCostTheOthersNoPacket) {
  constexpr uint32_t kPackets = 150;
  zor::os::Event completion{zor::os::EventReset::Manual, false};
  zor::os::PipeServer stalled[3];
  for (zor::os::PipeServer& server : stalled) ASSERT_TRUE(server.Create(kTestPipeName, kZORPipePacketBytes, completion));
  ZORNamedPipeAudio reader;
  Listen(reader);
  PacedWriter writer(kPackets, 10);
  TestStreamChecker checker;
  ASSERT_TRUE(checker.TakeAll(reader, kPackets)) << "after sample " << checker.Next();
}

#if !defined(_WIN32)
// Like a Windows pipe's default security: the same account or root only.
TEST_F(PipeProcessTest, AnotherAccountNeitherWritesNorListens) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to run a helper as another account";
  ZORNamedPipeAudio reader;
  Listen(reader);
  ChildProcess foreignWriter, foreignReader;
  ASSERT_TRUE(foreignWriter.Start(velapo::test::HelperBesideTest(VELAPO_PIPE_HELPER),
                                  {"foreign-write", m_area.Root(), "50"}));
  EXPECT_EQ(foreignWriter.Wait(kMustNotTimeOutMs), 0);
  EXPECT_EQ(reader.GetStoredPackets(), 0u);
  reader.StopThread();

  ASSERT_TRUE(StartListener(foreignReader, "foreign-read", 0));
  PacedWriter writer(1000);
  EXPECT_EQ(foreignReader.Wait(kMustNotTimeOutMs), 0);
  EXPECT_EQ(writer.Pipe().GetConnectedReaders(), 0u);
}
#endif

}  // namespace
