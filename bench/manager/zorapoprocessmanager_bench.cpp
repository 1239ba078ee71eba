// The cost of running a block through the manager on an unbuilt chain (the
// bypass path), against a plain copy of the same buffer, and the heap
// allocations per block in steady state, counted on the calling thread.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "allocationcounter.h"
#include "manager/zorapoprocessmanager.h"

namespace {

constexpr uint32_t kFrames = 480;

void CopyBaseline(benchmark::State& state) {
  const auto channels = static_cast<uint32_t>(state.range(0));
  std::vector<float> input(kFrames * channels, 0.25f);
  std::vector<float> output(kFrames * channels);
  for (auto _ : state) {
    std::memcpy(output.data(), input.data(), input.size() * sizeof(float));
    benchmark::DoNotOptimize(output.data());
    benchmark::ClobberMemory();
  }
}

void ManagerProcess(benchmark::State& state) {
  const auto channelsIn = static_cast<uint32_t>(state.range(0));
  const auto channelsOut = static_cast<uint32_t>(state.range(1));
  ZORAPOProcessManager manager;
  manager.Initialize(channelsIn, channelsOut, 48000, 0, 1);
  std::vector<float> input(kFrames * channelsIn, 0.25f);
  std::vector<float> output(kFrames * channelsOut);
  auto run = [&] {
    uint32_t in = kFrames;
    uint32_t out = kFrames;
    manager.Process(input.data(), &in, output.data(), &out, false);
  };
  run();  // the first block sizes the stores
  const velapo::test::AllocationCounter allocations;
  for (auto _ : state) {
    run();
    benchmark::DoNotOptimize(output.data());
  }
  state.counters["allocs_per_call"] = benchmark::Counter(
      static_cast<double>(allocations.Count()) / static_cast<double>(state.iterations()));
}

BENCHMARK(CopyBaseline)->Name("memcpy/stereo")->Arg(2);
BENCHMARK(ManagerProcess)->Name("Process/stereo")->Args({2, 2});
BENCHMARK(ManagerProcess)->Name("Process/6to2")->Args({6, 2});
// The 6-to-2 path reads six channels: compare with copying the input.
BENCHMARK(CopyBaseline)->Name("memcpy/6ch")->Arg(6);

// Keeps each run's time so that ratios can be printed at the end.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      times[run.benchmark_name()] = run.GetAdjustedRealTime();
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> times;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  // Names carry their arguments ("Process/stereo/2/2"): match the front.
  auto find = [&](const std::string& name) {
    for (const auto& [key, time] : reporter.times) {
      if (key.rfind(name + "/", 0) == 0) {
        return time;
      }
    }
    return 0.0;
  };
  auto ratio = [&](const char* process, const char* copy) {
    const double p = find(process);
    const double c = find(copy);
    if (p > 0 && c > 0) {
      std::printf("%-16s %6.1f x %s\n", process, p / c, copy);
    }
  };
  ratio("Process/stereo", "memcpy/stereo");
  ratio("Process/6to2", "memcpy/6ch");
  benchmark::Shutdown();
  return 0;
}
