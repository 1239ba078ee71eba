#include "apo/zoraudiomediatype.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <new>

namespace {

// A rate as a wave format holds it: whole frames per second, saturating, so
// a negative, huge or NaN rate of the float form never converts undefinedly.
DWORD WholeRate(float framesPerSecond) {
  if (!(framesPerSecond > 0.0f)) return 0;
  if (framesPerSecond >= static_cast<float>(std::numeric_limits<DWORD>::max())) {
    return std::numeric_limits<DWORD>::max();
  }
  return static_cast<DWORD>(std::lround(framesPerSecond));
}

WORD Saturated16(uint64_t value) {
  return static_cast<WORD>(value > 0xFFFF ? 0xFFFF : value);
}

}  // namespace

HRESULT ZORAudioMediaType::Create(const UNCOMPRESSEDAUDIOFORMAT* format,
                                  IAudioMediaType** ppMediaType) {
  if (!ppMediaType) return E_POINTER;
  *ppMediaType = nullptr;
  if (!format) return E_POINTER;
  auto* mediaType = new (std::nothrow) ZORAudioMediaType(*format);
  if (!mediaType) return E_OUTOFMEMORY;
  *ppMediaType = mediaType;
  return S_OK;
}

ZORAudioMediaType::ZORAudioMediaType(const UNCOMPRESSEDAUDIOFORMAT& format) : m_format(format) {
  std::memset(&m_wave, 0, sizeof(m_wave));
  const uint64_t bytesPerFrame =
      uint64_t{format.dwSamplesPerFrame} * uint64_t{format.dwBytesPerSampleContainer};
  m_wave.Format.wFormatTag = 0xFFFE;
  m_wave.Format.nChannels = Saturated16(format.dwSamplesPerFrame);
  m_wave.Format.nSamplesPerSec = WholeRate(format.fFramesPerSecond);
  m_wave.Format.nBlockAlign = Saturated16(bytesPerFrame);
  const uint64_t bytesPerSecond = bytesPerFrame * m_wave.Format.nSamplesPerSec;
  m_wave.Format.nAvgBytesPerSec = static_cast<DWORD>(
      bytesPerSecond > std::numeric_limits<DWORD>::max() ? std::numeric_limits<DWORD>::max()
                                                         : bytesPerSecond);
  m_wave.Format.wBitsPerSample = Saturated16(uint64_t{format.dwBytesPerSampleContainer} * 8);
  m_wave.Format.cbSize = sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX);
  m_wave.Samples.wValidBitsPerSample = Saturated16(format.dwValidBitsPerSample);
  m_wave.dwChannelMask = format.dwChannelMask;
  m_wave.SubFormat = format.guidFormatType;
}

HRESULT ZORAudioMediaType::QueryInterface(REFIID riid, void** ppvObject) {
  if (!ppvObject) return E_POINTER;
  if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IAudioMediaType)) {
    *ppvObject = static_cast<IAudioMediaType*>(this);
    AddRef();
    return S_OK;
  }
  *ppvObject = nullptr;
  return E_NOINTERFACE;
}

ULONG ZORAudioMediaType::AddRef() { return m_refCount.fetch_add(1, std::memory_order_relaxed) + 1; }

ULONG ZORAudioMediaType::Release() {
  const ULONG remaining = m_refCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
  if (remaining == 0) delete this;
  return remaining;
}

HRESULT ZORAudioMediaType::IsCompressedFormat(BOOL* pfCompressed) {
  if (!pfCompressed) return E_POINTER;
  const bool uncompressed = IsEqualGUID(m_format.guidFormatType, kSubtypeIeeeFloat) ||
                            IsEqualGUID(m_format.guidFormatType, kSubtypePcm);
  *pfCompressed = uncompressed ? 0 : 1;
  return S_OK;
}

HRESULT ZORAudioMediaType::IsEqual(IAudioMediaType* pIAudioType, DWORD* pdwFlags) {
  if (!pIAudioType || !pdwFlags) return E_POINTER;
  *pdwFlags = 0;
  UNCOMPRESSEDAUDIOFORMAT other{};
  const HRESULT hr = pIAudioType->GetUncompressedAudioFormat(&other);
  if (FAILED(hr)) return hr;
  if (IsEqualGUID(other.guidFormatType, m_format.guidFormatType)) {
    *pdwFlags |= AUDIOMEDIATYPE_EQUAL_FORMAT_TYPES;
    // Field by field: the record has no padding, but a NaN rate must never
    // equal itself, as no comparison of bytes would say.
    if (other.dwSamplesPerFrame == m_format.dwSamplesPerFrame &&
        other.dwBytesPerSampleContainer == m_format.dwBytesPerSampleContainer &&
        other.dwValidBitsPerSample == m_format.dwValidBitsPerSample &&
        other.fFramesPerSecond == m_format.fFramesPerSecond &&
        other.dwChannelMask == m_format.dwChannelMask) {
      *pdwFlags |= AUDIOMEDIATYPE_EQUAL_FORMAT_DATA;
    }
  }
  constexpr DWORD kBoth = AUDIOMEDIATYPE_EQUAL_FORMAT_TYPES | AUDIOMEDIATYPE_EQUAL_FORMAT_DATA;
  return *pdwFlags == kBoth ? S_OK : S_FALSE;
}

const WAVEFORMATEX* ZORAudioMediaType::GetAudioFormat() { return &m_wave.Format; }

HRESULT ZORAudioMediaType::GetUncompressedAudioFormat(UNCOMPRESSEDAUDIOFORMAT* pFormat) {
  if (!pFormat) return E_POINTER;
  *pFormat = m_format;
  return S_OK;
}
