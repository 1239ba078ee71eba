#include "apo/czor_lfx_capture_apo_universal.h"

#include <cstring>

#include "apo/zorapoformatrules.h"
#include "apo/zoraporegproperties.h"
#include "platform/rtcode.h"

std::atomic<uint32_t> CZOR_LFX_Capture_APO_Universal::s_liveObjects{0};

CZOR_LFX_Capture_APO_Universal::CZOR_LFX_Capture_APO_Universal()
    : CBaseAudioProcessingObject(ZORAPOCaptureClass().regProperties) {
  ++s_liveObjects;
}

CZOR_LFX_Capture_APO_Universal::~CZOR_LFX_Capture_APO_Universal() { --s_liveObjects; }

HRESULT CZOR_LFX_Capture_APO_Universal::QueryInterface(REFIID riid, void** ppv) {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IAudioProcessingObject) ||
      IsEqualIID(riid, ZORAPOCaptureClass().regProperties->iidAPOInterfaceList[0])) {
    *ppv = static_cast<IAudioProcessingObject*>(this);
  } else if (IsEqualIID(riid, IID_IAudioProcessingObjectRT)) {
    *ppv = static_cast<IAudioProcessingObjectRT*>(this);
  } else if (IsEqualIID(riid, IID_IAudioProcessingObjectConfiguration)) {
    *ppv = static_cast<IAudioProcessingObjectConfiguration*>(this);
  } else if (IsEqualIID(riid, IID_IAudioSystemEffects)) {
    *ppv = static_cast<IAudioSystemEffects*>(this);
  } else {
    return E_NOINTERFACE;
  }
  AddRef();
  return S_OK;
}

ULONG CZOR_LFX_Capture_APO_Universal::AddRef() { return ++m_refCount; }

ULONG CZOR_LFX_Capture_APO_Universal::Release() {
  const ULONG remaining = --m_refCount;
  if (remaining == 0) delete this;
  return remaining;
}

HRESULT CZOR_LFX_Capture_APO_Universal::GetLatency(HNSTIME* pTime) {
  if (!pTime) return E_POINTER;
  *pTime = m_manager.GetLatency();
  return S_OK;
}

HRESULT CZOR_LFX_Capture_APO_Universal::Initialize(UINT32 cbDataSize, BYTE* pbyData) {
  const HRESULT hr = CBaseAudioProcessingObject::Initialize(cbDataSize, pbyData);
  if (FAILED(hr)) return hr;
  if (cbDataSize != sizeof(APOInitSystemEffects) || !pbyData) return E_INVALIDARG;
  APOInitSystemEffects block;
  std::memcpy(&block, pbyData, sizeof(block));
  if (!block.pAPOSystemEffectsProperties || !block.pDeviceCollection) return E_INVALIDARG;
  ZORComPtr<IPropertyStore> properties(block.pAPOSystemEffectsProperties);
  ZORComPtr<IMMDevice> device;
  if (FAILED(block.pDeviceCollection->Item(0, device.Put()))) device.Reset();
  IMMDevice* rawDevice = device.Get();
  IPropertyStore* rawProperties = properties.Get();
  // A capture stream without a bound endpoint still runs: the lock tells.
  m_manager.SetEndpoint(rawDevice, rawProperties, 0, 0);
  return S_OK;
}

HRESULT CZOR_LFX_Capture_APO_Universal::IsInputFormatSupported(IAudioMediaType* pOppositeFormat,
                                                               IAudioMediaType* pRequestedInputFormat,
                                                               IAudioMediaType** ppSupportedInputFormat) {
  return ZORAPOFormatRules::Negotiate(ZORAPOFormatRules::Family::Capture, ZORAPOFormatRules::Direction::Input,
                                      pOppositeFormat, pRequestedInputFormat, ppSupportedInputFormat);
}

