#include "engine/zortestmediatype.h"

#include <cstring>

#include "apo/zoraudiomediatype.h"

ZORTestMediaType* ZORTestMediaType::Create(const UNCOMPRESSEDAUDIOFORMAT& format, const Faults& faults) {
  return new ZORTestMediaType(format, faults);
}

UNCOMPRESSEDAUDIOFORMAT ZORTestMediaType::Float(uint32_t channels, float rate, uint32_t validBits,
                                                uint32_t container) {
  return {kSubtypeIeeeFloat, channels, container, validBits, rate, 0};
}

ZORTestMediaType::ZORTestMediaType(const UNCOMPRESSEDAUDIOFORMAT& format, const Faults& faults)
    : m_format(format), m_faults(faults) {
  // The wave form comes from velapo's own media type, so the two agree.
  IAudioMediaType* made = nullptr;
  ZORAudioMediaType::Create(&format, &made);
  const std::size_t bytes = faults.plainWaveFormat ? sizeof(WAVEFORMATEX) : sizeof(WAVEFORMATEXTENSIBLE);
  m_wave = std::make_unique<unsigned char[]>(bytes);
  std::memcpy(m_wave.get(), made->GetAudioFormat(), bytes);
  made->Release();
  if (faults.plainWaveFormat) {
    auto* wave = reinterpret_cast<WAVEFORMATEX*>(m_wave.get());
    wave->wFormatTag = 3;  // IEEE float, no extension
    wave->cbSize = 0;
  }
}

HRESULT ZORTestMediaType::QueryInterface(REFIID riid, void** ppvObject) {
  if (!ppvObject) return E_POINTER;
  if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IAudioMediaType)) {
    *ppvObject = static_cast<IAudioMediaType*>(this);
    AddRef();
    return S_OK;
  }
  *ppvObject = nullptr;
  return E_NOINTERFACE;
}

ULONG ZORTestMediaType::AddRef() { return ++m_refCount; }

ULONG ZORTestMediaType::Release() {
  const ULONG remaining = --m_refCount;
  if (remaining == 0) delete this;
  return remaining;
}

HRESULT ZORTestMediaType::IsCompressedFormat(BOOL* pfCompressed) {
  if (!pfCompressed) return E_POINTER;
  if (FAILED(m_faults.compressedQuery)) return m_faults.compressedQuery;
  *pfCompressed = m_faults.compressed;
  return S_OK;
}

HRESULT ZORTestMediaType::IsEqual(IAudioMediaType*, DWORD* pdwFlags) {
  if (!pdwFlags) return E_POINTER;
  *pdwFlags = 0;
  return E_NOTIMPL;
}

const WAVEFORMATEX* ZORTestMediaType::GetAudioFormat() {
  return m_faults.nullWaveFormat ? nullptr : reinterpret_cast<const WAVEFORMATEX*>(m_wave.get());
}

HRESULT ZORTestMediaType::GetUncompressedAudioFormat(UNCOMPRESSEDAUDIOFORMAT* pFormat) {
  if (!pFormat) return E_POINTER;
  if (FAILED(m_faults.uncompressedQuery)) return m_faults.uncompressedQuery;
  *pFormat = m_format;
  return S_OK;
}

ZORTestConnection::ZORTestConnection(IAudioMediaType* format, void* buffer, uint32_t maxFrames)
    : m_held(format) {
  descriptor.Type = APO_CONNECTION_BUFFER_TYPE_ALLOCATED;
  descriptor.pBuffer = reinterpret_cast<UINT_PTR>(buffer);
  descriptor.u32MaxFrameCount = maxFrames;
  descriptor.pFormat = format;
  descriptor.u32Signature = APO_CONNECTION_DESCRIPTOR_SIGNATURE;
  if (format) format->AddRef();
}

ZORTestConnection::~ZORTestConnection() {
  if (m_held) m_held->Release();
}
