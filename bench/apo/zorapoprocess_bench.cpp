// APOProcess against the manager's Process on the same object and buffers
// (the laptop example's SFX chain), the copy path against memcpy, and the
// silence scan per frame; allocations per call counted on the calling thread.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "allocationcounter.h"
#include "apo/czor_lfx_apo_universal_base.h"
#include "apo/zoraporegproperties.h"
#include "audio/zorapoprocesslibrary.h"
#include "endpointfixture.h"
#include "engine/zorengineemulator.h"
#include "registrytestarea.h"

namespace {

constexpr uint32_t kFrames = 480;
constexpr uint32_t kChannels = 2;

// A locked SFX object on the laptop example, or on no endpoint (it copies).
class BenchObject {
 public:
  explicit BenchObject(bool bound) {
    ZORAPOProcessLibrary::SetModulePath(std::filesystem::path(VELTECH_MODULE_PATH).u16string().c_str());
    const std::u16string guid = velapo::test::FreshEndpointGuid();
    const std::u16string endpoint = std::u16string(ZORAPOEndpointInfo::kMMDevicesAudioPath) + u"Render\\" + guid;
    zor::os::RegKey key;
    zor::os::RegKey::Create(endpoint, zor::os::kKeyAllAccess, key);
    key.WriteDword(u"DeviceState", DEVICE_STATE_ACTIVE);
    zor::os::RegKey::Create(endpoint + u"\\Properties", zor::os::kKeyAllAccess, key);
    key.WriteValue(u"{7A8B74C8-FA66-4460-8542-D6119C59E9D4},2", zor::os::RegType::Sz,
                   velapo::test::TextBytes((std::filesystem::path(VELAPO_EXAMPLES_DIR) / "laptop.xml").u16string()));
    ZOREngineEmulator::Stream stream;
    if (bound) stream.endpointGuid = guid;
    m_engine = std::make_unique<ZOREngineEmulator>(stream);
    m_engine->Create(ZORAPORenderClass(kZORLocationSFX)->regProperties->clsid);
    m_engine->Initialize();
    m_engine->Lock();
    m_engine->Object()->QueryInterface(IID_IAudioProcessingObjectRT, reinterpret_cast<void**>(&m_rt));
    for (size_t i = 0; i < input.size(); ++i) input[i] = 0.25f * static_cast<float>((i * 7919) % 1000) / 1000.0f;
  }
  ~BenchObject() { m_rt->Release(); }

  void APOProcess() {
    APO_CONNECTION_PROPERTY in{reinterpret_cast<UINT_PTR>(input.data()), kFrames, BUFFER_VALID,
                               APO_CONNECTION_PROPERTY_SIGNATURE};
    APO_CONNECTION_PROPERTY out{reinterpret_cast<UINT_PTR>(output.data()), kFrames, BUFFER_INVALID,
                                APO_CONNECTION_PROPERTY_SIGNATURE};
    APO_CONNECTION_PROPERTY* ins = &in;
    APO_CONNECTION_PROPERTY* outs = &out;
    m_rt->APOProcess(1, &ins, 1, &outs);
  }
  void ManagerProcess() {
    uint32_t in = kFrames, out = kFrames;
    static_cast<CZOR_LFX_APO_Universal_Base*>(m_engine->Object())
        ->Manager()
        .Process(input.data(), &in, output.data(), &out, false);
  }

  std::vector<float> input = std::vector<float>(kFrames * kChannels);
  std::vector<float> output = std::vector<float>(kFrames * kChannels);

 private:
  velapo::test::RegistryTestArea m_area;
  std::unique_ptr<ZOREngineEmulator> m_engine;
  IAudioProcessingObjectRT* m_rt = nullptr;
};

template <typename Run>
void Measure(benchmark::State& state, Run run) {
  for (int warm = 0; warm < 10; ++warm) run();
  const velapo::test::AllocationCounter allocations;
  for (auto _ : state) {
    run();
    benchmark::ClobberMemory();
  }
  state.counters["allocs_per_call"] = benchmark::Counter(
      static_cast<double>(allocations.Count()) / static_cast<double>(state.iterations()));
}

// Both on one object, interleaved by the benchmark library's repetitions.
void BoundAPOProcess(benchmark::State& state) {
  BenchObject object(true);
  Measure(state, [&] { object.APOProcess(); });
}
void BoundManagerProcess(benchmark::State& state) {
  BenchObject object(true);
  Measure(state, [&] { object.ManagerProcess(); });
}
void CopyPath(benchmark::State& state) {
  BenchObject object(false);
  Measure(state, [&] { object.APOProcess(); });
}
void Memcpy(benchmark::State& state) {
  std::vector<float> input(kFrames * kChannels, 0.25f), output(kFrames * kChannels);
  Measure(state, [&] { std::memcpy(output.data(), input.data(), input.size() * sizeof(float)); });
}
void SilenceScan(benchmark::State& state) {
  const std::vector<float> silence(kFrames * kChannels, 0.0f);
  bool sound = false;
  Measure(state, [&] { sound |= CZOR_LFX_APO_Universal_Base::HasSound(silence.data(), silence.size()); });
  benchmark::DoNotOptimize(sound);
  state.counters["per_frame"] = benchmark::Counter(static_cast<double>(kFrames),
                                                   benchmark::Counter::kIsIterationInvariantRate |
                                                       benchmark::Counter::kInvert);
}

BENCHMARK(BoundAPOProcess)->Name("APOProcess/laptop_sfx");
BENCHMARK(BoundManagerProcess)->Name("ManagerProcess/laptop_sfx");
BENCHMARK(CopyPath)->Name("APOProcess/copy_path");
BENCHMARK(Memcpy)->Name("memcpy/stereo");
BENCHMARK(SilenceScan)->Name("SilenceScan/stereo");

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name != "mean") continue;
      // CPU time: on a shared machine the wall clock counts other processes.
      times[run.run_name.function_name] = run.GetAdjustedCPUTime();
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
  auto ratio = [&](const char* a, const char* b) {
    if (reporter.times.count(a) && reporter.times.count(b) && reporter.times[b] > 0) {
      std::printf("%-24s %6.3f x %s\n", a, reporter.times[a] / reporter.times[b], b);
    }
  };
  ratio("APOProcess/laptop_sfx", "ManagerProcess/laptop_sfx");
  ratio("APOProcess/copy_path", "memcpy/stereo");
  benchmark::Shutdown();
  return 0;
}
