// veltech's processes, one 480-frame stereo block at 48 kHz per iteration
// (10 ms of audio), called through the operation table as the host calls
// them. Each iteration first copies fresh input into the block, so a
// process never works on its own decaying output; passthrough measures
// that copy and the call alone.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "audio/zorapoprocesslibrary.h"
#include "audio/zorapoprocesswrapper.h"

namespace {

constexpr uint32_t kRate = 48000;
constexpr uint32_t kFrames = 480;
constexpr uint32_t kChannels = 2;

using Settings = std::vector<std::pair<std::string, int32_t>>;

void UseBuiltModule() {
  const std::u16string path = std::filesystem::path(VELTECH_MODULE_PATH).u16string();
  ZORAPOProcessLibrary::SetModulePath(path.c_str());
}

std::vector<float> Noise(size_t count, float amplitude) {
  std::vector<float> samples(count);
  uint32_t state = 12345;
  for (float& sample : samples) {
    state = state * 1664525u + 1013904223u;
    sample = amplitude * (static_cast<float>(state >> 8) / 8388608.0f - 1.0f);
  }
  return samples;
}

// Every band of the equaliser in use, of every type.
Settings FullEqualiser() {
  Settings settings;
  const int32_t frequencies[] = {32, 64, 125, 250, 500, 1000, 2000, 4000, 8000, 16000};
  for (int b = 0; b < 10; ++b) {
    const std::string band = "PEQ-Band" + std::to_string(b + 1) + " ";
    settings.emplace_back(band + "Enable", 1);
    settings.emplace_back(band + "Type", b % 6);
    settings.emplace_back(band + "Frequency", frequencies[b]);
    settings.emplace_back(band + "Gain", (b % 2 == 0 ? 1 : -1) * 300);
    settings.emplace_back(band + "Q", 100);
  }
  return settings;
}

// `change` is set anew every block with alternating values, so that the
// process glides all the time: the dearest steady state it can be in.
void RunProcess(benchmark::State& state, const char* techId, const Settings& settings,
                const char* change = nullptr) {
  UseBuiltModule();
  ZORAPOProcessLibrary library;
  if (!library.CreateProcess(techId, "Bench")) {
    state.SkipWithError("the veltech module could not make the process");
    return;
  }
  ZORTechProcess* process = library.GetProcess();
  const ZORTechProcessTable& table = *process->table;
  for (const auto& [name, value] : settings) table.SetControlLong(process, name.c_str(), value);
  table.Init(process, kChannels, kRate);

  const std::vector<float> input = Noise(kFrames * kChannels, 0.5f);
  std::vector<float> block(input.size());
  ZORChannelNode nodes[kChannels] = {{block.data(), 0, 0, &nodes[1]}, {block.data() + kFrames, 1, 0, nullptr}};
  int32_t toggle = 0;
  for (auto _ : state) {
    if (change != nullptr) table.SetControlLong(process, change, (toggle ^= 1) != 0 ? 400 : 2000);
    std::copy(input.begin(), input.end(), block.begin());
    table.Process(process, nodes, nodes, kFrames, nullptr);
    benchmark::DoNotOptimize(block.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kFrames);
}

void BM_Passthrough(benchmark::State& state) { RunProcess(state, "passthrough", {}); }
void BM_Gain(benchmark::State& state) { RunProcess(state, "gain", {{"Gain-Level", -300}}); }
void BM_GainGliding(benchmark::State& state) { RunProcess(state, "gain", {}, "Gain-Level"); }
void BM_PeqOneBand(benchmark::State& state) {
  RunProcess(state, "peq", {{"PEQ-Band1 Enable", 1}, {"PEQ-Band1 Gain", 600}});
}
void BM_PeqTenBands(benchmark::State& state) { RunProcess(state, "peq", FullEqualiser()); }
void BM_PeqTenBandsGliding(benchmark::State& state) {
  RunProcess(state, "peq", FullEqualiser(), "PEQ-Band6 Frequency");
}
void BM_Limiter(benchmark::State& state) {
  // Loud enough that the limiter works on most blocks.
  RunProcess(state, "limiter", {{"Limiter-Threshold", -600}, {"Limiter-Input Gain", 600}});
}
void BM_Widener(benchmark::State& state) { RunProcess(state, "widener", {{"Widener-Width", 150}}); }
void BM_Crossfeed(benchmark::State& state) { RunProcess(state, "crossfeed", {}); }

// The limiter behind the wrapper, as a chain runs it: interleaved host
// block, planar conversion, and block adaption to its 256-frame blocks.
void BM_WrappedLimiter(benchmark::State& state) {
  UseBuiltModule();
  ZORAPOProcessWrapper wrapper;
  if (!wrapper.Load("limiter", "LIM", "", 0) || !wrapper.Init(kChannels, kRate)) {
    state.SkipWithError("the veltech module could not make the limiter");
    return;
  }
  const std::vector<float> input = Noise(kFrames * kChannels, 0.5f);
  ZORAudioDataFloat block;
  for (auto _ : state) {
    block.AssignMemory(input.data(), kFrames, kChannels, true, kRate);
    wrapper.Process(&block);
    benchmark::DoNotOptimize(block.GetData(false, true));
    block.ReleaseData();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kFrames);
}

}  // namespace

BENCHMARK(BM_Passthrough);
BENCHMARK(BM_Gain);
BENCHMARK(BM_GainGliding);
BENCHMARK(BM_PeqOneBand);
BENCHMARK(BM_PeqTenBands);
BENCHMARK(BM_PeqTenBandsGliding);
BENCHMARK(BM_Limiter);
BENCHMARK(BM_Widener);
BENCHMARK(BM_Crossfeed);
BENCHMARK(BM_WrappedLimiter);
BENCHMARK_MAIN();
