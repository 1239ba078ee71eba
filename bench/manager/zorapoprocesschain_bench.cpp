// Chains built from the example configurations: what a build costs, what
// the shortcut for an unchanged workspace costs, what stacking and sending
// 64 values costs, and the host's overhead around a built chain: the
// manager's Process with the laptop's stream chain against the same veltech
// processes called directly on the same samples.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "allocationcounter.h"
#include "audio/zorapoprocesschain.h"
#include "audio/zorapoprocesswrapper.h"
#include "endpointfixture.h"
#include "manager/zorapoprocessmanager.h"
#include "registrytestarea.h"

namespace {

constexpr uint32_t kRate = 48000;
constexpr uint32_t kFrames = 480;
constexpr uint32_t kLocationSfx = 1;
constexpr uint32_t kLocationMfx = 2;

// One endpoint in a private store whose configuration is an example file.
class BenchEndpoint {
 public:
  explicit BenchEndpoint(const char* example)
      : m_guid(velapo::test::FreshEndpointGuid()), m_device(u"{0.0.0.00000000}." + m_guid) {
    ZORAPOProcessLibrary::SetModulePath(std::filesystem::path(VELTECH_MODULE_PATH).u16string().c_str());
    const std::u16string& guid = m_guid;
    zor::os::RegKey key;
    zor::os::RegKey::Create(std::u16string(ZORAPOEndpointInfo::kMMDevicesAudioPath) + u"Render\\" +
                                guid + u"\\Properties",
                            zor::os::kKeyAllAccess, key);
    const std::u16string path = (std::filesystem::path(VELAPO_EXAMPLES_DIR) / example).u16string();
    key.WriteValue(u"{7A8B74C8-FA66-4460-8542-D6119C59E9D4},2", zor::os::RegType::Sz,
                   velapo::test::TextBytes(path));
    info.SetDevice(&m_device, true);
  }
  ZORAPOWorkspace Workspace(uint32_t location) const {
    ZORAPOConfigurationFile config;
    config.Load(info.GetConfigPath(), 0, location);
    ZORAPOWorkspace workspace;
    workspace.endpoint = info;
    config.FindMode(config.GetDefaultMode(), workspace.mode);
    workspace.inputLayout = workspace.outputLayout = kZORLayoutStereo;
    workspace.sampleRate = kRate;
    return workspace;
  }

 private:
  velapo::test::RegistryTestArea m_area;
  std::u16string m_guid;
  velapo::test::FakeDevice m_device;