HRESULT CZOR_LFX_Capture_APO_Universal::IsOutputFormatSupported(IAudioMediaType* pOppositeFormat,
                                                                IAudioMediaType* pRequestedOutputFormat,
                                                                IAudioMediaType** ppSupportedOutputFormat) {
  return ZORAPOFormatRules::Negotiate(ZORAPOFormatRules::Family::Capture, ZORAPOFormatRules::Direction::Output,
                                      pOppositeFormat, pRequestedOutputFormat, ppSupportedOutputFormat);
}

HRESULT CZOR_LFX_Capture_APO_Universal::LockForProcess(UINT32 u32NumInputConnections,
                                                       APO_CONNECTION_DESCRIPTOR** ppInputConnections,
                                                       UINT32 u32NumOutputConnections,
                                                       APO_CONNECTION_DESCRIPTOR** ppOutputConnections) {
  const HRESULT hr = CBaseAudioProcessingObject::LockForProcess(u32NumInputConnections, ppInputConnections,
                                                                u32NumOutputConnections, ppOutputConnections);
  // A null DACL on Windows, so render streams of any account see it.
  if (SUCCEEDED(hr) && u32NumInputConnections != 0 && !m_mutex.IsOpen()) m_mutex.Create(kMutexName);
  return hr;
}

HRESULT CZOR_LFX_Capture_APO_Universal::UnlockForProcess() {
  const HRESULT hr = CBaseAudioProcessingObject::UnlockForProcess();
  m_mutex.Close();
  return hr;
}

HRESULT CZOR_LFX_Capture_APO_Universal::ValidateAndCacheConnectionInfo(
    UINT32 u32NumInputConnections, APO_CONNECTION_DESCRIPTOR** ppInputConnections, UINT32 u32NumOutputConnections,
    APO_CONNECTION_DESCRIPTOR** ppOutputConnections) {
  const HRESULT hr = CBaseAudioProcessingObject::ValidateAndCacheConnectionInfo(
      u32NumInputConnections, ppInputConnections, u32NumOutputConnections, ppOutputConnections);
  if (u32NumInputConnections != 0) ZORAPOFormatRules::CacheWaveFormat(ppInputConnections[0]->pFormat, m_inputFormat);
  if (u32NumOutputConnections != 0) {
    ZORAPOFormatRules::CacheWaveFormat(ppOutputConnections[0]->pFormat, m_outputFormat);
  }
  if (FAILED(hr)) return APOERR_INVALID_CONNECTION_FORMAT;
  // Location 0xFFFFFFFF: the configuration is read for location 0, the
  // manager knows it serves capture.
  if (!m_manager.Initialize(m_inputFormat.Format.nChannels, m_outputFormat.Format.nChannels,
                            m_inputFormat.Format.nSamplesPerSec, 0, 0xFFFFFFFF)) {
    return APOERR_INVALID_CONNECTION_FORMAT;
  }
  return hr;
}

ZOR_RT_CODE void CZOR_LFX_Capture_APO_Universal::APOProcess(UINT32, APO_CONNECTION_PROPERTY** ppInputConnections,
                                                            UINT32, APO_CONNECTION_PROPERTY** ppOutputConnections) {
  APO_CONNECTION_PROPERTY& input = *ppInputConnections[0];
  APO_CONNECTION_PROPERTY& output = *ppOutputConnections[0];
  switch (static_cast<uint32_t>(input.u32BufferFlags)) {
    case BUFFER_VALID:
      m_manager.Process(reinterpret_cast<const float*>(input.pBuffer), &input.u32ValidFrameCount,
                        reinterpret_cast<float*>(output.pBuffer), &output.u32ValidFrameCount, false);
      output.u32BufferFlags = input.u32BufferFlags;
      break;
    case BUFFER_SILENT:
      output.u32ValidFrameCount = input.u32ValidFrameCount;
      output.u32BufferFlags = input.u32BufferFlags;
      break;
    default:
      break;
  }
}
