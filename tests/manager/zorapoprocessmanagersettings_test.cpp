// The manager's binding and settings reaction against the real stores: the
// endpoint found by the GUID the engine names, the configuration's content
// modes, metering mode and global settings, and the Initialize count.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <thread>

#include "chaintesting.h"
#include "childprocess.h"
#include "platform/clock.h"
#include "system/zorapotunedsettings.h"
#include "manager/zorapoprocessmanager.h"
#include "support/zortestendpoint.h"

namespace {

using namespace velapo::test;

class ManagerSettings : public ChainEndpoint {
 protected:
  // An endpoint the enumerator lists as active, configured by `source`.
  const ZORAPOEndpointInfo& ListedEndpoint(const std::filesystem::path& source) {
    const ZORAPOEndpointInfo& info = MakeEndpoint(source);
    WriteDword(std::u16string(kAudio) + u"Render\\" + info.GetEndpointGuid().Text(), u"DeviceState", 1);
    return info;
  }
};

}  // namespace

// The engine's FX store names the endpoint; a GUID that matches nothing still
// leaves a working, unbound manager, and only an unreadable GUID fails.
TEST_F(ManagerSettings, SetEndpointBindsTheListedEndpointTheStoreNames) {
  const ZORAPOEndpointInfo& listed = ListedEndpoint(ExampleFile("laptop.xml"));
  const std::u16string unknownGuid = FreshEndpointGuid();
  enum class Guid { Listed, Unknown, Number, ReadFails };
  struct Row {
    Guid guid;
    bool result;
    bool bound;
  } const rows[] = {
      {Guid::Listed, true, true},
      {Guid::Unknown, true, false},
      {Guid::Number, false, false},
      {Guid::ReadFails, false, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(static_cast<int>(row.guid));
    auto* store = new ZORTestPropertyStore;
    if (row.guid == Guid::Listed) store->SetText(PKEY_AudioEndpoint_GUID, listed.GetEndpointGuid().Text());
    if (row.guid == Guid::Unknown) store->SetText(PKEY_AudioEndpoint_GUID, unknownGuid);
    if (row.guid == Guid::Number) store->SetNumber(PKEY_AudioEndpoint_GUID, 7);
    if (row.guid == Guid::ReadFails) store->failReads = E_FAIL;
    IPropertyStore* properties = store;
    IMMDevice* device = nullptr;
    {
      ZORAPOProcessManager manager;
      EXPECT_EQ(manager.SetEndpoint(device, properties, 1, 3), row.result);
#ifdef _WIN32
      if (row.guid == Guid::Listed && !manager.IsBound()) GTEST_SKIP() << "Wine lists its own endpoints only";
#endif
      EXPECT_EQ(manager.IsBound(), row.bound);
      if (row.bound) {
        EXPECT_EQ(manager.GetEndpointInfo().GetEndpointGuid(), listed.GetEndpointGuid());
        EXPECT_EQ(store->References(), 2u) << "the manager keeps the store";
      }
      ASSERT_TRUE(manager.Initialize(2, 2, 48000, manager.GetContentIndex(), 1));
      EXPECT_EQ(manager.GetChainPointers().active->IsBuilt(), row.bound);
      std::vector<float> input = Noise(960, 5, 0.25f), output(960);
      uint32_t in = 480, out = 480;
      manager.Process(input.data(), &in, output.data(), &out, false);
      EXPECT_EQ(out, 480u);
      if (!row.bound) {
        EXPECT_EQ(output, input) << "an unbound manager passes audio";
      }
    }
    EXPECT_EQ(store->References(), 1u) << "released with the manager";
    store->Release();
  }
}

namespace {

// The engine's FX property store of the endpoint: the GUID, and the
// system-effects switch read from the endpoint's FxProperties key at every
// call, as the engine's store follows the store.
class StoreFxProperties final : public ZORTestComObject<IPropertyStore> {
 public:
  StoreFxProperties(std::u16string fxPath, std::u16string guid)
      : ZORTestComObject(IID_IPropertyStore), m_fxPath(std::move(fxPath)), m_guid(std::move(guid)) {}
  HRESULT STDMETHODCALLTYPE GetCount(DWORD* count) override { return *count = 2, S_OK; }
  HRESULT STDMETHODCALLTYPE GetAt(DWORD, PROPERTYKEY*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetValue(REFPROPERTYKEY, REFPROPVARIANT) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Commit() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT* value) override {
    PropVariantInit(value);
    if (zor::com::PropertyKeysEqual(key, PKEY_AudioEndpoint_GUID)) {
      value->vt = VT_LPWSTR;
      value->pwszVal = zor::com::CoTaskMemText(m_guid);
    } else if (zor::com::PropertyKeysEqual(key, PKEY_AudioEndpoint_Disable_SysFx)) {
      zor::os::RegKey fx;
      uint32_t number = 0;
      if (zor::os::RegKey::Open(m_fxPath, zor::os::kKeyQueryValue, fx) != zor::os::RegStatus::Ok ||
          fx.ReadDword(zor::com::PropertyKeyText(key), number) != zor::os::RegStatus::Ok) {
        return E_FAIL;
      }
      value->vt = VT_UI4;
      value->ulVal = number;
    }
    return S_OK;
  }

 private:
  std::u16string m_fxPath;
  std::u16string m_guid;
};

// Never moves: no block is stale, and every switch waits out the full rate
// limit.
class FrozenClock : public IZORPerformanceClock {
 public:
  bool QueryCounter(int64_t& counter) override { return (counter = 1), true; }
  bool QueryFrequency(int64_t& frequency) override { return (frequency = 1000), true; }
};

enum class Writes { ProcessEnable, Mode, TunedGain, SysFx };
struct Case {
  Writes writes;
  double db;  // the level after the fade; -3 dB before it
};

class SettingWrittenElsewhere : public ManagerSettings, public testing::WithParamInterface<Case> {};

double Gain(double db) { return std::pow(10.0, db / 20.0); }

std::string CaseName(const testing::TestParamInfo<Case>& param) {
  const char* const names[] = {"ProcessEnable", "Mode", "TunedGain", "SysFx"};
  return names[static_cast<int>(param.param.writes)];
}

}  // namespace

// Another process writes one setting while audio runs; the stream crossfades
// to the new level. Every sample's gain (output over input, where the sine
// is large) stays between the two levels and moves no faster than the fade
// law lets it, so nothing is lost or repeated at the seam.
TEST_P(SettingWrittenElsewhere, CrossfadesToTheNewLevelWithoutASeam) {
  const Case c = GetParam();
#ifdef _WIN32
  if (c.writes == Writes::SysFx) {
    GTEST_SKIP() << "Wine's enumerator reports no changes of the store";
  }
#endif
  const ZORAPOEndpointInfo& info = ListedEndpoint(DataFile("levels.xml"));
  const std::u16string sysFx = zor::com::PropertyKeyText(PKEY_AudioEndpoint_Disable_SysFx);
  WriteDword(info.GetFxPropertiesPath(), sysFx, 0);
  // A tuning tool's block exists before the chains are built, so they watch it.
  const ZORAPOWorkspace loud = Workspace(1, 2, 2, 48000);
  const std::u16string block = ZORAPOTunedSettings::BlockName(info.GetEndpointGuid().Text(), loud.mode.id);
  ZORAPOTunedSettings tool;
  ASSERT_TRUE(tool.OpenNamed(block, loud.mode, false));

  FrozenClock clock;
  zor::os::Event switched(zor::os::EventReset::Auto);
  ZORAPOProcessManager manager;
  manager.SetClock(&clock);
  manager.SetClientEvent(&switched);
  auto* fx = new StoreFxProperties(info.GetFxPropertiesPath(), info.GetEndpointGuid().Text());
  IPropertyStore* properties = fx;
  IMMDevice* device = nullptr;
  ASSERT_TRUE(manager.SetEndpoint(device, properties, 1, 0));
  if (!manager.IsBound()) {  // Wine lists its own endpoints
    ASSERT_TRUE(manager.SetEndpointInfo(info, 1));
  }
  ASSERT_TRUE(manager.Initialize(2, 2, 48000, 0, 1));

  const std::string key = zor::os::Utf16ToUtf8(info.GetSettingsKeyPath());
  const std::vector<std::string> arguments[] = {
      {m_area.Root(), "global", key, "APO4-Process Enable", "0"},
      {m_area.Root(), "mode", key, "APO4-Quiet", "APO4-Any Speaker"},
      {m_area.Root(), "tune", zor::os::Utf16ToUtf8(block), "APO4-Loud", "APO4-Any Speaker", "2", "G:Gain-Level",
       "-1200"},
      {m_area.Root(), "dword", zor::os::Utf16ToUtf8(info.GetFxPropertiesPath()), zor::os::Utf16ToUtf8(sysFx), "1"},
  };
  std::vector<float> input, output;
  auto play = [&] {
    const std::vector<float> x = Sine(480, 2, 997.0, 48000.0, input.size() / 2);
    std::vector<float> y(960);
    uint32_t in = 480, out = 480;
    manager.Process(x.data(), &in, y.data(), &out, false);
    ASSERT_EQ(out, 480u);
    input.insert(input.end(), x.begin(), x.end());
    output.insert(output.end(), y.begin(), y.end());
  };
  for (int i = 0; i < 10; ++i) play();
  ChildProcess panel;
  ASSERT_TRUE(panel.Start(HelperBesideTest("velapo_chain_settings_helper"),
                          arguments[static_cast<int>(c.writes)]));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kMustNotTimeOutMs);
  while (!switched.Wait(0)) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "no switch";
    play();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  ASSERT_EQ(panel.Wait(kMustNotTimeOutMs), 0);
  for (int i = 0; i < 40; ++i) play();

  const double from = Gain(-3.0), to = Gain(c.db);
  const double lawStep = 0.0046 * std::abs(to - from);  // the fade's steepest step per frame, 120 dB over 3072
  double last = 0.0;
  size_t lastFrame = 0;
  for (size_t frame = 0; frame < input.size() / 2; ++frame) {
    if (std::abs(input[2 * frame]) < 0.2f) continue;
    const double g = output[2 * frame] / input[2 * frame];
    if (frame >= 5 * 480 && frame < 10 * 480) {
      ASSERT_NEAR(g, from, 1e-3) << frame;
    }
    if (frame >= input.size() / 2 - 10 * 480) {
      ASSERT_NEAR(g, to, 1e-3) << frame;
    }
    ASSERT_GE(g, std::min(from, to) - 1e-3) << frame;
    ASSERT_LE(g, std::max(from, to) + 1e-3) << frame;
    if (frame >= 5 * 480) {
      ASSERT_LE(std::abs(g - last), lawStep * double(frame - lastFrame) + 1e-4) << frame;
    }
    last = g;
    lastFrame = frame;
  }
  fx->Release();
}

INSTANTIATE_TEST_SUITE_P(Manager, SettingWrittenElsewhere,
                         testing::Values(Case{Writes::ProcessEnable, 0.0}, Case{Writes::Mode, -9.0},
                                         Case{Writes::TunedGain, -12.0}, Case{Writes::SysFx, 0.0}),
                         CaseName);
