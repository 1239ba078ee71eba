#include "apo/cbaseaudioprocessingobject.h"

#include <cstring>

#include "core/zorscopedlock.h"

namespace {

// The bytes a connection's buffer spans at its largest; 0 when the format
// can't be read, which then overlaps nothing.
uint64_t BufferBytes(const APO_CONNECTION_DESCRIPTOR& connection) {
  UNCOMPRESSEDAUDIOFORMAT format{};
  if (!connection.pFormat || FAILED(connection.pFormat->GetUncompressedAudioFormat(&format))) {
    return 0;
  }
  return uint64_t{connection.u32MaxFrameCount} * format.dwSamplesPerFrame *
         format.dwBytesPerSampleContainer;
}

bool Overlap(const APO_CONNECTION_DESCRIPTOR& a, const APO_CONNECTION_DESCRIPTOR& b) {
  const uint64_t aStart = a.pBuffer;
  const uint64_t bStart = b.pBuffer;
  const uint64_t aBytes = BufferBytes(a);
  const uint64_t bBytes = BufferBytes(b);
  if (aBytes == 0 || bBytes == 0) return false;
  // Written as distances so that buffers near the top of the address space
  // don't wrap.
  return aStart <= bStart ? bStart - aStart < aBytes : aStart - bStart < bBytes;
}

}  // namespace

CBaseAudioProcessingObject::CBaseAudioProcessingObject(const APO_REG_PROPERTIES* regProperties)
    : m_pRegProperties(regProperties) {}

CBaseAudioProcessingObject::~CBaseAudioProcessingObject() = default;

HRESULT CBaseAudioProcessingObject::Reset() { return S_OK; }

HRESULT CBaseAudioProcessingObject::GetLatency(HNSTIME* pTime) {
  if (!pTime) return E_POINTER;
  *pTime = 0;
  return S_OK;
}

HRESULT CBaseAudioProcessingObject::GetRegistrationProperties(APO_REG_PROPERTIES** ppRegProps) {
  if (!ppRegProps) return E_POINTER;
  *ppRegProps = nullptr;
  // Room for every interface id the record names, past the one declared.
  const UINT32 interfaces = m_pRegProperties->u32NumAPOInterfaces;
  const std::size_t bytes =
      sizeof(APO_REG_PROPERTIES) + (interfaces > 1 ? (interfaces - 1) * sizeof(IID) : 0);
  void* copy = CoTaskMemAlloc(bytes);
  if (!copy) return E_OUTOFMEMORY;
  std::memcpy(copy, m_pRegProperties, bytes);
  *ppRegProps = static_cast<APO_REG_PROPERTIES*>(copy);
  return S_OK;
}

HRESULT CBaseAudioProcessingObject::Initialize(UINT32 cbDataSize, BYTE* pbyData) {
  if (pbyData && cbDataSize == 0) return E_POINTER;
  if (!pbyData && cbDataSize != 0) return E_INVALIDARG;
  if (m_bIsInitialized) return APOERR_ALREADY_INITIALIZED;
  m_bIsInitialized = true;
  return S_OK;
}

HRESULT CBaseAudioProcessingObject::GetInputChannelCount(UINT32* pu32ChannelCount) {
  if (!m_bIsInitialized) return APOERR_NOT_INITIALIZED;
  if (!pu32ChannelCount) return E_POINTER;
  *pu32ChannelCount = m_u32SamplesPerFrame;
  return S_OK;
}

UINT32 CBaseAudioProcessingObject::CalcInputFrames(UINT32 u32OutputFrameCount) {
  return u32OutputFrameCount;
}

UINT32 CBaseAudioProcessingObject::CalcOutputFrames(UINT32 u32InputFrameCount) {
  return u32InputFrameCount;
}

HRESULT CBaseAudioProcessingObject::CheckConnections(UINT32 count,
                                                     APO_CONNECTION_DESCRIPTOR** connections) const {
  for (UINT32 i = 0; i < count; ++i) {
    const APO_CONNECTION_DESCRIPTOR* connection = connections[i];
    if (!connection) return E_POINTER;
    if (connection->u32Signature != APO_CONNECTION_DESCRIPTOR_SIGNATURE) return E_INVALIDARG;
    if (!connection->pFormat) return E_POINTER;
    UNCOMPRESSEDAUDIOFORMAT format{};
    if (FAILED(connection->pFormat->GetUncompressedAudioFormat(&format)) ||
        !AgreesWithLockedFormat(format)) {
      return APOERR_INVALID_CONNECTION_FORMAT;
    }
  }
  return S_OK;
}

bool CBaseAudioProcessingObject::AgreesWithLockedFormat(const UNCOMPRESSEDAUDIOFORMAT& format) const {
  const UINT32 flags = m_pRegProperties->Flags;
  if ((flags & APO_FLAG_SAMPLESPERFRAME_MUST_MATCH) &&
      format.dwSamplesPerFrame != m_u32SamplesPerFrame) {
    return false;
  }
  if ((flags & APO_FLAG_BITSPERSAMPLE_MUST_MATCH) &&
      (format.dwBytesPerSampleContainer != m_u32BytesPerSampleContainer ||
       format.dwValidBitsPerSample != m_u32ValidBitsPerSample)) {
    return false;
  }
  if ((flags & APO_FLAG_FRAMESPERSECOND_MUST_MATCH) &&
      format.fFramesPerSecond != m_f32FramesPerSecond) {
    return false;
  }
  return true;
}

