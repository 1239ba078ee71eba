#include "apo/czor_lfx_apo_universal_base.h"

#include <cmath>
#include <cstring>
#include <vector>

#include "apo/zorapoeffecttables.h"
#include "apo/zorapoformatrules.h"
#include "apo/zorapoinitblock.h"
#include "apo/zorapoinstancelimit.h"
#include "apo/zoraporegproperties.h"
#include "config/zorapoconfigurationfile.h"
#include "config/zorapomodeselector.h"
#include "config/zorapopublicsettings.h"
#include "core/zorlog.h"
#include "core/zorscopedlock.h"
#include "platform/eventhandle.h"
#include "platform/rtcode.h"
#include "platform/text.h"
#include "platform/threadpriority.h"
#include "system/zorapoendpointtools.h"
#include "system/zorguidtext.h"

std::atomic<uint32_t> CZOR_LFX_APO_Universal_Base::s_liveObjects{0};
std::atomic<uint32_t> CZOR_LFX_APO_Universal_Base::s_lockedObjects{0};
std::atomic<uint64_t> CZOR_LFX_APO_Universal_Base::s_copyPasses{0};
std::atomic<uint64_t> CZOR_LFX_APO_Universal_Base::s_inPlaceCopyPasses{0};

namespace {

// Priority of the configuration thread while a lock builds chains.
constexpr int kLockPriority = 15;

const APO_REG_PROPERTIES* RecordFor(uint32_t location) {
  const ZORAPOClassInfo* info = ZORAPORenderClass(location);
  return (info ? info : ZORAPORenderClass(kZORLocationPreBlue))->regProperties;
}

void LogLocation(uint32_t location) {
  if (const char* name = ZORAPOLocationName(location)) {
    ZOR_LOG("%s\n", name);
  } else {
    ZOR_LOG("Invalid APO location!\n");
  }
}

}  // namespace

CZOR_LFX_APO_Universal_Base::CZOR_LFX_APO_Universal_Base(uint32_t location)
    : CBaseAudioProcessingObject(RecordFor(location)), m_location(location) {
  // Linux reads the limit at the first object, once the host's store is set.
  ZORAPOInstanceLimit::Get();
  ++s_liveObjects;
  LogLocation(location);
}

CZOR_LFX_APO_Universal_Base::~CZOR_LFX_APO_Universal_Base() {
  StopWatcher();
  if (m_hClientEvent) zor::os::CloseEventHandle(m_hClientEvent);
  --s_liveObjects;
}

HRESULT CZOR_LFX_APO_Universal_Base::FinalConstruct() {
  LogLocation(m_location);
  return S_OK;
}

void CZOR_LFX_APO_Universal_Base::FinalRelease() {
  ZOR_LOG("CZOR_LFX_APO_Universal_Base::FinalRelease\n");
  StopWatcher();
}

HRESULT CZOR_LFX_APO_Universal_Base::QueryInterface(REFIID riid, void** ppv) {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IAudioProcessingObject)) {
    *ppv = static_cast<IAudioProcessingObject*>(this);
  } else if (IsEqualIID(riid, IID_IAudioProcessingObjectRT)) {
    *ppv = static_cast<IAudioProcessingObjectRT*>(this);
  } else if (IsEqualIID(riid, IID_IAudioProcessingObjectConfiguration)) {
    *ppv = static_cast<IAudioProcessingObjectConfiguration*>(this);
  } else if (IsEqualIID(riid, IID_IAudioSystemEffects) || IsEqualIID(riid, IID_IAudioSystemEffects2)) {
    *ppv = static_cast<IAudioSystemEffects2*>(this);
  } else if (IsEqualIID(riid, RecordFor(m_location)->iidAPOInterfaceList[0])) {
    // The class's own interface has only IUnknown's operations.
    *ppv = static_cast<IAudioProcessingObject*>(this);
  } else {
    return E_NOINTERFACE;
  }
  AddRef();
  return S_OK;
}

