#pragma once
// A helper process started by a test: started with arguments, waited for
// with a time-out, killed hard. The tests that cross the process boundary
// (registry writers, watchers, writers killed mid-write) use it.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace velapo::test {

class ChildProcess {
 public:
  static constexpr int kStillRunning = -1000;

  ChildProcess();
  // Kills a child that still runs and reaps it.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  bool Start(const std::filesystem::path& program, const std::vector<std::string>& arguments);
  // The exit code once the child has ended within timeoutMs, kStillRunning
  // otherwise. A child killed by a signal reads as 128 + the signal.
  int Wait(uint32_t timeoutMs);
  // Ends the child at once (SIGKILL, TerminateProcess); Wait reaps it.
  void Kill();

  struct State;

 private:
  std::unique_ptr<State> m_state;
};

// An executable built beside the running test executable.
std::filesystem::path HelperBesideTest(const std::string& baseName);

}  // namespace velapo::test