HRESULT CBaseAudioProcessingObject::CheckFrameCountsAndOverlap(
    UINT32 u32NumInputConnections, APO_CONNECTION_DESCRIPTOR** ppInputConnections,
    UINT32 u32NumOutputConnections, APO_CONNECTION_DESCRIPTOR** ppOutputConnections) const {
  const UINT32 flags = m_pRegProperties->Flags;
  for (UINT32 i = 0; i < u32NumInputConnections; ++i) {
    for (UINT32 o = 0; o < u32NumOutputConnections; ++o) {
      const APO_CONNECTION_DESCRIPTOR& input = *ppInputConnections[i];
      const APO_CONNECTION_DESCRIPTOR& output = *ppOutputConnections[o];
      // A fixed-rate object passes frames one for one, so the output must
      // hold whatever the input may carry; a mixer decides for itself.
      if ((flags & APO_FLAG_FRAMESPERSECOND_MUST_MATCH) && !(flags & APO_FLAG_MIXER) &&
          input.u32MaxFrameCount > output.u32MaxFrameCount) {
        return APOERR_INVALID_OUTPUT_MAXFRAMECOUNT;
      }
      if (!(flags & APO_FLAG_INPLACE) && Overlap(input, output)) return APOERR_BUFFERS_OVERLAP;
    }
  }
  return S_OK;
}

HRESULT CBaseAudioProcessingObject::LockForProcess(UINT32 u32NumInputConnections,
                                                   APO_CONNECTION_DESCRIPTOR** ppInputConnections,
                                                   UINT32 u32NumOutputConnections,
                                                   APO_CONNECTION_DESCRIPTOR** ppOutputConnections) {
  ZORScopedLock lock(m_lock);
  if (m_bIsLocked) return APOERR_APO_LOCKED;
  if (u32NumInputConnections != 0 && (!ppInputConnections || !ppInputConnections[0])) {
    return E_POINTER;
  }
  if (u32NumOutputConnections != 0 && (!ppOutputConnections || !ppOutputConnections[0])) {
    return E_POINTER;
  }
  const APO_REG_PROPERTIES& reg = *m_pRegProperties;
  if (u32NumInputConnections < reg.u32MinInputConnections ||
      u32NumInputConnections > reg.u32MaxInputConnections ||
      u32NumOutputConnections < reg.u32MinOutputConnections ||
      u32NumOutputConnections > reg.u32MaxOutputConnections) {
    return APOERR_NUM_CONNECTIONS_INVALID;
  }

  // The first connection, input if there is one, fixes the format the
  // others must share.
  const APO_CONNECTION_DESCRIPTOR* first = u32NumInputConnections != 0 ? ppInputConnections[0]
                                           : u32NumOutputConnections != 0 ? ppOutputConnections[0]
                                                                          : nullptr;
  if (first) {
    if (!first->pFormat) return E_POINTER;
    UNCOMPRESSEDAUDIOFORMAT format{};
    const HRESULT hr = first->pFormat->GetUncompressedAudioFormat(&format);
    if (FAILED(hr)) return hr;
    const UINT32 flags = reg.Flags;
    if (flags & APO_FLAG_SAMPLESPERFRAME_MUST_MATCH) m_u32SamplesPerFrame = format.dwSamplesPerFrame;
    if (flags & APO_FLAG_BITSPERSAMPLE_MUST_MATCH) {
      m_u32BytesPerSampleContainer = format.dwBytesPerSampleContainer;
      m_u32ValidBitsPerSample = format.dwValidBitsPerSample;
    }
    if (flags & APO_FLAG_FRAMESPERSECOND_MUST_MATCH) m_f32FramesPerSecond = format.fFramesPerSecond;
  }

  // Each input with the output beside it must pass the class's own format
  // talks, both ways.
  const UINT32 pairs =
      u32NumInputConnections < u32NumOutputConnections ? u32NumInputConnections : u32NumOutputConnections;
  for (UINT32 i = 0; i < pairs; ++i) {
    IAudioMediaType* inputFormat = ppInputConnections[i] ? ppInputConnections[i]->pFormat : nullptr;
    IAudioMediaType* outputFormat = ppOutputConnections[i] ? ppOutputConnections[i]->pFormat : nullptr;
    for (const bool input : {true, false}) {
      IAudioMediaType* supported = nullptr;
      const HRESULT hr = input ? IsInputFormatSupported(outputFormat, inputFormat, &supported)
                               : IsOutputFormatSupported(inputFormat, outputFormat, &supported);
      if (supported) supported->Release();
      if (hr != S_OK) return APOERR_FORMAT_NOT_SUPPORTED;
    }
  }

  HRESULT hr = CheckConnections(u32NumInputConnections, ppInputConnections);
  if (SUCCEEDED(hr)) hr = CheckConnections(u32NumOutputConnections, ppOutputConnections);
  if (FAILED(hr)) return hr;
  if (u32NumInputConnections != 0 && u32NumOutputConnections != 0) {
    hr = CheckFrameCountsAndOverlap(u32NumInputConnections, ppInputConnections,
                                    u32NumOutputConnections, ppOutputConnections);
    if (FAILED(hr)) return hr;
  }

  hr = ValidateAndCacheConnectionInfo(u32NumInputConnections, ppInputConnections,
                                      u32NumOutputConnections, ppOutputConnections);
  if (SUCCEEDED(hr)) m_bIsLocked = true;
  return hr;
}

HRESULT CBaseAudioProcessingObject::UnlockForProcess() {
  ZORScopedLock lock(m_lock);
  if (!m_bIsLocked) return APOERR_ALREADY_UNLOCKED;
  m_bIsLocked = false;
  return S_OK;
}

HRESULT CBaseAudioProcessingObject::ValidateAndCacheConnectionInfo(UINT32, APO_CONNECTION_DESCRIPTOR**,
                                                                   UINT32, APO_CONNECTION_DESCRIPTOR**) {
  return S_OK;
}
