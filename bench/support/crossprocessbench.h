// What the cross-process benchmarks share: a store root of their own, a
// clock both processes read, and a child (this executable started again with
// a role flag) that answers over a pipe with the times it woke.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/registry.h"

extern char** environ;

namespace velapo::bench {

inline int64_t MonotonicNs() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

inline bool ReadAll(int fd, void* data, size_t size) {
  auto* bytes = static_cast<uint8_t*>(data);
  while (size > 0) {
    const ssize_t got = ::read(fd, bytes, size);
    if (got <= 0) return false;
    bytes += got;
    size -= static_cast<size_t>(got);
  }
  return true;
}

inline bool WriteAll(int fd, const void* data, size_t size) {
  return ::write(fd, data, size) == static_cast<ssize_t>(size);
}

// The child's side: tell the parent it is ready, or when it woke.
inline bool SayReady() {
  const char ready = 'r';
  return WriteAll(STDOUT_FILENO, &ready, 1);
}
inline bool SayWoke() {
  const int64_t woke = MonotonicNs();
  return WriteAll(STDOUT_FILENO, &woke, sizeof(woke));
}

// Argument 0 of a benchmark picks the store's place: a disk or memory.
inline std::filesystem::path BaseFor(int64_t where) {
  return where == 0 ? std::filesystem::temp_directory_path() : std::filesystem::path("/dev/shm");
}
inline const char* LabelFor(int64_t where) { return where == 0 ? "temp directory" : "/dev/shm"; }

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

// This executable started again as `self role root`, its standard output a
// pipe to us; it ends when we close the pipe.
class ReportingChild {
 public:
  ReportingChild(const std::string& self, const char* role, const std::string& root) {
    int fromChild[2] = {-1, -1};
    if (::pipe2(fromChild, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fromChild[1], STDOUT_FILENO);
    std::vector<std::string> args = {self, role, root};
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
  ~ReportingChild() {
    if (m_fd >= 0) ::close(m_fd);
    if (m_pid > 0) ::waitpid(m_pid, nullptr, 0);
  }
  ReportingChild(const ReportingChild&) = delete;
  ReportingChild& operator=(const ReportingChild&) = delete;

  bool Ok() const { return m_pid > 0 && m_fd >= 0; }
  bool WaitReady() {
    char ready = 0;
    return ReadAll(m_fd, &ready, 1) && ready == 'r';
  }
  // The next wake-up time; false once the child is gone or after
  // `timeoutMs` (negative: no limit).
  bool WokeAt(int64_t& when, int timeoutMs = -1) {
    pollfd entry{m_fd, POLLIN, 0};
    return ::poll(&entry, 1, timeoutMs) == 1 && ReadAll(m_fd, &when, sizeof(when));
  }

 private:
  pid_t m_pid = -1;
  int m_fd = -1;
};

// Percentiles of the measured latencies as the benchmark's counters.
inline void ReportLatencies(benchmark::State& state, std::vector<double> latenciesUs) {
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

// main() of a cross-process benchmark: `self role root` runs the child's
// side, anything else the benchmarks, which start children through `self`.
inline int CrossProcessBenchMain(int argc, char** argv, const char* role,
                                 int (*runChild)(const std::string& root), std::string& self,
                                 const std::string& executable) {
  if (argc == 3 && std::strcmp(argv[1], role) == 0) return runChild(argv[2]);
  self = executable;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

}  // namespace velapo::bench