ULONG CZOR_LFX_APO_Universal_Base::AddRef() { return ++m_refCount; }

ULONG CZOR_LFX_APO_Universal_Base::Release() {
  const ULONG remaining = --m_refCount;
  if (remaining == 0) {
    FinalRelease();
    delete this;
  }
  return remaining;
}

HRESULT CZOR_LFX_APO_Universal_Base::GetLatency(HNSTIME* pTime) {
  if (!pTime) return E_POINTER;
  *pTime = m_manager.GetLatency();
  return S_OK;
}

HRESULT CZOR_LFX_APO_Universal_Base::Initialize(UINT32 cbDataSize, BYTE* pbyData) {
  ZOR_LOG("CZOR_LFX_APO_Universal_Base::Initialize\n");
  HRESULT hr = CBaseAudioProcessingObject::Initialize(cbDataSize, pbyData);
  if (FAILED(hr)) return hr;
  ZORAPOInitBlock block;
  hr = ZORAPOInitBlock::Read(cbDataSize, pbyData, block);
  if (FAILED(hr)) return hr;
  m_spFxProperties = std::move(block.fxProperties);
  m_spDevice = std::move(block.device);
  m_bEndpointBound = false;
  m_connectorIndex = block.connectorIndex;
  m_processingMode = block.processingMode;
  m_contentIndex = block.contentIndex;
  m_bDiscoveryOnly = block.discoveryOnly;
  m_endpointGuid = std::move(block.endpointGuid);
  return S_OK;
}

HRESULT CZOR_LFX_APO_Universal_Base::IsInputFormatSupported(IAudioMediaType* pOppositeFormat,
                                                            IAudioMediaType* pRequestedInputFormat,
                                                            IAudioMediaType** ppSupportedInputFormat) {
  return ZORAPOFormatRules::Negotiate(ZORAPOFormatRules::Family::Render, ZORAPOFormatRules::Direction::Input,
                                      pOppositeFormat, pRequestedInputFormat, ppSupportedInputFormat);
}

HRESULT CZOR_LFX_APO_Universal_Base::IsOutputFormatSupported(IAudioMediaType* pOppositeFormat,
                                                             IAudioMediaType* pRequestedOutputFormat,
                                                             IAudioMediaType** ppSupportedOutputFormat) {
  return ZORAPOFormatRules::Negotiate(ZORAPOFormatRules::Family::Render, ZORAPOFormatRules::Direction::Output,
                                      pOppositeFormat, pRequestedOutputFormat, ppSupportedOutputFormat);
}

bool CZOR_LFX_APO_Universal_Base::ValidateDefaultAPOFormat(UNCOMPRESSEDAUDIOFORMAT& format) {
  return ZORAPOFormatRules::ValidateDefaultAPOFormat(format);
}

HRESULT CZOR_LFX_APO_Universal_Base::LockForProcess(UINT32 u32NumInputConnections,
                                                    APO_CONNECTION_DESCRIPTOR** ppInputConnections,
                                                    UINT32 u32NumOutputConnections,
                                                    APO_CONNECTION_DESCRIPTOR** ppOutputConnections) {
  ZOR_LOG("u32NumInputConnections=%d, u32NumOutputConnections=%d\n", u32NumInputConnections,
          u32NumOutputConnections);
  const zor::os::ThreadPriorityBoost boost(kLockPriority);
  const HRESULT hr = CBaseAudioProcessingObject::LockForProcess(u32NumInputConnections, ppInputConnections,
                                                                u32NumOutputConnections, ppOutputConnections);
  // Numbers come from the count of locked objects, not from slots: they
  // repeat after an unlock.
  if (SUCCEEDED(hr)) m_instanceNumber = static_cast<int32_t>(++s_lockedObjects);
  return hr;
}

