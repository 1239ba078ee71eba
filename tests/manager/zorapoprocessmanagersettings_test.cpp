// The manager's binding and settings reaction through the real stores, with
// real audio: levels.xml gives every outcome a level of its own (the
// default mode -3 dB, "Quiet" -9 dB, bypass 0 dB).
#include <array>
#include <atomic>
#include <chrono>
#include <numeric>
#include <thread>

#include "allocationcounter.h"
#include "chaintesting.h"
#include "childprocess.h"
#include "manager/zorapoprocessmanager.h"
#include "engine/zortestendpoint.h"
#include "system/zoraposharedmeter.h"
#include "system/zorapotunedsettings.h"

namespace {

using namespace velapo::test;
using Clock = std::chrono::steady_clock;

#ifdef _WIN32
constexpr bool kStoreEndpoints = false;  // Wine's enumerator lists Wine's endpoints
#else
constexpr bool kStoreEndpoints = true;   // the enumerator lists the store's endpoints
#endif

double Gain(double db) { return std::pow(10.0, db / 20.0); }

// The engine's FX property store: endpoint GUID and system-effects switch.
class FxStore final : public ZORTestComObject<IPropertyStore> {
 public:
  FxStore(std::u16string guid, std::u16string fxKey, uint32_t sysFx = 0)
      : ZORTestComObject(IID_IPropertyStore), m_guid(std::move(guid)), m_fxKey(std::move(fxKey)), m_sysFx(sysFx) {}
  HRESULT STDMETHODCALLTYPE GetCount(DWORD* count) override { return *count = 2, S_OK; }
  HRESULT STDMETHODCALLTYPE GetAt(DWORD, PROPERTYKEY*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetValue(REFPROPERTYKEY, REFPROPVARIANT) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Commit() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT* value) override {
    PropVariantInit(value);
    value->vt = VT_UI4;
    value->ulVal = m_sysFx;
    zor::os::RegKey fx;
    if (zor::com::PropertyKeysEqual(key, PKEY_AudioEndpoint_GUID) && !m_guid.empty()) {
      value->vt = VT_LPWSTR;
      value->pwszVal = zor::com::CoTaskMemText(m_guid);
    } else if (!m_fxKey.empty() && zor::os::RegKey::Open(m_fxKey, zor::os::kKeyQueryValue, fx) == zor::os::RegStatus::Ok) {
      fx.ReadDword(zor::com::PropertyKeyText(key), m_sysFx);
      value->ulVal = m_sysFx;
    }
    return S_OK;
  }

