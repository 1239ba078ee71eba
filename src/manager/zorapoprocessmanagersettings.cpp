// ZORAPOProcessManager, part two of three: everything off the audio thread
// that decides what the chains are. Binding to an endpoint, the listeners
// (which only store atomics and signal the update event), UpdateWorkspace's
// choice of mode and bypass, the worker that turns a change into a fade, the
// latency and the Initialize count in the store. The audio path is in
// zorapoprocessmanager.cpp, the meters in zorapoprocessmanagermetering.cpp.
#include <cstring>
#include <string_view>

#include "audio/zorapoworkspace.h"
#include "config/zorapopublicsettingsreader.h"
#include "core/zorlog.h"
#include "core/zorscopedlock.h"
#include "manager/zorapolatencycalculator.h"
#include "manager/zorapoprocessmanager.h"
#include "platform/registry.h"

namespace {

// The endpoint's identity and system-effects switch, in the engine's FX
// property store.
constexpr PROPERTYKEY kEndpointGuidKey = {
    {0x1DA5D803, 0xD492, 0x4EDD, {0x8C, 0x23, 0xE0, 0xC0, 0xFF, 0xEE, 0x7F, 0x0E}}, 4};
constexpr PROPERTYKEY kDisableSysFxKey = {
    {0x1DA5D803, 0xD492, 0x4EDD, {0x8C, 0x23, 0xE0, 0xC0, 0xFF, 0xEE, 0x7F, 0x0E}}, 5};

// The endpoint GUID as the store gives it: text (the engine's form) or a
// GUID value. False for anything else.
bool ReadEndpointGuid(IPropertyStore* store, GUID& guid) {
  ZORPropVariant value;
  if (store == nullptr || FAILED(store->GetValue(kEndpointGuidKey, value.Put()))) {
    return false;
  }
  const PROPVARIANT& v = value.Get();
  if (v.vt == VT_LPWSTR && v.pwszVal != nullptr) {
    return SUCCEEDED(CLSIDFromString(v.pwszVal, &guid));
  }
  if (v.vt == VT_CLSID && v.puuid != nullptr) {
    guid = *v.puuid;
    return true;
  }
  return false;
}

// The content index's key in the content mode list.
const char* ContentModeKey(uint32_t contentIndex) {
  static constexpr const char* kKeys[] = {
      "APO4-ContentMode-Default",      "APO4-ContentMode-Media",
      "APO4-ContentMode-Movie",        "APO4-ContentMode-Notification",
      "APO4-ContentMode-Communications",
  };
  return contentIndex < std::size(kKeys) ? kKeys[contentIndex] : "APO4-NotFound";
}

uint32_t MeteringModeFromText(const std::string& text) {
  if (text == "APO4-Input") return ZORAPOProcessManager::kMeterInput;
  if (text == "APO4-Output") return ZORAPOProcessManager::kMeterOutput;
  if (text == "APO4-Both") return ZORAPOProcessManager::kMeterInput | ZORAPOProcessManager::kMeterOutput;
  return 0;
}

// Enters COM for the length of a listener's call on a thread the manager
// does not own, and leaves only if it entered.
class ZORComScope {
 public:
  ZORComScope() : m_result(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
  ~ZORComScope() {
    if (m_result == S_OK || m_result == S_FALSE) CoUninitialize();
  }
  ZORComScope(const ZORComScope&) = delete;
  ZORComScope& operator=(const ZORComScope&) = delete;

 private:
  HRESULT m_result;
};

}  // namespace

void ZORAPOProcessManager::UnbindListeners() {
  m_globalSettings.SetNotify(nullptr);
  m_modeSelector.SetNotify(nullptr);
  if (m_bListening) {
    m_endpointTools.Unregister(this);
  }
}

bool ZORAPOProcessManager::SetEndpoint(IMMDevice*& /*spEndpoint*/, IPropertyStore*& spPropStore,
                                       uint32_t apoloc, uint32_t contentIndex) {
  m_globalSettings.SetNotify(nullptr);
  if (m_bListening) {
    m_endpointTools.Unregister(this);
  }
  m_device.Reset();
  m_propStore.Reset();
  m_contentIndex = contentIndex;

  GUID wanted = GUID_NULL;
  if (!ReadEndpointGuid(spPropStore, wanted)) {
    ZOR_LOG("ERROR: the endpoint GUID could not be read\n");
    return false;
  }
  // Render endpoints first, as every render object needs; a capture
  // object's endpoint is only ever among the capture endpoints.
  std::vector<ZORAPOEndpointInfo> endpoints;
  for (const bool render : {true, false}) {
    if (render) {
      m_endpointTools.GetEndpoints(endpoints);
    } else {
      m_endpointTools.GetCaptureEndpoints(endpoints);
    }
    for (const ZORAPOEndpointInfo& endpoint : endpoints) {
      if (!IsEqualGUID(endpoint.GetEndpointGuid().Guid(), wanted)) {
        continue;
      }
      if (!SetEndpointInfo(endpoint, apoloc)) {
        return false;
      }
      m_propStore = ZORComPtr<IPropertyStore>(spPropStore);
      m_endpointTools.Register(this);
      m_bListening = true;
      return true;
    }
  }
  // No such endpoint: nothing is bound, and the chains pass audio.
  ZOR_LOG("no active endpoint matches; running unbound\n");
  return true;
}

bool ZORAPOProcessManager::SetEndpointInfo(const ZORAPOEndpointInfo& info, uint32_t apoloc) {
  // The worker reads the binding; it is restarted by Initialize.
  m_worker.Stop(0);
  m_modeSelector.SetNotify(nullptr);
  if (m_bListening) {
    m_endpointTools.Unregister(this);
  }
  m_device.Reset();
  m_propStore.Reset();
  m_bPipeEnabled = false;
  m_bFollowCapture = false;
  m_apoLocation = apoloc;

  ZORAPOConfigurationFile config;
  if (config.Load(info.GetConfigPath(), 0, apoloc) != ZORAPOConfigurationFile::kStatusOk) {
    return false;
  }
  m_config = std::move(config);
  m_endpoint = info;
  m_bRenderEndpoint = info.IsRender();
  m_bBound = true;

  m_contentModes.clear();
  const std::string_view contentMode = kContentModeKey;
  for (const auto& [name, value] : m_config.GetProperties()) {
    if (value.name.find(contentMode) != std::string::npos) {
      m_contentModes.push_back(value);
    }
  }

  m_globalSettings.SetNotify(nullptr);
  if (m_globalSettings.InitGlobal(m_endpoint.GetSettingsKeyPath(), &m_config)) {
    ZORUTSValueList values;
    m_globalSettings.ReadAll(values, true);
    if (const ZORUTSValue* enable = values.Find(kProcessEnableKey)) {
      m_processDisabled = enable->GetLong() == 0 ? 1u : 0u;
    }
    if (const ZORUTSValue* automatic = values.Find(kAutoContentModeKey)) {
      m_autoContentMode = automatic->GetLong() != 0 ? 1 : 0;
    }
    m_globalSettings.SetNotify(this);
  }
  if (m_modeSelector.Init(m_endpoint.GetSettingsKeyPath(), m_config.GetDefaultMode())) {
    m_modeSelector.SetNotify(this);
  }
  m_device = ZORComPtr<IMMDevice>(info.GetDevice());

  if (!m_endpoint.IsRender()) {
    SetMeteringMode(0);
    return true;
  }
  if (const ZORUTSValue* metering = m_config.GetProperties().Find(kMeteringModeKey)) {
    SetMeteringMode(MeteringModeFromText(metering->GetText()));
  }
  return true;
}

void ZORAPOProcessManager::OnEndpointEvent(int32_t code) {
  IPropertyStore* const store = m_propStore.Get();
  if (store == nullptr || code != ZORAPOEndpointTools::kEventSysFxChanged) {
    return;
  }
  ZORComScope com;
  ZORPropVariant value;
  uint32_t disabled = 0;
  if (SUCCEEDED(store->GetValue(kDisableSysFxKey, value.Put()))) {
    const PROPVARIANT& v = value.Get();
    // The switch is a number; only its low 16 bits count.
    uint32_t number = 0;
    if (v.vt == VT_UI4 || v.vt == VT_I4 || v.vt == VT_UINT || v.vt == VT_INT) {
      number = v.ulVal;
    } else if (v.vt == VT_UI2 || v.vt == VT_I2 || v.vt == VT_BOOL) {
      number = v.uiVal;
    } else if (v.vt == VT_LPWSTR && v.pwszVal != nullptr) {
      const char16_t* text = zor::com::FromComText(v.pwszVal);
      number = (text[0] == u'1' && text[1] == u'\0') ? 1u : 0u;
    }
    disabled = (number & 0xFFFFu) == 1u ? 1u : 0u;
  }
  m_sysFxDisabled = disabled;
  m_hUpdateEvent.Set();
}

void ZORAPOProcessManager::OnModeChanged() { m_hUpdateEvent.Set(); }

void ZORAPOProcessManager::OnPublicSettingChanged(ZORAPOPublicSettings& /*settings*/,
                                                  const ZORUTSValue& value) {
  if (value.name == kProcessEnableKey) {
    m_processDisabled = value.GetLong() == 0 ? 1u : 0u;
    m_hUpdateEvent.Set();
  } else if (value.name == kAutoContentModeKey) {
    // UpdateWorkspace reads the value again.
    m_hUpdateEvent.Set();
  }
}

void ZORAPOProcessManager::OnMutexFound(bool found) {
  m_captureFound = found ? 1u : 0u;
  m_hUpdateEvent.Set();
}

void ZORAPOProcessManager::CalculateLatency() {
  m_latency = 0;
  if (!m_bBound || m_pChainBuilder != nullptr) {
    return;
  }
  ZORAPOLatencyCalculator calculator;
  calculator.Calculate(m_endpoint, m_config.GetOperatingModes(), kLatencyRate);
  m_latency = static_cast<int64_t>(calculator.GetResult());
}

void ZORAPOProcessManager::WriteRegistryMetrics() {
  if (!m_bBound) {
    return;
  }
  zor::os::RegKey key;
  if (zor::os::RegKey::Open(m_endpoint.GetSettingsKeyPath(),
                            zor::os::kKeyQueryValue | zor::os::kKeySetValue | zor::os::kKeyWow64_64Key,
                            key) != zor::os::RegStatus::Ok) {
    return;
  }
  uint32_t count = 0;
  if (key.ReadDword(kInitCountValue, count) != zor::os::RegStatus::Ok) {
    count = 0;  // missing (or not a number) counts as none
  }
  ++count;
  if (key.WriteDword(kInitCountValue, count) == zor::os::RegStatus::Ok) {
    ZOR_LOG("OK: dwCount=%d\n", static_cast<int>(count));
  } else {
    ZOR_LOGW(u"ERROR: regKey.SetDWORDValue(%s) failed, dwCount=%d\n", kInitCountValue.data(),
             static_cast<int>(count));
  }
}

bool ZORAPOProcessManager::ChooseMode(ZORAPOOperatingMode& mode) {
  ZORAPOModeId id;
  bool found = false;
  ZORUTSValueList globals;
  m_globalSettings.ReadAll(globals, true);
  if (const ZORUTSValue* automatic = globals.Find(kAutoContentModeKey)) {
    m_autoContentMode = automatic->GetLong();
  }
  // The stream's content picks a preset, when the user lets it and the
  // configuration names presets by content.
  if (m_autoContentMode > 0 && !m_contentModes.empty()) {
    const std::string_view key = ContentModeKey(m_contentIndex);
    for (const ZORUTSValue& entry : m_contentModes) {
      if (entry.name.find(key) != std::string::npos) {
        const std::string preset = entry.GetText();
        found = m_modeSelector.GetModeForContent(id, preset.c_str());
        break;
      }
    }
  }
  if (!found) {
    found = m_modeSelector.GetMode(id);
  }
  ZOR_LOGW(u"VELAPOProcessManager::UpdateWorkspace: Preset Mode=%s\n", id.ToRegistryName().c_str());
  if (!found) {
    id = m_config.GetDefaultMode();
  }
  // A mode the file does not know falls back to the default once.
  for (int attempt = 0; attempt < 2; ++attempt) {
    const bool known = m_bFollowCapture && m_captureFound != 0 ? m_config.FindAutoMicMode(id, mode)
                                                               : m_config.FindMode(id, mode);
    if (known) {
      return true;
    }
    id = m_config.GetDefaultMode();
  }
  return false;
}

bool ZORAPOProcessManager::DecideBypass(bool built) const {
  bool disabled = m_processDisabled != 0;
  const uint32_t bypassOverride = m_bypassOverride;
  if (bypassOverride != 0) {
    disabled = bypassOverride == 1;  // the override never touches the system-effects switch
  }
  return !built || disabled || m_sysFxDisabled != 0;
}

void ZORAPOProcessManager::UpdateWorkspace(ZORAPOProcessChain* chain) {
  if (m_pChainBuilder != nullptr) {
    m_pChainBuilder->BuildChain(*chain);
    chain->SetChainBypass(DecideBypass(chain->IsBuilt()));
    return;
  }
  // Without an endpoint or a known mode the chain stays unbuilt and passes
  // audio on its bypass path.
  bool built = false;
  ZORAPOWorkspace workspace;
  if (m_bBound && ChooseMode(workspace.mode)) {
    workspace.endpoint = m_endpoint;
    workspace.inputLayout = LayoutFromChannels(m_nChannelsIn);
    workspace.outputLayout = LayoutFromChannels(m_nChannelsOut);
    workspace.sampleRate = m_nSampleRate;
    chain->SetMinLatency(static_cast<uint64_t>(GetLatency()));
    built = chain->ConstructChain(workspace, m_apoLocation) && chain->IsBuilt();
    m_chainModes[ChainIndex(chain)] = workspace.mode;
  }
  chain->SetChainBypass(DecideBypass(built));
}

// Only the worker moves this pointer in the stream's life, but an embedder
// (or a test) may start a fade from its own thread: read it under the lock.
ZORAPOProcessChain* ZORAPOProcessManager::PreparedChain() const {
  ZORScopedLock lock(m_chainLock);
  return m_pPreparedChain;
}

size_t ZORAPOProcessManager::ChainIndex(const ZORAPOProcessChain* chain) const {
  return chain == &m_chainA ? 0 : chain == &m_chainB ? 1 : 2;
}

bool ZORAPOProcessManager::Worker::Run(ZORThreadBasic& /*thread*/, zor::os::Event& stopEvent) {
  return m_owner.RunWorker(stopEvent);
}

void ZORAPOProcessManager::OpenSettingsReader(ZORAPOPublicSettingsReader& reader) {
  if (m_bBound) {
    reader.Open(m_endpoint.GetEndpointGuid().Guid(), m_endpoint.GetSettingsKeyPath(),
                m_chainModes[ChainIndex(PreparedChain())], &m_hUpdateEvent);
  }
}

// Turns each change into one fade. It waits while a fade runs, so a fade is
// never cut short; wakes on the update event, or every 200 ms once a tuning
// tool is watched; spaces switches at least 100 ms apart; and builds the next
// candidate right after each switch, so the next change fades at once.
bool ZORAPOProcessManager::RunWorker(zor::os::Event& stopEvent) {
  ZORComScope com;
  TimeDelta stopwatch;
  stopwatch.Start(*m_pClock);
  // Signals the update event when a public value of the prepared chain's
  // mode is written.
  ZORAPOPublicSettingsReader reader;
  OpenSettingsReader(reader);
  bool poll = PreparedChain()->IsWatchingTuning();
  uint32_t timeout = poll ? kTuningPollMilliseconds : zor::os::kInfinite;

  zor::os::Event* const untilSteady[] = {&stopEvent, &m_hSteadyEvent};
  zor::os::Event* const untilUpdate[] = {&stopEvent, &m_hUpdateEvent};
  for (;;) {
    if (zor::os::WaitAny(untilSteady, 2, zor::os::kInfinite) == 0) {
      break;
    }
    const int32_t woken = zor::os::WaitAny(untilUpdate, 2, timeout);
    if (woken == 0) {
      break;
    }
    // A tuning tool writes its block without telling anyone: look.
    if (woken == zor::os::kWaitTimeout && (!poll || !PreparedChain()->TuningChanged())) {
      continue;
    }

    // At most ten switches a second.
    int64_t now = 0;
    int64_t frequency = 0;
    uint32_t milliseconds = 0;
    if (m_pClock->QueryCounter(now) && m_pClock->QueryFrequency(frequency) &&
        ZORElapsedMilliseconds32(now, stopwatch.counter, frequency, milliseconds) &&
        milliseconds < kMinSwitchMilliseconds) {
      if (stopEvent.Wait(kMinSwitchMilliseconds - milliseconds)) {
        break;
      }
    }

    // Reset before reading any setting: a change that lands while the chain
    // is built signals again and causes one more pass.
    m_hUpdateEvent.Reset();
    UpdateWorkspace(PreparedChain());
    PrepareToFade(*PreparedChain());
    OpenSettingsReader(reader);
    SwitchState(ManagerState_Fading);
    ZORAPOProcessChain* const next = PreparedChain();
    UpdateWorkspace(next);
    WarmChain(*next);
    // Once a tool is watched the poll never stops in this thread's life.
    poll = next->IsWatchingTuning();
    if (poll) {
      timeout = kTuningPollMilliseconds;
    }

    stopwatch.Start(*m_pClock);
    if (m_pClientEvent != nullptr) {
      m_pClientEvent->Set();
    }
  }
  return true;
}
