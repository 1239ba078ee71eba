// The monitors' figures, on a private store and an ALSA configuration of the
// bench's own (a file plugin over the null device, as in the tests):
//   DeviceChangeToCallback  a DeviceState write to the callback: median and
//                           99th percentile (counters, microseconds)
//   ReaderThreadCpu         CPU seconds per second of a running peak and
//                           capture monitor, the main thread asleep
//   CaptureFramesLost       frames missing from a ramp the capture monitor
//                           reads for --benchmark_min_time (run 60 s)
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>
#include <vector>

#include "monitor/zorvistaaudiodevicemonitor.h"
#include "monitor/zorvistapeakinputmonitor.h"
#include "monitor/zorvistawasapiinputmonitor.h"
#include "platform/registry.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::u16string_view kCapture = u"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\Capture";
constexpr const char16_t* kGuid = u"{B0B0B0B0-0000-4000-8000-00000000BE4C}";
constexpr uint32_t kRate = 48000;
constexpr uint32_t kRampFrames = 1u << 22;  // 87 s, exact in a float

std::vector<uint8_t> Text(std::u16string_view text) {
  std::vector<uint8_t> bytes;
  for (const char16_t c : text) {
    bytes.push_back(static_cast<uint8_t>(c));
    bytes.push_back(static_cast<uint8_t>(c >> 8));
  }
  bytes.insert(bytes.end(), {0, 0});
  return bytes;
}

