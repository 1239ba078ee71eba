// The other processes of the pipe tests, on the test stream of
// pipetesting.h.
//   read <root> <ready file> <packets>  a reader; touches the ready file once
//       listening, then needs <packets> whole packets in sequence from
//       wherever its stream starts
//   garbage <root> <packets> <seed>     a raw writer: random-length garbage
//       before each good packet 0..<packets>-1
//   foreign-read <root> <ready file>    (POSIX, run as root) a reader as
//       the account nobody: 0 when nothing arrives within 1.5 s
//   foreign-write <root> <packets>      (POSIX, run as root) a writer as
//       nobody, sending <packets> good packets
// Exit code: 0 success, 1 a packet out of sequence or missing after 20 s,
// 2 bad arguments, 3 garbage: no reader or a failed write, 4 no pipe
// instance to be had.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#if !defined(_WIN32)
#include <unistd.h>
#endif

#include "registrytestarea.h"
#include "sidechannel/pipetesting.h"

namespace {

// Starts a reader; once it listens, touches the ready file (written aside
// and renamed, so it is closed once the test sees it). Null when refused.
std::unique_ptr<ZORNamedPipeAudio> Listen(const std::string& readyFile) {
  auto pipe = std::make_unique<ZORNamedPipeAudio>();
  pipe->Init(kTestPipeName, 0, kZORPipeRoleReader);
  if (!pipe->StartThread()) return nullptr;
  while (!pipe->IsListening()) {
    if (!pipe->IsThreadRunning()) return nullptr;  // the instance was refused
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  std::ofstream(readyFile + ".part") << "listening\n";
  std::error_code ignored;
  std::filesystem::rename(readyFile + ".part", readyFile, ignored);
  return pipe;
}

int Read(const std::string& readyFile, uint32_t packets) {
  const std::unique_ptr<ZORNamedPipeAudio> pipe = Listen(readyFile);
  if (!pipe) return 4;
  TestStreamChecker checker;
  if (checker.TakeAll(*pipe, packets)) return 0;
  std::fprintf(stderr, "pipe helper: stopped after sample %llu\n", static_cast<unsigned long long>(checker.Next()));
  return 1;
}

#if !defined(_WIN32)
bool BecomeNobody() { return ::geteuid() == 0 && ::setgid(65534) == 0 && ::setuid(65534) == 0; }

int ForeignRead(const std::string& readyFile) {
  if (!BecomeNobody()) return 5;
  const std::unique_ptr<ZORNamedPipeAudio> pipe = Listen(readyFile);
  if (!pipe) return 4;
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  return pipe->GetStoredPackets() == 0 ? 0 : 1;
}

int ForeignWrite(uint32_t packets) {
  if (!BecomeNobody()) return 5;
  zor::os::PipeClient client;
  for (uint32_t k = 0; k < packets; ++k) {
    if (client.IsOpen() || client.Open(kTestPipeName, 0)) {
      if (client.Write(TestPacketBytes(k).data(), kZORPipePacketBytes, 100) != kZORPipePacketBytes) client.Close();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return 0;
}
#endif

int Garbage(uint32_t packets, uint32_t seed) {
  zor::os::PipeClient client;
  const auto deadline = Clock::now() + std::chrono::seconds(20);
  while (!client.Open(kTestPipeName, 0)) {
    if (Clock::now() > deadline) return 3;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  std::mt19937 random(seed);
  std::uniform_int_distribution<uint32_t> length(1, 2 * kZORPipePacketBytes);
  std::vector<uint8_t> garbage;
  for (uint32_t k = 0; k < packets; ++k) {
    garbage.resize(length(random));
    for (uint8_t& byte : garbage) byte = static_cast<uint8_t>(random());
    if (client.Write(garbage.data(), static_cast<uint32_t>(garbage.size()), 1000) != garbage.size()) {
      return 3;
    }
    const std::vector<uint8_t> good = TestPacketBytes(k);
    if (client.Write(good.data(), kZORPipePacketBytes, 1000) != kZORPipePacketBytes) return 3;
    // Leave the test's reader time to keep its ring (eight packets) from
    // overflowing, on a busy machine and under sanitizers too.
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() < 2) return 2;
  velapo::test::UseRegistryRoot(args[1]);
  if (args[0] == "read" && args.size() == 4) {
    return Read(args[2], static_cast<uint32_t>(std::stoul(args[3])));
  }
  if (args[0] == "garbage" && args.size() == 4) {
    return Garbage(static_cast<uint32_t>(std::stoul(args[2])),
                   static_cast<uint32_t>(std::stoul(args[3])));
  }
#if !defined(_WIN32)
  if (args[0] == "foreign-read" && args.size() == 3) return ForeignRead(args[2]);
  if (args[0] == "foreign-write" && args.size() == 3) {
    return ForeignWrite(static_cast<uint32_t>(std::stoul(args[2])));
  }
#endif
  return 2;
}
