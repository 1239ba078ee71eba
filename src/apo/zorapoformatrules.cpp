#include "apo/zorapoformatrules.h"

#include <cmath>
#include <cstring>

#include "apo/zoraudiomediatype.h"
#include "core/zorlog.h"

namespace {

constexpr float kMaxFramesPerSecond = 192000.0f;

// Compressed formats are refused; a failing query is passed on.
HRESULT CheckUncompressed(IAudioMediaType* format) {
  BOOL compressed = 0;
  const HRESULT hr = format->IsCompressedFormat(&compressed);
  if (FAILED(hr)) return hr;
  return compressed ? APOERR_FORMAT_NOT_SUPPORTED : S_OK;
}

HRESULT HandBack(IAudioMediaType* format, IAudioMediaType** ppSupported) {
  format->AddRef();
  *ppSupported = format;
  return S_OK;
}

}  // namespace

bool ZORAPOFormatRules::IsFormatAcceptable(Family family, const UNCOMPRESSEDAUDIOFORMAT& format) {
  if (!IsEqualGUID(format.guidFormatType, kSubtypeIeeeFloat)) return false;
  if (format.dwValidBitsPerSample != 32) return false;
  if (family == Family::Render) {
    // 2, 4, 6 and 8 are the values whose distance from 2 has only bits 1
    // and 2; unsigned, so 0 and 1 wrap and fail.
    return ((format.dwSamplesPerFrame - 2u) & ~6u) == 0;
  }
  return format.dwSamplesPerFrame <= 2;
}

HRESULT ZORAPOFormatRules::Negotiate(Family family, Direction direction, IAudioMediaType* opposite,
                                     IAudioMediaType* requested, IAudioMediaType** ppSupported) {
  if (!ppSupported || !requested) return E_POINTER;
  HRESULT hr = CheckUncompressed(requested);
  if (hr != S_OK) return hr;
  if (opposite) {
    hr = CheckUncompressed(opposite);
    if (hr != S_OK) return hr;
  }

  UNCOMPRESSEDAUDIOFORMAT request{};
  hr = requested->GetUncompressedAudioFormat(&request);
  if (FAILED(hr)) return hr;
  UNCOMPRESSEDAUDIOFORMAT other{};
  if (opposite) {
    hr = opposite->GetUncompressedAudioFormat(&other);
    if (FAILED(hr)) return hr;
  } else if (family == Family::Render) {
    if (direction == Direction::Input) {
      ZOR_LOG("IsInputFormatSupported - Proposed output format is 'ANY'\n");
    } else {
      ZOR_LOG("IsOutputFormatSupported - Proposed Input format is 'ANY'\n");
    }
  }

  const bool requestOk = IsFormatAcceptable(family, request);
  const bool oppositeOk = !opposite || IsFormatAcceptable(family, other);
  const bool ratesEqual = !opposite || request.fFramesPerSecond == other.fFramesPerSecond;
  // Only an upper bound: the engine never asks below 8 kHz, and the manager
  // copes with any rate it is given. A NaN fails here.
  const bool rateOk = kMaxFramesPerSecond >= request.fFramesPerSecond;

  if (family == Family::Render && direction == Direction::Input) {
    const bool accepted = requestOk && oppositeOk && ratesEqual && rateOk;
    ZOR_LOG("IsInputFormatSupported - %s\n", accepted ? "ACCEPTED" : ">>REJECTED<<");
  }

  if (requestOk && oppositeOk && rateOk) {
    if (ratesEqual) return HandBack(requested, ppSupported);
    // Only the rate differs: propose the request at the opposite's rate,
    // keeping its channel mask.
    UNCOMPRESSEDAUDIOFORMAT proposal = request;
    proposal.fFramesPerSecond = other.fFramesPerSecond;
    IAudioMediaType* proposed = nullptr;
    if (FAILED(ZORAudioMediaType::Create(&proposal, &proposed))) return APOERR_FORMAT_NOT_SUPPORTED;
    *ppSupported = proposed;
    return S_FALSE;
  }
  return APOERR_FORMAT_NOT_SUPPORTED;
}

bool ZORAPOFormatRules::ValidateDefaultAPOFormat(UNCOMPRESSEDAUDIOFORMAT& format) {
  bool changed = false;
  if (!IsEqualGUID(format.guidFormatType, kSubtypeIeeeFloat)) {
    format.guidFormatType = kSubtypeIeeeFloat;
    changed = true;
  }
  if (format.dwSamplesPerFrame < 1) {
    format.dwSamplesPerFrame = 1;
    changed = true;
  } else if (format.dwSamplesPerFrame > 4096) {
    format.dwSamplesPerFrame = 4096;
    changed = true;
  }
  if (format.dwBytesPerSampleContainer != 4) {
    format.dwBytesPerSampleContainer = 4;
    changed = true;
  }
  if (format.dwValidBitsPerSample != 32) {
    format.dwValidBitsPerSample = 32;
    changed = true;
  }
  // Written so that a NaN rate, which compares false both ways, lands on the
  // lower bound rather than staying.
  if (!(format.fFramesPerSecond >= 10.0f)) {
    format.fFramesPerSecond = 10.0f;
    changed = true;
  } else if (format.fFramesPerSecond > 384000.0f) {
    format.fFramesPerSecond = 384000.0f;
    changed = true;
  }
  return changed;
}

void ZORAPOFormatRules::CacheWaveFormat(IAudioMediaType* format, WAVEFORMATEXTENSIBLE& cache) {
  if (!format) return;
  const WAVEFORMATEX* wave = format->GetAudioFormat();
  if (!wave) return;
  auto* target = reinterpret_cast<unsigned char*>(&cache);
  const auto* source = reinterpret_cast<const unsigned char*>(wave);
  constexpr std::size_t kLeading = offsetof(WAVEFORMATEX, cbSize);  // 16
  std::memcpy(target, source, kLeading);
  if (wave->wFormatTag == 0xFFFE) {
    std::memcpy(target + kLeading, source + kLeading, sizeof(WAVEFORMATEXTENSIBLE) - kLeading);
  } else {
    std::memcpy(target + kLeading, source + kLeading, sizeof(WORD));
  }
}