// A store root and ALSA files of the process's own, and one capture endpoint
// reading a ramp that counts its frames.
struct Setting {
  Setting() {
    dir = std::filesystem::temp_directory_path() / ("velapo-monitor-bench-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir / "store");
    zor::os::SetRegistryRoot((dir / "store").string());
    std::vector<float> ramp(2 * static_cast<size_t>(kRampFrames));
    for (size_t i = 0; i < ramp.size(); ++i) ramp[i] = static_cast<float>(i / 2);
    std::ofstream(dir / "ramp.raw", std::ios::binary)
        .write(reinterpret_cast<const char*>(ramp.data()), static_cast<std::streamsize>(ramp.size() * 4));
    std::ofstream(dir / "asound.conf") << "pcm.bench_ramp {\n type file\n slave.pcm { type null }\n file "
                                          "\"/dev/null\"\n infile \""
                                       << (dir / "ramp.raw").string() << "\"\n format \"raw\"\n}\n";
    ::setenv("ALSA_CONFIG_PATH", (dir / "asound.conf").c_str(), 1);
    zor::os::RegKey key;
    zor::os::RegKey::Create(std::u16string(kCapture) + u"\\" + kGuid, zor::os::kKeyAllAccess, key);
    key.WriteDword(u"DeviceState", DEVICE_STATE_ACTIVE);
    zor::os::RegKey properties;
    key.CreateSubKey(u"Properties", zor::os::kKeyAllAccess, properties);
    properties.WriteValue(u"{7a8b74c8-fa66-4460-8542-d6119c59e9d4},16", zor::os::RegType::Sz, Text(u"bench_ramp"));
    properties.WriteValue(u"{a45c254e-df1c-4efd-8020-67d146a850e0},14", zor::os::RegType::Sz, Text(u"Bench Ramp"));
  }
  ~Setting() { std::filesystem::remove_all(dir); }
  std::filesystem::path dir;
};

Setting& TheSetting() {
  static Setting setting;
  return setting;
}

struct Arrivals {
  std::mutex mutex;
  std::condition_variable arrived;
  uint32_t lastCode = 99;
  Clock::time_point at;
  static void Callback(LPCWSTR, uint32_t code, void* context) {
    auto* self = static_cast<Arrivals*>(context);
    const std::lock_guard<std::mutex> lock(self->mutex);
    self->lastCode = code;
    self->at = Clock::now();
    self->arrived.notify_all();
  }
};

void DeviceChangeToCallback(benchmark::State& state) {
  TheSetting();
  Arrivals arrivals;
  ZORVistaAudioDeviceMonitor monitor;
  monitor.SetDeviceCallback(&Arrivals::Callback, &arrivals);
  zor::os::RegKey key;
  zor::os::RegKey::Open(std::u16string(kCapture) + u"\\" + kGuid, zor::os::kKeySetValue, key);
  std::vector<double> micros;
  bool disabled = false;
  for (auto _ : state) {
    disabled = !disabled;
    const uint32_t expected = disabled ? ZORVistaAudioDeviceMonitor::kDisabled : ZORVistaAudioDeviceMonitor::kActive;
    std::unique_lock<std::mutex> lock(arrivals.mutex);
    const Clock::time_point written = Clock::now();
    key.WriteDword(u"DeviceState", disabled ? DEVICE_STATE_DISABLED : DEVICE_STATE_ACTIVE);
    arrivals.arrived.wait_for(lock, std::chrono::seconds(5), [&] { return arrivals.lastCode == expected; });
    micros.push_back(std::chrono::duration<double, std::micro>(arrivals.at - written).count());
  }
  key.WriteDword(u"DeviceState", DEVICE_STATE_ACTIVE);
  std::sort(micros.begin(), micros.end());
  state.counters["median_us"] = micros[micros.size() / 2];
  state.counters["p99_us"] = micros[std::min(micros.size() - 1, micros.size() * 99 / 100)];
}
BENCHMARK(DeviceChangeToCallback)->Iterations(200)->UseRealTime();

double ProcessCpuSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Counts the ramp's frames and those missing from it.
class RampListener : public IZORAudioInputListener {
 public:
  void OnFormat(MonitorFormat*) override {}
  void OnReserved() override {}
  void OnData(const void* samples, uint32_t* frames) override {
    const auto* floats = static_cast<const float*>(samples);
    for (uint32_t i = 0; i < *frames; ++i) {
      const auto frame = static_cast<uint64_t>(floats[2 * i]);
      if (frame != next) lost += frame > next ? frame - next : 1;
      next = frame + 1;
    }
    received += *frames;
  }
  uint64_t next = 0;
  std::atomic<uint64_t> received{0};
  std::atomic<uint64_t> lost{0};
};

class NullListener : public IZORAudioInputListener {
 public:
  void OnFormat(MonitorFormat*) override {}
  void OnReserved() override {}
  void OnData(const void*, uint32_t*) override {}
};

void ReaderThreadCpu(benchmark::State& state) {
  TheSetting();
  const bool capture = state.range(0) == 1;
  ZORVistaPeakInputMonitor peak;
  ZORVistaWASAPIInputMonitor wasapi;
  IZORAudioInputMonitor& monitor = capture ? static_cast<IZORAudioInputMonitor&>(wasapi) : peak;
  NullListener listener;
  MonitorFormat format{};
  monitor.Open(u"Bench Ramp", &listener, &format);
  monitor.Start();
  double cpu = 0;
  double wall = 0;
  for (auto _ : state) {
    const double before = ProcessCpuSeconds();
    const Clock::time_point start = Clock::now();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    cpu += ProcessCpuSeconds() - before;
    wall += std::chrono::duration<double>(Clock::now() - start).count();
  }
  monitor.Close();
  state.counters["cpu_per_s"] = cpu / wall;
}
BENCHMARK(ReaderThreadCpu)->Arg(0)->Arg(1)->Iterations(5)->UseRealTime()->Unit(benchmark::kMillisecond);

void CaptureFramesLost(benchmark::State& state) {
  TheSetting();
  ZORVistaWASAPIInputMonitor monitor;
  RampListener listener;
  MonitorFormat format{};
  monitor.Open(u"Bench Ramp", &listener, &format);
  monitor.Start();
  for (auto _ : state) std::this_thread::sleep_for(std::chrono::seconds(1));
  monitor.Close();
  state.counters["frames"] = static_cast<double>(listener.received);
  state.counters["lost"] = static_cast<double>(listener.lost);
}
BENCHMARK(CaptureFramesLost)->Iterations(60)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