 private:
  std::u16string m_guid, m_fxKey;
  uint32_t m_sysFx;
};

// A 997 Hz sine through the manager, block by block, kept for inspection.
struct Stream {
  explicit Stream(ZORAPOProcessManager& m, uint32_t c = 2) : manager(m), channels(c) {}
  ZORAPOProcessManager& manager;
  uint32_t channels;
  std::vector<float> input, output;
  void Play(int blocks = 1) {
    while (blocks-- > 0) {
      const std::vector<float> x = Sine(480, channels, 997.0, 48000.0, input.size() / channels);
      std::vector<float> y(x.size());
      uint32_t in = 480, out = 480;
      manager.Process(x.data(), &in, y.data(), &out, false);
      input.insert(input.end(), x.begin(), x.end());
      output.insert(output.end(), y.begin(), y.end());
    }
  }
  // Of the last block.
  double LevelDb() const {
    const size_t n = 480 * channels, start = input.size() - n;
    return 10.0 * std::log10(std::inner_product(output.begin() + start, output.end(), output.begin() + start, 0.0) /
                             std::inner_product(input.begin() + start, input.end(), input.begin() + start, 0.0));
  }
};

class ManagerSettings : public ChainEndpoint {
 protected:
  // An endpoint the enumerator lists as active, with a name of its own, which names its meters.
  const ZORAPOEndpointInfo& ListedEndpoint(bool render = true) {
    auto& info = const_cast<ZORAPOEndpointInfo&>(MakeEndpoint(DataFile("levels.xml"), render));
    const std::u16string key =
        std::u16string(kAudio) + (render ? u"Render\\" : u"Capture\\") + info.GetEndpointGuid().Text();
    WriteDword(key, u"DeviceState", 1);
    WriteText(key + u"\\Properties", u"{b3f8fa53-0004-438e-9003-51a46e139bfc},6", info.GetEndpointGuid().Text());
    EXPECT_TRUE(info.Refresh());
    return info;
  }
  // SetEndpoint as the engine calls it. Wine lists its own endpoints only,
  // so there the endpoint is bound directly and no FX store is held.
  static bool Bind(ZORAPOProcessManager& manager, IPropertyStore* fx, const ZORAPOEndpointInfo& info,
                   uint32_t content = 0) {
    IMMDevice* device = nullptr;
    const bool bound = manager.SetEndpoint(device, fx, 1, content);
    return kStoreEndpoints || !bound || manager.IsBound() ? bound : manager.SetEndpointInfo(info, 1);
  }
  static void StoreSettings(const ZORAPOEndpointInfo& info, const ZORUTSValueList& globals, const char* mode) {
    ZORAPOGlobalSettings global;
    ZORAPOModeSelector selector;
    ASSERT_TRUE(global.InitGlobal(info.GetSettingsKeyPath(), nullptr) && global.WriteAll(globals));
    ASSERT_TRUE(selector.Init(info.GetSettingsKeyPath(), ZORAPOModeId()));
    ASSERT_TRUE(mode == nullptr || selector.SetMode(ZORAPOModeId(mode, "APO4-Any Speaker")));
  }
};

}  // namespace

