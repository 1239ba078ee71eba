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

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "config/zorapopublicsettings.h"
#include "config/zorapopublicsettingsreader.h"
#include "platform/dynamiclibrary.h"
#include "platform/event.h"
#include "platform/registry.h"
#include "../support/crossprocessbench.h"

namespace {

using namespace velapo::bench;

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

// The reader process: open, say ready, answer each signal; until the writer
// closes the pipe.
int RunReader(const std::string& root) {
  zor::os::SetRegistryRoot(root);
  zor::os::Event changed(zor::os::EventReset::Auto);
  ZORAPOPublicSettingsReader reader;
  if (!reader.Open(kEndpoint, kKeyPath, MusicMode(), &changed)) return 3;
  if (!SayReady()) return 0;
  for (;;) {
    if (!changed.Wait(10000) || !SayWoke()) return 0;  // the writer is gone
  }
}

std::string g_self;

void BM_WriteControlToReaderEventInAnotherProcess(benchmark::State& state) {
  state.SetLabel(LabelFor(state.range(0)));
  BenchRoot root(BaseFor(state.range(0)));
  zor::os::RegKey key;
  ZORAPOPublicSettings settings;
  if (!root.Ok() ||
      zor::os::RegKey::Create(kKeyPath, zor::os::kKeyAllAccess, key) != zor::os::RegStatus::Ok ||
      !settings.Init(kKeyPath, MusicMode())) {
    state.SkipWithError("no store");
    return;
  }
  ReportingChild reader(g_self, "--reader", root.Path());
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
  ReportLatencies(state, std::move(latenciesUs));
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
  return velapo::bench::CrossProcessBenchMain(argc, argv, "--reader", RunReader, g_self,
                                              zor::os::ExecutablePath().string());
}