HRESULT CZOR_LFX_APO_Universal_Base::UnlockForProcess() {
  if (m_instanceNumber != -1) {
    --s_lockedObjects;
    m_instanceNumber = -1;
  }
  return CBaseAudioProcessingObject::UnlockForProcess();
}

HRESULT CZOR_LFX_APO_Universal_Base::ValidateAndCacheConnectionInfo(
    UINT32 u32NumInputConnections, APO_CONNECTION_DESCRIPTOR** ppInputConnections, UINT32 u32NumOutputConnections,
    APO_CONNECTION_DESCRIPTOR** ppOutputConnections) {
  const HRESULT hr = CBaseAudioProcessingObject::ValidateAndCacheConnectionInfo(
      u32NumInputConnections, ppInputConnections, u32NumOutputConnections, ppOutputConnections);
  if (u32NumInputConnections != 0) ZORAPOFormatRules::CacheWaveFormat(ppInputConnections[0]->pFormat, m_inputFormat);
  if (u32NumOutputConnections != 0) {
    ZORAPOFormatRules::CacheWaveFormat(ppOutputConnections[0]->pFormat, m_outputFormat);
  }
  if (FAILED(hr)) return APOERR_INVALID_CONNECTION_FORMAT;
  if (!m_bEndpointBound) {
    IMMDevice* device = m_spDevice.Get();
    IPropertyStore* properties = m_spFxProperties.Get();
    m_bEndpointBound = m_manager.SetEndpoint(device, properties, m_location, m_contentIndex);
  }
  m_bReady = m_bEndpointBound;
  if (m_bReady) {
    m_bReady = m_manager.Initialize(m_inputFormat.Format.nChannels, m_outputFormat.Format.nChannels,
                                    m_inputFormat.Format.nSamplesPerSec, m_contentIndex, m_location);
  }
  ZOR_LOG("CZOR_LFX_APO_Universal_Base::ValidateAndCacheConnectionInfo - Format selection done\n");
  return hr;
}

// ---- The audio thread ------------------------------------------------------------

ZOR_RT_CODE void CZOR_LFX_APO_Universal_Base::APOProcess(UINT32, APO_CONNECTION_PROPERTY** ppInputConnections,
                                                         UINT32, APO_CONNECTION_PROPERTY** ppOutputConnections) {
  APO_CONNECTION_PROPERTY& input = *ppInputConnections[0];
  APO_CONNECTION_PROPERTY& output = *ppOutputConnections[0];
  const uint32_t flags = static_cast<uint32_t>(input.u32BufferFlags);
  if (flags == BUFFER_INVALID) {
    ZOR_LOG("CZOR_LFX_APO_Universal_Base::Got invalid buffer!!\n");
    return;
  }
  if (flags > BUFFER_SILENT) return;
  const bool silent = flags == BUFFER_SILENT;
  float* in = reinterpret_cast<float*>(input.pBuffer);
  float* out = reinterpret_cast<float*>(output.pBuffer);
  const uint32_t inChannels = m_inputFormat.Format.nChannels;
  const uint32_t outChannels = m_outputFormat.Format.nChannels;
  if (silent) std::memset(in, 0, size_t{input.u32ValidFrameCount} * inChannels * sizeof(float));
  if (input.u32ValidFrameCount != output.u32ValidFrameCount) {
    ZOR_LOG("CZOR_LFX_APO_Universal_Base::::APOProcess - Input and output frame counts mismatch\n");
  }
  if (m_bReady && int64_t{m_instanceNumber} <= int64_t{ZORAPOInstanceLimit::Get()}) {
    m_manager.Process(in, &input.u32ValidFrameCount, out, &output.u32ValidFrameCount, silent);
  } else {
    CopyPath(input, output);
  }
  m_rampLength = kRampLength;
  if (m_rampPosition < kRampLength) FadeIn(out, output.u32ValidFrameCount, outChannels);
  output.u32BufferFlags = input.u32BufferFlags;
  // A chain's tail after the input fell silent stays audible, and the blocks
  // after it rise by the fade-in.
  if (silent && HasSound(out, uint64_t{output.u32ValidFrameCount} * outChannels)) {
    output.u32BufferFlags = BUFFER_VALID;
    m_rampPosition = 0;
  }
}