// The first chain for each mix of endpoint, stored settings, content, news and override.
TEST_F(ManagerSettings, ModeAndBypassFollowTheSettingsByTheirRank) {
  enum Guid { Listed, Unknown, Unreadable };
  struct Row {
    Guid guid;
    int autoContent;     // stored "APO4-Auto Content Mode Enable", -1 none
    uint32_t content;    // the stream's content index
    const char* stored;  // the stored mode
    int enable;          // stored "APO4-Process Enable", -1 none
    const char* heard;   // a public setting the listener hears with 0
    int32_t bypassOverride;
    uint32_t sysFx;      // the switch in the FX store, told by code `event`
    int32_t event;
    double db;
  } const rows[] = {
      {Listed, -1, 0, nullptr, -1, nullptr, 0, 0, -1, -3},
      {Unknown, -1, 0, nullptr, -1, nullptr, 0, 0, -1, 0},           // unbound: audio passes
      {Unreadable, -1, 0, nullptr, -1, nullptr, 0, 0, -1, 0},
      {Listed, -1, 0, "APO4-Quiet", -1, nullptr, 0, 0, -1, -9},
      {Listed, -1, 0, "APO4-Unknown", -1, nullptr, 0, 0, -1, -3},    // falls back to the default
      {Listed, 1, 2, "APO4-Loud", -1, nullptr, 0, 0, -1, -9},        // movies get "Quiet"
      {Listed, 1, 2, nullptr, -1, nullptr, 0, 0, -1, -3},            // no stored mode to adapt
      {Listed, 0, 2, "APO4-Loud", -1, nullptr, 0, 0, -1, -3},        // automatic content off
      {Listed, 1, 5, "APO4-Quiet", -1, nullptr, 0, 0, -1, -9},       // "APO4-NotFound": the stored mode
      {Listed, 1, 4, "APO4-Quiet", -1, nullptr, 0, 0, -1, -3},       // a preset the file lacks: default
      {Listed, -1, 0, nullptr, 0, nullptr, 0, 0, -1, 0},             // processing off
      {Listed, -1, 0, nullptr, 0, nullptr, 2, 0, -1, -3},            // forced on
      {Listed, -1, 0, nullptr, 1, nullptr, 1, 0, -1, 0},             // forced off
      {Listed, -1, 0, nullptr, -1, "APO4-Process Enable", 0, 0, -1, 0},
      {Listed, -1, 0, nullptr, -1, "apo4-process enable", 0, 0, -1, -3},  // names match exactly
      {Listed, -1, 0, nullptr, -1, "APO4-Process Enable ", 0, 0, -1, -3},
      {Listed, -1, 0, nullptr, 1, nullptr, 2, 1, 3, 0},              // the switch beats the override
      {Listed, -1, 0, nullptr, 1, nullptr, 0, 0x10001, 3, 0},        // only the low 16 bits count
      {Listed, -1, 0, nullptr, 1, nullptr, 0, 0x10000, 3, -3},
      {Listed, -1, 0, nullptr, 1, nullptr, 0, 1, 0, -3},             // other events are ignored
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << "row " << (&row - rows));
    if (!kStoreEndpoints && (row.event >= 0 || row.guid == Unknown)) continue;  // no FX store, every GUID bound
    const ZORAPOEndpointInfo& info = ListedEndpoint();
    ZORUTSValueList globals;
    if (row.autoContent >= 0) globals.Insert(ZORUTSValue(ZORAPOProcessManager::kAutoContentModeKey, row.autoContent));
    if (row.enable >= 0) globals.Insert(ZORUTSValue(ZORAPOProcessManager::kProcessEnableKey, row.enable));
    StoreSettings(info, globals, row.stored);
    const std::u16string guid = row.guid == Listed ? info.GetEndpointGuid().Text() : FreshEndpointGuid();
    auto* fx = new FxStore(row.guid == Unreadable ? u"" : guid, u"", row.sysFx);
    {
      ZORAPOProcessManager manager;
      ASSERT_EQ(Bind(manager, fx, info, row.content), row.guid != Unreadable);
      EXPECT_EQ(fx->References(), row.guid == Listed && kStoreEndpoints ? 2u : 1u) << "a bound manager keeps it";
      manager.SetBypassOverride(row.bypassOverride);
      if (row.event >= 0) manager.OnEndpointEvent(row.event);
      ZORAPOGlobalSettings notifier;
      if (row.heard) manager.OnPublicSettingChanged(notifier, ZORUTSValue(row.heard, 0));
      ASSERT_TRUE(manager.Initialize(2, 2, 48000, row.content, 1));
      Stream stream(manager);
      stream.Play(8);
      EXPECT_NEAR(stream.LevelDb(), row.db, 0.01);
    }
    EXPECT_EQ(fx->Release(), 0u) << "released with the manager";
  }
}

enum class Writes { ProcessEnable, Mode, TunedGain, SysFx };
std::string WritesName(const testing::TestParamInfo<Writes>& param) {
  return std::array{"ProcessEnable", "Mode", "TunedGain", "SysFx"}[int(param.param)];
}
class SettingWrittenElsewhere : public ManagerSettings, public testing::WithParamInterface<Writes> {};