 public:
  ZORAPOEndpointInfo info;
};

void ConstructChain(benchmark::State& state, const char* example, uint32_t location) {
  BenchEndpoint endpoint(example);
  const ZORAPOWorkspace workspace = endpoint.Workspace(location);
  ZORAPOProcessChain chain;
  for (auto _ : state) {
    chain.ResetChain();  // defeats the shortcut: every pass loads and builds
    if (!chain.ConstructChain(workspace, location)) state.SkipWithError("no chain");
  }
  state.counters["processes"] = static_cast<double>(chain.GetProcessCount());
}

void ShortcutRebuild(benchmark::State& state) {
  BenchEndpoint endpoint("laptop.xml");
  const ZORAPOWorkspace workspace = endpoint.Workspace(kLocationSfx);
  ZORAPOProcessChain chain;
  chain.ConstructChain(workspace, kLocationSfx);
  for (auto _ : state) chain.ConstructChain(workspace, kLocationSfx);
}

// The laptop's stream chain with its mode grown to 64 values. `changed`:
// one of them differs every pass, so all 64 go to both processes.
void UpdateValues(benchmark::State& state, bool changed) {
  BenchEndpoint endpoint("laptop.xml");
  ZORAPOWorkspace workspace = endpoint.Workspace(kLocationSfx);
  for (int i = 0; workspace.mode.allControls.Size() < 64; ++i) {
    workspace.mode.allControls.Insert(ZORUTSValue("SFX-EQ:Unknown-" + std::to_string(i), i));
  }
  ZORAPOProcessChain chain;
  chain.ConstructChain(workspace, kLocationSfx);
  ZORUTSValueList values = chain.GetAppliedValues();
  int32_t toggle = 0;
  for (auto _ : state) {
    if (changed) {
      values.Insert(ZORUTSValue("SFX-EQ:PEQ-Band1 Gain", (toggle ^= 1) != 0 ? 300 : 310));
      chain.ApplyValues(values);
    } else {
      chain.UpdateValues(true);
    }
  }
  state.counters["values"] = static_cast<double>(values.Size());
}

std::vector<float> Noise(size_t count) {
  std::vector<float> samples(count);
  uint32_t seed = 12345;
  for (float& sample : samples) {
    seed = seed * 1664525u + 1013904223u;
    sample = 0.5f * (static_cast<float>(seed >> 8) / 8388608.0f - 1.0f);
  }
  return samples;
}

// Argument 0: the metering mode (0 none, 3 input and output); argument 1:
// 1 keeps a fade running all the time, so every block runs two chains.
void ManagerLaptopSfx(benchmark::State& state) {
  BenchEndpoint endpoint("laptop.xml");
  ZORAPOProcessManager manager;
  manager.SetEndpointInfo(endpoint.info, kLocationSfx);
  manager.SetMeteringMode(static_cast<uint32_t>(state.range(0)));
  const bool fading = state.range(1) != 0;
  manager.Initialize(2, 2, kRate, 0, kLocationSfx);
  if (!manager.GetChainPointers().active->IsBuilt()) state.SkipWithError("no chain");
  const std::vector<float> input = Noise(kFrames * 2);
  std::vector<float> output(input.size());
  auto run = [&] {
    uint32_t in = kFrames;
    uint32_t out = kFrames;
    manager.Process(input.data(), &in, output.data(), &out, false);
  };
  auto fade = [&] {
    if (fading && manager.GetState() == ManagerState_Steady) manager.SwitchState(ManagerState_Fading);
  };
  // The first fade sizes the fade's blocks.
  for (int i = 0; i < 20; ++i) fade(), run();
  const velapo::test::AllocationCounter allocations;
  for (auto _ : state) {
    fade();
    run();
    benchmark::DoNotOptimize(output.data());
    benchmark::ClobberMemory();
  }
  state.counters["allocs_per_call"] = benchmark::Counter(
      static_cast<double>(allocations.Count()) / static_cast<double>(state.iterations()));
}

// A resampling chain (laptop SFX at a rate the processes don't run at): the
// cost of a block, and, measured once with an impulse, what a listener
// hears against what the chain reports. The report counts the FIFO's
// cushion but not the converters' filters.
void ResampledBlock(benchmark::State& state) {
  const auto rate = static_cast<uint32_t>(state.range(0));
  BenchEndpoint endpoint("laptop.xml");
  ZORAPOWorkspace workspace = endpoint.Workspace(kLocationSfx);
  workspace.sampleRate = rate;
  ZORAPOProcessChain chain;
  chain.ConstructChain(workspace, kLocationSfx);
  std::vector<float> impulse(kFrames * 2, 0.0f);
  impulse[0] = impulse[1] = 0.5f;
  ZORAudioDataFloat block;
  int64_t heard = -1;
  for (int64_t n = 0; n < 40 && heard < 0; ++n) {
    block.AssignMemory(impulse.data(), kFrames, 2, true, rate);
    chain.Process(block, block, nullptr);
    const float* out = block.GetData(false, true);
    const auto peak = std::max_element(out, out + kFrames * 2, [](float a, float b) { return std::abs(a) < std::abs(b); });
    if (std::abs(*peak) > 0.05f) heard = n * kFrames + (peak - out) / 2;
    impulse.assign(impulse.size(), 0.0f);
  }
  state.counters["heard_ms"] = 1000.0 * static_cast<double>(heard) / rate;
  state.counters["reported_ms"] = static_cast<double>(chain.GetLatencyTime()) / 1e5;
  const std::vector<float> input = Noise(kFrames * 2);
  for (auto _ : state) {
    block.AssignMemory(input.data(), kFrames, 2, true, rate);
    chain.Process(block, block, nullptr);
    benchmark::DoNotOptimize(block.GetData(false, true));
  }
}

// The same processes, made and set up by a chain of the same workspace,
// called through their table on planar copies of the same samples.
// `interleaved`: the caller's buffers are interleaved, as the engine's are,
// and the planar tech border needs them transposed in and out.
void DirectLaptopSfx(benchmark::State& state, bool interleaved) {
  BenchEndpoint endpoint("laptop.xml");
  ZORAPOProcessChain chain;
  chain.ConstructChain(endpoint.Workspace(kLocationSfx), kLocationSfx);
  const std::vector<float> input = Noise(kFrames * 2);
  std::vector<float> block(input.size());
  ZORChannelNode nodes[2] = {{block.data(), 0, 0, &nodes[1]}, {block.data() + kFrames, 1, 0, nullptr}};
  std::vector<float> output(input.size());
  for (auto _ : state) {
    if (interleaved) {
      for (uint32_t f = 0; f < kFrames; ++f) {
        block[f] = input[2 * f];
        block[kFrames + f] = input[2 * f + 1];
      }
    } else {
      std::copy(input.begin(), input.end(), block.begin());
    }
    for (size_t i = 0; i < chain.GetProcessCount(); ++i) {
      ZORTechProcess* process = chain.GetProcess(i)->GetTechProcess();
      process->table->Process(process, nodes, nodes, kFrames, nullptr);
    }
    if (interleaved) {
      for (uint32_t f = 0; f < kFrames; ++f) {
        output[2 * f] = block[f];
        output[2 * f + 1] = block[kFrames + f];
      }
    }
    benchmark::DoNotOptimize(block.data());
    benchmark::DoNotOptimize(output.data());
    benchmark::ClobberMemory();
  }
}

BENCHMARK_CAPTURE(ConstructChain, laptop_sfx, "laptop.xml", kLocationSfx)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ConstructChain, laptop_mfx, "laptop.xml", kLocationMfx)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ConstructChain, minimal_sfx, "minimal.xml", kLocationSfx)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ConstructChain, minimal_mfx, "minimal.xml", kLocationMfx)->Unit(benchmark::kMillisecond);
BENCHMARK(ShortcutRebuild)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(UpdateValues, unchanged, false)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(UpdateValues, one_changed, true)->Unit(benchmark::kMicrosecond);
BENCHMARK(ResampledBlock)->Arg(22050)->Arg(50000)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(DirectLaptopSfx, planar, false);
BENCHMARK_CAPTURE(DirectLaptopSfx, interleaved, true);
BENCHMARK(ManagerLaptopSfx)->ArgNames({"meters", "fading"})->Args({0, 0})->Args({3, 0})->Args({3, 1});

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) times[run.benchmark_name()] = run.GetAdjustedCPUTime();
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> times;  // CPU time: the machine is shared
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  // A run with repetitions reports means: take those where they exist.
  auto time = [&](const std::string& name) {
    const auto& t = reporter.times;
    const auto mean = t.find(name + "_mean");
    return mean != t.end() ? mean->second : (t.count(name) != 0 ? t.at(name) : 0.0);
  };
  const double host = time("ManagerLaptopSfx/meters:0/fading:0");
  if (host > 0 && time("ManagerLaptopSfx/meters:3/fading:0") > 0) {
    std::printf("Process with both meters / without (laptop SFX): %+.1f %%\n",
                100.0 * (time("ManagerLaptopSfx/meters:3/fading:0") / host - 1.0));
  }
  for (const char* direct : {"DirectLaptopSfx/planar", "DirectLaptopSfx/interleaved"}) {
    if (host > 0 && time(direct) > 0) {
      std::printf("manager / %s (laptop SFX, 480 stereo frames): %.3f x, overhead %.0f ns\n",
                  direct, host / time(direct), host - time(direct));
    }
  }
  if (time("ConstructChain/laptop_sfx") > 0 && time("ShortcutRebuild") > 0) {
    std::printf("build / shortcut (laptop SFX): %.1f x\n",
                time("ConstructChain/laptop_sfx") * 1000.0 / time("ShortcutRebuild"));
  }
  benchmark::Shutdown();
  return 0;
}