ZOR_RT_CODE void CZOR_LFX_APO_Universal_Base::CopyPath(APO_CONNECTION_PROPERTY& input,
                                                       APO_CONNECTION_PROPERTY& output) const {
  s_copyPasses.fetch_add(1, std::memory_order_relaxed);
  if (input.pBuffer == output.pBuffer) {
    s_inPlaceCopyPasses.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  const uint32_t inChannels = m_inputFormat.Format.nChannels;
  const uint32_t outChannels = m_outputFormat.Format.nChannels;
  const uint32_t channels = inChannels < outChannels ? inChannels : outChannels;
  if (output.u32ValidFrameCount == 0) output.u32ValidFrameCount = input.u32ValidFrameCount;
  float* out = reinterpret_cast<float*>(output.pBuffer);
  const bool copies = input.u32ValidFrameCount == output.u32ValidFrameCount && channels != 0;
  // Frames times 4 bytes, not frames times a frame's width: a copy writes
  // its channels below, and the engine has relied on other channels keeping
  // what they held. An equal-width copy overwrites these bytes anyway.
  if (!copies || inChannels != outChannels) std::memset(out, 0, size_t{output.u32ValidFrameCount} * 4);
  if (!copies) return;
  const float* in = reinterpret_cast<const float*>(input.pBuffer);
  if (inChannels == outChannels) {
    // Every output sample is written: one block copy does the same.
    std::memmove(out, in, size_t{output.u32ValidFrameCount} * outChannels * sizeof(float));
    return;
  }
  for (uint32_t frame = 0; frame < output.u32ValidFrameCount; ++frame) {
    for (uint32_t channel = 0; channel < channels; ++channel) {
      out[size_t{frame} * outChannels + channel] = in[size_t{frame} * inChannels + channel];
    }
  }
}

ZOR_RT_CODE void CZOR_LFX_APO_Universal_Base::FadeIn(float* output, uint32_t frames, uint32_t channels) {
  for (uint32_t frame = 0; frame < frames && m_rampPosition < m_rampLength; ++frame, ++m_rampPosition) {
    const double ratio = static_cast<double>(m_rampPosition) / static_cast<double>(m_rampLength);
    const float gain = static_cast<float>(std::pow(ratio, 2.0));
    for (uint32_t channel = 0; channel < channels; ++channel) output[size_t{frame} * channels + channel] *= gain;
  }
}

ZOR_RT_CODE bool CZOR_LFX_APO_Universal_Base::HasSound(const float* samples, uint64_t count) {
  for (uint64_t i = 0; i < count; ++i) {
    // NaN is sound; -0.0 equals 0.0 and is silence.
    if (!(samples[i] == 0.0f)) return true;
  }
  return false;
}

// ---- The effect list ---------------------------------------------------------------

void CZOR_LFX_APO_Universal_Base::StopWatcher() {
  // Joined before the client event changes, which the watcher reads.
  m_watcher.Stop();
}

HRESULT CZOR_LFX_APO_Universal_Base::StartClientEvent(HANDLE event) {
  const uint32_t error = zor::os::DuplicateEventHandle(event, &m_hClientEvent);
  if (error != 0) return static_cast<HRESULT>((error & 0xFFFFu) | 0x80070000u);
  m_watcher.Start([this] {
    if (m_hClientEvent) zor::os::SetEventHandle(m_hClientEvent);
  });
  return S_OK;
}

HRESULT CZOR_LFX_APO_Universal_Base::GetEffectsList(LPGUID* ppEffectsIds, UINT* pcEffects, HANDLE Event) {
  if (!ppEffectsIds || !pcEffects) {
    ZOR_LOG("GetEffectList: no output\n");
    return S_OK;
  }
  *ppEffectsIds = nullptr;
  *pcEffects = 0;
  ZORScopedLock lock(m_listLock);
  StopWatcher();
  if (m_hClientEvent) {
    zor::os::CloseEventHandle(m_hClientEvent);
    m_hClientEvent = nullptr;
  }
  if (Event) {
    const HRESULT hr = StartClientEvent(Event);
    if (FAILED(hr)) return hr;
  }
  ZOR_LOG("GetEffectList: Host processing...\n");
  std::vector<GUID> effects;
  if (IsEqualGUID(m_processingMode, ZORAPOInitBlock::kRawMode)) {
    ZOR_LOG("GetEffectList: raw mode\n");
  } else {
    ZOR_LOG("GetEffectList: normal mode\n");
    ListEffects(effects);
  }
  if (effects.empty()) {
    ZOR_LOG("GetEffectList: no effects found\n");
  } else {
    ZOR_LOG("GetEffectList: copying effects\n");
    auto* copy = static_cast<GUID*>(CoTaskMemAlloc(effects.size() * sizeof(GUID)));
    if (!copy) return E_OUTOFMEMORY;
    std::memcpy(copy, effects.data(), effects.size() * sizeof(GUID));
    *ppEffectsIds = copy;
    *pcEffects = static_cast<UINT>(effects.size());
  }
  ZOR_LOG("GetEffectList: done\n");
  return S_OK;
}

void CZOR_LFX_APO_Universal_Base::ListEffects(std::vector<GUID>& effects) const {
  ZORAPOEndpointTools tools;
  std::vector<ZORAPOEndpointInfo> endpoints;
  tools.GetEndpoints(endpoints);
  // Compared as GUIDs, so the case of the store's text doesn't matter.
  const ZORGuidText wanted(m_endpointGuid);
  const ZORAPOEndpointInfo* endpoint = nullptr;
  for (const ZORAPOEndpointInfo& candidate : endpoints) {
    if (!wanted.IsNull() && candidate.GetEndpointGuid() == wanted) {
      endpoint = &candidate;
      break;
    }
  }
  if (!endpoint) return;
  ZORAPOModeSelector selector;
  ZORAPOModeId modeId;
  if (selector.Init(endpoint->GetSettingsKeyPath(), ZORAPOModeId())) selector.GetMode(modeId);
  ZORAPOConfigurationFile config;
  config.Load(endpoint->GetConfigPath(), 0, m_location);
  std::string modeName = zor::os::Utf16ToUtf8(modeId.ToRegistryName());
  if (modeName.find("Undefined") != std::string::npos) {
    modeId = config.GetDefaultMode();
    modeName = zor::os::Utf16ToUtf8(modeId.ToRegistryName());
  }
  ZORAPOOperatingMode mode;
  config.FindMode(modeId, mode);
  ZORAPOPublicSettings settings;
  ZORUTSValueList values;
  if (settings.Init(endpoint->GetSettingsKeyPath(), mode)) settings.ReadAll(values, true);
  const ZORAPOEffectTables::Table table = ZORAPOEffectTables::ForLocation(m_location);
  switch (table) {
    case ZORAPOEffectTables::Table::SFX:
      ZOR_LOG("VELAPO:GetEffectList: Return SFX Audio Effect Lists.\n");
      break;
    case ZORAPOEffectTables::Table::EFX:
      ZOR_LOG("VELAPO:GetEffectList: Return EFX Audio Effect Lists.\n");
      break;
    case ZORAPOEffectTables::Table::MFX:
      ZOR_LOG("VELAPO:GetEffectList: Return MFX Audio Effect Lists.\n");
      break;
    case ZORAPOEffectTables::Table::None:
      break;
  }
  effects = ZORAPOEffectTables::Select(table, values, modeName);
}