// A setting written by another process crossfades the level: every sample's gain
// stays between the levels and within the fade law, nothing lost or repeated.
TEST_P(SettingWrittenElsewhere, CrossfadesToTheNewLevelWithoutASeam) {
  const Writes writes = GetParam();
  const double db = std::array{0.0, -9.0, -12.0, 0.0}[int(writes)];  // after the fade; -3 dB before it
#ifdef _WIN32
  if (writes == Writes::SysFx) {
    GTEST_SKIP() << "Wine's enumerator reports no changes of the store";
  }
#endif
  const ZORAPOEndpointInfo& info = ListedEndpoint();
  const std::u16string sysFx = zor::com::PropertyKeyText(PKEY_AudioEndpoint_Disable_SysFx);
  WriteDword(info.GetFxPropertiesPath(), sysFx, 0);
  // A tuning tool's block exists before the chains are built, so they watch it.
  const ZORAPOWorkspace loud = Workspace(1, 2, 2, 48000);
  const std::u16string block = ZORAPOTunedSettings::BlockName(info.GetEndpointGuid().Text(), loud.mode.id);
  ZORAPOTunedSettings tool;
  ASSERT_TRUE(tool.OpenNamed(block, loud.mode, false));

  ManualClock clock;  // untold, no block is stale and every switch waits out the rate limit
  ZORAPOProcessManager manager;
  manager.SetClock(&clock);
  auto* fx = new FxStore(info.GetEndpointGuid().Text(), info.GetFxPropertiesPath());
  ASSERT_TRUE(Bind(manager, fx, info));
  ASSERT_TRUE(manager.Initialize(2, 2, 48000, 0, 1));

  const std::string key = zor::os::Utf16ToUtf8(info.GetSettingsKeyPath());
  const std::vector<std::string> arguments[] = {
      {m_area.Root(), "global", key, "APO4-Process Enable", "0"},
      {m_area.Root(), "mode", key, "APO4-Quiet", "APO4-Any Speaker"},
      {m_area.Root(), "tune", zor::os::Utf16ToUtf8(block), "APO4-Loud", "APO4-Any Speaker", "2", "G:Gain-Level",
       "-1200"},
      {m_area.Root(), "dword", zor::os::Utf16ToUtf8(info.GetFxPropertiesPath()), zor::os::Utf16ToUtf8(sysFx), "1"},
  };
  Stream stream(manager);
  stream.Play(10);
  ChildProcess panel;
  ASSERT_TRUE(panel.Start(HelperBesideTest("velapo_chain_settings_helper"), arguments[int(writes)]));
  // Other fades may come first (a watcher may report the writes made while binding late): wait for the level.
  for (const auto deadline = Clock::now() + std::chrono::milliseconds(kMustNotTimeOutMs);
       std::abs(stream.LevelDb() - db) > 0.01;) {
    ASSERT_LT(Clock::now(), deadline) << "the stream never reached the new level";
    stream.Play();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  ASSERT_EQ(panel.Wait(kMustNotTimeOutMs), 0);
  stream.Play(40);

  const double from = Gain(-3.0), to = Gain(db);
  const double lawStep = 0.0046 * std::abs(to - from);  // the fade's steepest step per frame: 120 dB over 3072
  const size_t frames = stream.input.size() / 2;
  double last = 0.0;
  for (size_t frame = 0, lastFrame = 0; frame < frames; ++frame) {
    if (std::abs(stream.input[2 * frame]) < 0.2f) continue;
    const double g = stream.output[2 * frame] / stream.input[2 * frame];
    const double expected = frame < 10 * 480 ? from : frame >= frames - 10 * 480 ? to : g;
    ASSERT_NEAR(g, expected, frame < 5 * 480 ? 1.0 : 1e-3) << frame;
    ASSERT_GE(g, std::min(from, to) - 1e-3) << frame;
    ASSERT_LE(g, std::max(from, to) + 1e-3) << frame;
    ASSERT_LE(std::abs(g - last), frame < 5 * 480 ? 1.0 : lawStep * double(frame - lastFrame) + 1e-4) << frame;
    last = g;
    lastFrame = frame;
  }
  fx->Release();
}

INSTANTIATE_TEST_SUITE_P(Manager, SettingWrittenElsewhere,
                         testing::Values(Writes::ProcessEnable, Writes::Mode, Writes::TunedGain, Writes::SysFx),
                         WritesName);

// A storm of switch, mode and override writes ends in whole fades and the last write (TSan).
TEST_F(ManagerSettings, SettingsStormEndsInWholeFadesAndTheLastWrite) {
  const ZORAPOEndpointInfo& info = ListedEndpoint();
  ZORAPOProcessManager manager;
  ASSERT_TRUE(manager.SetEndpointInfo(info, 1));
  ASSERT_TRUE(manager.Initialize(2, 2, 48000, 0, 1));
  std::atomic<bool> stop{false}, fadeCutShort{false};
  std::atomic<double> levelDb{0.0};
  std::thread audio([&] {
    Stream stream(manager);
    for (float previous = 1.0f; !stop; stream.input.clear(), stream.output.clear()) {
      stream.Play();
      const float position = manager.GetCrossfade().GetPosition();
      fadeCutShort = fadeCutShort || (position < previous && previous < 1.0f);
      previous = position;
      levelDb = stream.LevelDb();
      std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
  });
  const auto start = Clock::now();
  auto write = [&](int enable, const char* mode, int32_t bypassOverride) {
    ZORUTSValueList globals;
    globals.Insert(ZORUTSValue(ZORAPOProcessManager::kProcessEnableKey, enable));
    StoreSettings(info, globals, mode);
    manager.SetBypassOverride(bypassOverride);
  };
  for (int i = 0, end = 0; end == 0; ++i) {
    write(i % 2, i % 3 ? "APO4-Quiet" : "APO4-Loud", i % 5 == 0 ? 1 : i % 7 == 0 ? 2 : 0);
    end = Clock::now() > start + std::chrono::seconds(3);
  }
  write(1, "APO4-Quiet", 0);  // the last word: processing on, -9 dB
  for (const auto deadline = Clock::now() + std::chrono::milliseconds(kMustNotTimeOutMs);
       std::abs(levelDb - -9.0) > 0.01 && Clock::now() < deadline;) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  stop = true;
  audio.join();
  EXPECT_NEAR(levelDb, -9.0, 0.01) << "the stream follows the last write";
  EXPECT_FALSE(fadeCutShort);
}

// Meters see both sides while muted, a capture endpoint meters nothing, a pipe tap
// hears silence, and Initialize counts in the endpoint's key.
TEST_F(ManagerSettings, MetersShowBothSidesWhileMutedAndInitializeCounts) {
  for (const uint32_t channels : {2u, 8u}) {  // 8: no chain in the file, bypassed at 0 dB
    SCOPED_TRACE(channels);
    const ZORAPOEndpointInfo& info = ListedEndpoint();
    WriteText(info.GetSettingsKeyPath(), ZORAPOProcessManager::kInitCountValue, u"many");
    ZORAPOProcessManager manager;
    ASSERT_TRUE(manager.SetEndpointInfo(info, 1));
    ASSERT_EQ(manager.GetMeteringMode(), 3u) << "APO4-Both";
    ASSERT_TRUE(manager.Initialize(channels, channels, 48000, 0, 1));
    ASSERT_TRUE(manager.Initialize(channels, channels, 48000, 0, 1));
    manager.SetMute(true);
    ZORAPOSharedMeter monitors[2];
    std::vector<float> levels[2];
    Stream stream(manager, channels);
    for (uint32_t index : {0u, 1u}) ASSERT_TRUE(monitors[index].OpenCreate(info, index));
    stream.Play(8);
    for (uint32_t index : {0u, 1u}) ASSERT_TRUE(monitors[index].ReadWrite(levels[index], true));
    EXPECT_EQ(stream.output, std::vector<float>(stream.output.size(), 0.0f)) << "muted";
    for (uint32_t c = 0; c < ZORAPOSharedMeter::kChannelCount; ++c) {
      float peak = 0;
      for (size_t i = c; c < channels && c != 7 && i < stream.input.size(); i += channels) {
        peak = std::max(peak, std::abs(stream.input[i]));
      }
      EXPECT_FLOAT_EQ(levels[0][c], peak) << "input " << c;
      EXPECT_NEAR(levels[1][c], peak * (channels == 2 ? Gain(-3.0) : 1.0), 1e-4) << "output " << c;
    }
    ZORAudioDataFloat tap = Wrap(stream.input, channels);
    manager.OnPipeData(true, tap);
    EXPECT_EQ(Interleaved(tap), std::vector<float>(stream.input.size(), 0.0f));
    zor::os::RegKey key;
    uint32_t count = 0;
    ASSERT_EQ(zor::os::RegKey::Open(info.GetSettingsKeyPath(), zor::os::kKeyQueryValue, key), zor::os::RegStatus::Ok);
    EXPECT_EQ(key.ReadDword(ZORAPOProcessManager::kInitCountValue, count), zor::os::RegStatus::Ok);
    EXPECT_EQ(count, 2u);
  }
  ZORAPOProcessManager capture;
  ASSERT_TRUE(capture.SetEndpointInfo(ListedEndpoint(false), 1));
  EXPECT_EQ(capture.GetMeteringMode(), 0u);
}

// No allocation on the audio thread from the first block, meters on: steady state,
// first fades, a worker-built chain, a flush; unconfigured, laptop, resampled.
TEST_F(ManagerSettings, AudioThreadAllocatesNothingFromTheFirstBlock) {
  struct Case {
    const char* file;
    uint32_t location, in, out, rate;
  } const cases[] = {{nullptr, 1, 2, 2, 48000},      {nullptr, 1, 6, 2, 48000},      {"laptop.xml", 1, 2, 2, 48000},
                     {"laptop.xml", 2, 2, 2, 44100}, {"laptop.xml", 1, 6, 2, 48000}, {"laptop.xml", 1, 2, 2, 22050}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << (c.file ? c.file : "unconfigured") << " at " << c.location << ", "
                                    << c.in << " to " << c.out << " at " << c.rate);
    ManualClock clock;
    ZORAPOProcessManager manager;
    manager.SetClock(&clock);
    const ZORAPOEndpointInfo* info = c.file ? &MakeEndpoint(ExampleFile(c.file)) : nullptr;
    if (info) {
      ASSERT_TRUE(manager.SetEndpointInfo(*info, c.location));
    }
    ASSERT_TRUE(manager.Initialize(c.in, c.out, c.rate, 0, c.location));
    manager.SetMeteringMode(ZORAPOProcessManager::kMeterInput | ZORAPOProcessManager::kMeterOutput);
    const uint32_t frames = c.rate / 100;
    const std::vector<float> input = Noise(size_t{2 * frames} * c.in, 7);
    std::vector<float> output(size_t{2 * frames} * c.out);
    uint32_t blockFrames = frames;
    uint64_t allocations = 0;
    auto play = [&] {
      uint32_t in = blockFrames, out = blockFrames;
      AllocationCounter counter;
      manager.Process(input.data(), &in, output.data(), &out, false);
      allocations += counter.Count();
    };
    // Plays until the manager is in `state`; the worker's builds take a while.
    auto playUntil = [&](uint32_t state) {
      for (const auto deadline = Clock::now() + std::chrono::milliseconds(kMustNotTimeOutMs);
           manager.GetState() != state;) {
        ASSERT_LT(Clock::now(), deadline);
        play();
        if (state == ManagerState_Fading) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    };
    for (int i = 0; i < 20; ++i) play();
    ASSERT_TRUE(manager.SwitchState(ManagerState_Fading));
    playUntil(ManagerState_Steady);
    // Another mode, so the worker builds a chain anew.
    ZORAPOModeSelector selector;
    if (info) {
      ASSERT_TRUE(selector.Init(info->GetSettingsKeyPath(), ZORAPOModeId()));
      ASSERT_TRUE(selector.SetMode(ZORAPOModeId("APO4-Movie", "APO4-Internal Stereo")));
    } else {
      manager.RequestUpdate();
    }
    playUntil(ManagerState_Fading);
    playUntil(ManagerState_Steady);
    clock.Advance(400);
    play();  // stale: flushes
    for (int i = 0; i < 20; ++i) play();
    EXPECT_EQ(allocations, 0u);
    // A longer block allocates once, in itself; the worker sizes the fade blocks and the next chain for it.
    blockFrames = 2 * frames;
    play();
    allocations = 0;
    manager.RequestUpdate();
    playUntil(ManagerState_Fading);
    playUntil(ManagerState_Steady);
    EXPECT_EQ(allocations, 0u) << "after a longer block";
  }
}
