// The time from a control panel's WriteControl of a public setting in one
// process to the signal of a ZORAPOPublicSettingsReader's event in another:
// what the engine's worker waits for before it can rebuild a chain. The
// store lies in the temporary directory (a disk) or in /dev/shm (memory).
//
// The reader is this executable started again with --reader; it opens a
// reader with an event, tells the writer it is ready over a pipe, and
// answers each signal with the CLOCK_MONOTONIC time it woke, a clock both
// processes share. A signal is lost when a write lands before the reader's
// watcher has armed again; the writer then writes once more after a time-out
// and counts the sample as missed instead of timing it.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "config/zorapopublicsettings.h"
#include "config/zorapopublicsettingsreader.h"
#include "platform/dynamiclibrary.h"
#include "platform/event.h"
#include "platform/registry.h"

extern char** environ;

namespace {

constexpr char16_t kKeyPath[] = u"Software\\VEL\\APO\\{B3F8FA53-0004-438E-9003-51A46E139BFC}";
constexpr GUID kEndpoint = {0xB3F8FA53, 0x0004, 0x438E, {0x90, 0x03, 0x51, 0xA4, 0x6E, 0x13, 0x9B, 0xFC}};
constexpr int kAnswerTimeoutMs = 200;

ZORAPOOperatingMode MusicMode() {
  ZORAPOOperatingMode mode;
  mode.id = ZORAPOModeId("APO4-Music", "APO4-Internal Stereo");
  for (const char* name : {"SFX:Width", "SFX:Bass", "MFX:Corvo-BEQ Enable", "EFX:Limiter Level"}) {
    mode.publicControls.Insert(ZORUTSValue(name, "0"));
  }
  mode.allControls = mode.publicControls;
  return mode;
}

int64_t MonotonicNs() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

bool ReadAll(int fd, void* data, size_t size) {
  auto* bytes = static_cast<uint8_t*>(data);
  while (size > 0) {
    const ssize_t got = ::read(fd, bytes, size);
    if (got <= 0) return false;
    bytes += got;
    size -= static_cast<size_t>(got);
  }
  return true;
}

// A store root of its own under `base`, removed at the end.
class BenchRoot {
 public:
  explicit BenchRoot(const std::filesystem::path& base) {
    std::string pattern = (base / "velapo-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) != nullptr) m_root = pattern;
    zor::os::SetRegistryRoot(m_root);
  }
  ~BenchRoot() {
    std::error_code ignored;
    if (!m_root.empty()) std::filesystem::remove_all(m_root, ignored);
  }
  const std::string& Path() const { return m_root; }
  bool Ok() const { return !m_root.empty(); }

 private:
  std::string m_root;
};

// The reader process: open, say ready, answer each signal; until the writer
// closes the pipe.
int RunReader(const std::string& root) {
  zor::os::SetRegistryRoot(root);
  zor::os::Event changed(zor::os::EventReset::Auto);
  ZORAPOPublicSettingsReader reader;
  if (!reader.Open(kEndpoint, kKeyPath, MusicMode(), &changed)) return 3;
  const char ready = 'r';
  if (::write(STDOUT_FILENO, &ready, 1) != 1) return 0;
  for (;;) {
    if (!changed.Wait(10000)) return 0;  // the writer is gone
    const int64_t woke = MonotonicNs();
    if (::write(STDOUT_FILENO, &woke, sizeof(woke)) != sizeof(woke)) return 0;
  }
}

class ReaderProcess {
 public:
  ReaderProcess(const std::string& self, const std::string& root) {
    int fromChild[2] = {-1, -1};
    if (::pipe2(fromChild, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fromChild[1], STDOUT_FILENO);
    std::vector<std::string> args = {self, "--reader", root};
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    if (::posix_spawn(&m_pid, self.c_str(), &actions, nullptr, argv.data(), environ) != 0) {
      m_pid = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    ::close(fromChild[1]);
    m_fd = fromChild[0];
  }
  ~ReaderProcess() {
    if (m_fd >= 0) ::close(m_fd);
    if (m_pid > 0) ::waitpid(m_pid, nullptr, 0);
  }
  bool Ok() const { return m_pid > 0 && m_fd >= 0; }
  bool WaitReady() {
    char ready = 0;
    return ReadAll(m_fd, &ready, 1) && ready == 'r';
  }
  // The next wake-up time; false after the time-out.
  bool WokeAt(int64_t& when, int timeoutMs) {
    pollfd entry{m_fd, POLLIN, 0};
    return ::poll(&entry, 1, timeoutMs) == 1 && ReadAll(m_fd, &when, sizeof(when));
  }

 private:
  pid_t m_pid = -1;
  int m_fd = -1;
};

std::string g_self;

void BM_WriteControlToReaderEventInAnotherProcess(benchmark::State& state) {
  const bool inMemory = state.range(0) != 0;
  state.SetLabel(inMemory ? "/dev/shm" : "temp directory");
  BenchRoot root(inMemory ? std::filesystem::path("/dev/shm") : std::filesystem::temp_directory_path());
  zor::os::RegKey key;
  ZORAPOPublicSettings settings;
  if (!root.Ok() ||
      zor::os::RegKey::Create(kKeyPath, zor::os::kKeyAllAccess, key) != zor::os::RegStatus::Ok ||
      !settings.Init(kKeyPath, MusicMode())) {
    state.SkipWithError("no store");
    return;
  }
  ReaderProcess reader(g_self, root.Path());
  if (!reader.Ok() || !reader.WaitReady()) {
    state.SkipWithError("no reader process");
    return;
  }
  std::vector<double> latenciesUs;
  int missed = 0;
  uint32_t counter = 0;
  for (auto _ : state) {
    // Lets the reader's watcher arm again after the last signal.
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    int64_t wrote = 0;
    int64_t woke = 0;
    bool answered = false;
    for (int attempt = 0; attempt < 10 && !answered; ++attempt) {
      if (attempt > 0) ++missed;
      wrote = MonotonicNs();
      settings.WriteControl(ZORUTSValue("SFX:Width", std::to_string(++counter)));
      answered = reader.WokeAt(woke, kAnswerTimeoutMs);
    }
    if (!answered) {
      state.SkipWithError("reader does not answer");
      break;
    }
    const double seconds = static_cast<double>(woke - wrote) * 1e-9;
    state.SetIterationTime(seconds);
    latenciesUs.push_back(seconds * 1e6);
  }
  if (latenciesUs.empty()) return;
  std::sort(latenciesUs.begin(), latenciesUs.end());
  const auto at = [&](double fraction) {
    return latenciesUs[static_cast<size_t>(fraction * static_cast<double>(latenciesUs.size() - 1))];
  };
  state.counters["median_us"] = at(0.50);
  state.counters["p99_us"] = at(0.99);
  state.counters["max_us"] = latenciesUs.back();
  state.counters["missed"] = missed;
}
BENCHMARK(BM_WriteControlToReaderEventInAnotherProcess)
    ->Arg(0)
    ->Arg(1)
    ->Iterations(300)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--reader") == 0) return RunReader(argv[2]);
  g_self = zor::os::ExecutablePath().string();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
