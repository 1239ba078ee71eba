// From a setting written in another process to the first block of the
// crossfade into the new chain: the store's notification, the worker's wake,
// the build of the laptop's stream chain, and the wait for the next block of
// a stream that plays 10 ms blocks in real time.
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>
#include <vector>

#include "audio/zorapoprocesslibrary.h"
#include "config/zorapomodeselector.h"
#include "endpointfixture.h"
#include "manager/zorapoprocessmanager.h"
#include "../support/crossprocessbench.h"

namespace {

using namespace velapo::bench;

constexpr char16_t kGuid[] = u"{5E771A6F-0000-4000-8000-0000000B3C17}";
constexpr std::chrono::milliseconds kBetweenWrites{300};  // past the fade and the rate limit
std::string g_self;

std::u16string SettingsKey() { return std::u16string(u"Software\\VEL\\APO\\") + kGuid; }

// The control panel: switches the stored mode every 300 ms and tells when
// each write began.
int RunPanel(const std::string& root) {
  zor::os::SetRegistryRoot(root);
  ZORAPOModeSelector selector;
  if (!selector.Init(SettingsKey(), ZORAPOModeId())) return 3;
  if (!SayReady()) return 0;
  for (int i = 0;; ++i) {
    std::this_thread::sleep_for(kBetweenWrites);
    const int64_t began = MonotonicNs();
    if (!selector.SetMode(ZORAPOModeId(i % 2 ? "APO4-Music" : "APO4-Movie", "APO4-Internal Stereo"))) return 3;
    if (!WriteAll(STDOUT_FILENO, &began, sizeof(began))) return 0;
  }
}

void SettingToFadedBlock(benchmark::State& state) {
  BenchRoot root(BaseFor(0));
  ZORAPOProcessLibrary::SetModulePath(std::filesystem::path(VELTECH_MODULE_PATH).u16string().c_str());
  const std::u16string endpointKey = std::u16string(ZORAPOEndpointInfo::kMMDevicesAudioPath) + u"Render\\" + kGuid;
  zor::os::RegKey key;
  zor::os::RegKey::Create(endpointKey + u"\\Properties", zor::os::kKeyAllAccess, key);
  const std::u16string config = (std::filesystem::path(VELAPO_EXAMPLES_DIR) / "laptop.xml").u16string();
  key.WriteValue(u"{7A8B74C8-FA66-4460-8542-D6119C59E9D4},2", zor::os::RegType::Sz, velapo::test::TextBytes(config));
  velapo::test::FakeDevice device(std::u16string(u"{0.0.0.00000000}.") + kGuid);
  ZORAPOEndpointInfo info;
  info.SetDevice(&device, true);

  ZORAPOProcessManager manager;
  manager.SetEndpointInfo(info, 1);
  manager.Initialize(2, 2, 48000, 0, 1);
  // The stream: one 480-frame block every 10 ms; the first block of each
  // fade notes its time.
  std::atomic<bool> stop{false};
  std::atomic<int64_t> fadeStarted{0};
  std::thread audio([&] {
    std::vector<float> input(960, 0.1f), output(960);
    auto next = std::chrono::steady_clock::now();
    uint32_t previous = ManagerState_Steady;
    while (!stop) {
      uint32_t in = 480, out = 480;
      manager.Process(input.data(), &in, output.data(), &out, false);
      const uint32_t now = manager.GetState();
      if (now == ManagerState_Fading && previous != ManagerState_Fading) fadeStarted = MonotonicNs();
      previous = now;
      next += std::chrono::milliseconds(10);
      std::this_thread::sleep_until(next);
    }
  });

  ReportingChild panel(g_self, "panel", root.Path());
  if (!panel.Ok() || !panel.WaitReady()) state.SkipWithError("no panel");
  std::vector<double> latenciesUs;
  for (auto _ : state) {
    int64_t began = 0;
    if (!panel.WokeAt(began, 2000)) {
      state.SkipWithError("the panel stopped");
      break;
    }
    // The fade starts at the first block after the switch.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (fadeStarted.load() < began && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    if (fadeStarted.load() >= began) latenciesUs.push_back(double(fadeStarted.load() - began) / 1000.0);
  }
  stop = true;
  audio.join();
  state.counters["missed"] = double(state.iterations()) - double(latenciesUs.size());
  ReportLatencies(state, latenciesUs);
}

BENCHMARK(SettingToFadedBlock)->Iterations(40)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  return CrossProcessBenchMain(argc, argv, "panel", RunPanel, g_self,
                               std::filesystem::canonical("/proc/self/exe").string());
}
