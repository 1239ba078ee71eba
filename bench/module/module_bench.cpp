// From creation to the first processed buffer, per class: what a stream
// start costs a host (create, Initialize, formats, LockForProcess, which
// builds the chains, and one APOProcess), on an endpoint bound to a
// configuration with a chain at every location.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "apo/zoraporegproperties.h"
#include "engine/zorengineemulator.h"
#include "platform/com.h"
#include "platform/registry.h"
#include "platform/text.h"
#include "system/zorapoendpointinfo.h"

namespace {

constexpr char16_t kEndpoint[] = u"{7E570002-1234-5678-9ABC-00000000BE0C}";

// A private store with one active render endpoint naming the configuration.
class Store {
 public:
  Store() {
    std::string pattern = (std::filesystem::temp_directory_path() / "velapo-module-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    m_root = pattern;
    zor::os::SetRegistryRoot(m_root);
    const std::u16string key = std::u16string(ZORAPOEndpointInfo::kMMDevicesAudioPath) + u"Render\\" + kEndpoint;
    zor::os::RegKey endpoint;
    zor::os::RegKey properties;
    zor::os::RegKey settings;
    const std::u16string config = zor::os::Utf8ToUtf16(VELAPO_FLOW_CONFIG);
    std::vector<uint8_t> text;
    for (const char16_t unit : config) text.insert(text.end(), {uint8_t(unit), uint8_t(unit >> 8)});
    text.insert(text.end(), {0, 0});
    if (zor::os::RegKey::Create(key, zor::os::kKeyAllAccess, endpoint) != zor::os::RegStatus::Ok ||
        endpoint.WriteDword(u"DeviceState", DEVICE_STATE_ACTIVE) != zor::os::RegStatus::Ok ||
        endpoint.CreateSubKey(u"Properties", zor::os::kKeyAllAccess, properties) != zor::os::RegStatus::Ok ||
        properties.WriteValue(u"{7A8B74C8-FA66-4460-8542-D6119C59E9D4},2", zor::os::RegType::Sz, text) !=
            zor::os::RegStatus::Ok ||
        zor::os::RegKey::Create(std::u16string(ZORAPOEndpointInfo::kDefaultSettingsRoot) + u"\\" + kEndpoint,
                                zor::os::kKeyAllAccess, settings) != zor::os::RegStatus::Ok) {
      std::abort();
    }
  }
  ~Store() {
    std::error_code ignored;
    std::filesystem::remove_all(m_root, ignored);
  }

 private:
  std::string m_root;
};

void BM_CreationToFirstBuffer(benchmark::State& state) {
  static Store store;
  const ZORAPOClassInfo& info = ZORAPOClasses()[static_cast<size_t>(state.range(0))];
  const bool capture = info.location == kZORLocationCapture;
  ZOREngineEmulator::Stream stream;
  stream.endpointGuid = kEndpoint;
  stream.newerBlock = !capture;
  stream.inputChannels = stream.outputChannels = capture ? 1 : 2;
  stream.rate = capture ? 16000.0f : 48000.0f;
  stream.maxFrames = capture ? 160 : 480;
  const std::vector<float> block(size_t{stream.maxFrames} * stream.inputChannels, 0.25f);
  state.SetLabel(info.logName);
  for (auto _ : state) {
    ZOREngineEmulator engine(stream);
    if (engine.Create(info.regProperties->clsid) != S_OK || engine.Initialize() != S_OK ||
        engine.NegotiateFormats() != S_OK || engine.Lock() != S_OK) {
      state.SkipWithError("the life cycle failed");
      break;
    }
    benchmark::DoNotOptimize(engine.Process(block, BUFFER_VALID));
    state.PauseTiming();
    engine.Unlock();
    engine.Release();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_CreationToFirstBuffer)->DenseRange(0, 6)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
