// Costs of the POSIX settings store: the time from a write in one process to
// the change signal in another (what a control panel's change waits for
// before the engine can react), and a value's write and read on their own.
// Each runs on a store in the temporary directory (a disk) and in /dev/shm
// (memory), so the share of the disk flush shows.
//
// The watcher is this executable started again with --watcher; it arms a
// notification, tells the writer it is ready over a pipe, and answers each
// signal with the CLOCK_MONOTONIC time it woke, a clock both processes share.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/event.h"
#include "platform/registry.h"
#include "platform/dynamiclibrary.h"

extern char** environ;

namespace {

using zor::os::RegKey;
using zor::os::RegStatus;

constexpr char16_t kKeyPath[] = u"Software\\VelapoBench";

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

bool WriteAll(int fd, const void* data, size_t size) {
  return ::write(fd, data, size) == static_cast<ssize_t>(size);
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

std::filesystem::path BaseFor(int64_t where) {
  return where == 0 ? std::filesystem::temp_directory_path() : std::filesystem::path("/dev/shm");
}

const char* LabelFor(int64_t where) { return where == 0 ? "temp directory" : "/dev/shm"; }

// The watcher process: arm, say ready, wait, answer the wake-up time; until
// the writer closes the pipe.
int RunWatcher(const std::string& root) {
  zor::os::SetRegistryRoot(root);
  // Made before the key: closing the key signals its pending notification.
  zor::os::Event changed(zor::os::EventReset::Auto);
  RegKey key;
  if (RegKey::Open(kKeyPath, zor::os::kKeyRead, key) != RegStatus::Ok) return 3;
  for (;;) {
    if (key.NotifyChange(false, zor::os::kNotifyChangeLastSet, changed) != RegStatus::Ok) return 3;
    const char ready = 'r';
    if (!WriteAll(STDOUT_FILENO, &ready, 1)) return 0;
    if (!changed.Wait(10000)) return 0;  // the writer is gone
    const int64_t woke = MonotonicNs();
    if (!WriteAll(STDOUT_FILENO, &woke, sizeof(woke))) return 0;
  }
}

class Watcher {
 public:
  Watcher(const std::string& self, const std::string& root) {
    int fromChild[2] = {-1, -1};
    if (::pipe2(fromChild, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fromChild[1], STDOUT_FILENO);
    std::vector<std::string> args = {self, "--watcher", root};
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
  ~Watcher() {
    if (m_fd >= 0) ::close(m_fd);
    if (m_pid > 0) ::waitpid(m_pid, nullptr, 0);
  }
  bool Ok() const { return m_pid > 0 && m_fd >= 0; }
  bool WaitReady() {
    char ready = 0;
    return ReadAll(m_fd, &ready, 1) && ready == 'r';
  }
  bool WokeAt(int64_t& when) { return ReadAll(m_fd, &when, sizeof(when)); }

 private:
  pid_t m_pid = -1;
  int m_fd = -1;
};

std::string g_self;

void BM_WriteToSignalInAnotherProcess(benchmark::State& state) {
  state.SetLabel(LabelFor(state.range(0)));
  BenchRoot root(BaseFor(state.range(0)));
  RegKey key;
  if (!root.Ok() || RegKey::Create(kKeyPath, zor::os::kKeyAllAccess, key) != RegStatus::Ok) {
    state.SkipWithError("no store");
    return;
  }
  Watcher watcher(g_self, root.Path());
  if (!watcher.Ok()) {
    state.SkipWithError("no watcher process");
    return;
  }
  std::vector<double> latenciesUs;
  uint32_t counter = 0;
  for (auto _ : state) {
    if (!watcher.WaitReady()) {
      state.SkipWithError("watcher ended");
      break;
    }
    const int64_t wrote = MonotonicNs();
    key.WriteDword(u"Value", ++counter);
    int64_t woke = 0;
    if (!watcher.WokeAt(woke)) {
      state.SkipWithError("watcher ended");
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
  state.counters["p10_us"] = at(0.10);
  state.counters["median_us"] = at(0.50);
  state.counters["p90_us"] = at(0.90);
  state.counters["p99_us"] = at(0.99);
  state.counters["max_us"] = latenciesUs.back();
}
BENCHMARK(BM_WriteToSignalInAnotherProcess)
    ->Arg(0)
    ->Arg(1)
    ->Iterations(300)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

void BM_WriteValue(benchmark::State& state) {
  state.SetLabel(LabelFor(state.range(0)));
  BenchRoot root(BaseFor(state.range(0)));
  RegKey key;
  if (!root.Ok() || RegKey::Create(kKeyPath, zor::os::kKeyAllAccess, key) != RegStatus::Ok) {
    state.SkipWithError("no store");
    return;
  }
  const std::vector<uint8_t> blob(static_cast<size_t>(state.range(1)), 0x5A);
  for (auto _ : state) {
    if (key.WriteValue(u"VelApoGlobal", zor::os::RegType::Binary, blob) != RegStatus::Ok) {
      state.SkipWithError("write failed");
      break;
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(1));
}
BENCHMARK(BM_WriteValue)->Args({0, 512})->Args({1, 512})->Args({1, 65536})->Unit(benchmark::kMicrosecond);

void BM_ReadValue(benchmark::State& state) {
  BenchRoot root(BaseFor(1));
  RegKey key;
  if (!root.Ok() || RegKey::Create(kKeyPath, zor::os::kKeyAllAccess, key) != RegStatus::Ok) {
    state.SkipWithError("no store");
    return;
  }
  const std::vector<uint8_t> blob(static_cast<size_t>(state.range(0)), 0x5A);
  key.WriteValue(u"VelApoGlobal", zor::os::RegType::Binary, blob);
  zor::os::RegType type = zor::os::RegType::None;
  std::vector<uint8_t> data;
  for (auto _ : state) {
    if (key.ReadValue(u"velapoglobal", type, data) != RegStatus::Ok) {
      state.SkipWithError("read failed");
      break;
    }
    benchmark::DoNotOptimize(data.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_ReadValue)->Arg(512)->Arg(65536)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--watcher") == 0) return RunWatcher(argv[2]);
  g_self = zor::os::ExecutablePath().string();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
