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

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/event.h"
#include "platform/registry.h"
#include "platform/dynamiclibrary.h"
#include "../support/crossprocessbench.h"

namespace {

using namespace velapo::bench;

using zor::os::RegKey;
using zor::os::RegStatus;

constexpr char16_t kKeyPath[] = u"Software\\VelapoBench";

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
    if (!SayReady()) return 0;
    if (!changed.Wait(10000) || !SayWoke()) return 0;  // the writer is gone
  }
}

std::string g_self;

void BM_WriteToSignalInAnotherProcess(benchmark::State& state) {
  state.SetLabel(LabelFor(state.range(0)));
  BenchRoot root(BaseFor(state.range(0)));
  RegKey key;
  if (!root.Ok() || RegKey::Create(kKeyPath, zor::os::kKeyAllAccess, key) != RegStatus::Ok) {
    state.SkipWithError("no store");
    return;
  }
  ReportingChild watcher(g_self, "--watcher", root.Path());
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
  ReportLatencies(state, std::move(latenciesUs));
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
  return velapo::bench::CrossProcessBenchMain(argc, argv, "--watcher", RunWatcher, g_self,
                                              zor::os::ExecutablePath().string());
}
