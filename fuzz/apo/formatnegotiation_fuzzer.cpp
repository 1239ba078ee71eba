// Fuzzes what the audio engine hands an effect object before a stream: the
// formats of its media types and the wave format behind them, any bytes at
// all. Beyond "no crash, no over-read", it checks the laws of the talks: an
// accepted format is handed back as it stood, a proposal differs from the
// request in its rate alone, and a default format forced into range stays
// there.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "apo/zoraudiomediatype.h"
#include "apo/zorapoformatrules.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

// A media type whose wave format is the input's bytes in a block of exactly
// their size, so any read past them is caught.
class RawMediaType final : public IAudioMediaType {
 public:
  RawMediaType(const UNCOMPRESSEDAUDIOFORMAT& format, const uint8_t* wave, size_t bytes)
      : m_format(format), m_wave(new uint8_t[bytes]) {
    std::memcpy(m_wave.get(), wave, bytes);
  }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppv) override {
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }
  ULONG STDMETHODCALLTYPE Release() override { return --m_refs; }
  HRESULT STDMETHODCALLTYPE IsCompressedFormat(BOOL* compressed) override {
    *compressed = IsEqualGUID(m_format.guidFormatType, kSubtypeIeeeFloat) ? 0 : 1;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE IsEqual(IAudioMediaType*, DWORD*) override { return E_NOTIMPL; }
  const WAVEFORMATEX* STDMETHODCALLTYPE GetAudioFormat() override {
    return reinterpret_cast<const WAVEFORMATEX*>(m_wave.get());
  }
  HRESULT STDMETHODCALLTYPE GetUncompressedAudioFormat(UNCOMPRESSEDAUDIOFORMAT* format) override {
    *format = m_format;
    return S_OK;
  }
  ULONG m_refs = 1;

 private:
  UNCOMPRESSEDAUDIOFORMAT m_format;
  std::unique_ptr<uint8_t[]> m_wave;
};

UNCOMPRESSEDAUDIOFORMAT Take(const uint8_t*& data, size_t& size) {
  UNCOMPRESSEDAUDIOFORMAT format{};
  const size_t n = size < sizeof(format) ? size : sizeof(format);
  std::memcpy(&format, data, n);
  data += n;
  size -= n;
  // Half the time a float subtype, or little would get past the first test.
  if (n > 0 && (data[-1] & 1)) format.guidFormatType = kSubtypeIeeeFloat;
  return format;
}

bool SameExceptRate(const UNCOMPRESSEDAUDIOFORMAT& a, const UNCOMPRESSEDAUDIOFORMAT& b) {
  return IsEqualGUID(a.guidFormatType, b.guidFormatType) && a.dwSamplesPerFrame == b.dwSamplesPerFrame &&
         a.dwBytesPerSampleContainer == b.dwBytesPerSampleContainer &&
         a.dwValidBitsPerSample == b.dwValidBitsPerSample && a.dwChannelMask == b.dwChannelMask;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const uint8_t mode = *data++;
  --size;
  const UNCOMPRESSEDAUDIOFORMAT request = Take(data, size);
  const UNCOMPRESSEDAUDIOFORMAT opposite = Take(data, size);
  // The rest is the wave format; the cache needs at least the leading 18.
  if (size < sizeof(WAVEFORMATEX)) return 0;
  RawMediaType requested(request, data, size);
  RawMediaType other(opposite, data, size);

  const auto family = (mode & 1) ? ZORAPOFormatRules::Family::Capture : ZORAPOFormatRules::Family::Render;
  const auto direction = (mode & 2) ? ZORAPOFormatRules::Direction::Output : ZORAPOFormatRules::Direction::Input;
  IAudioMediaType* supported = nullptr;
  const HRESULT hr =
      ZORAPOFormatRules::Negotiate(family, direction, (mode & 4) ? nullptr : &other, &requested, &supported);
  if (hr == S_OK) {
    Require(supported == &requested && requested.m_refs == 2);
  } else if (hr == S_FALSE) {
    UNCOMPRESSEDAUDIOFORMAT proposal{};
    Require(supported->GetUncompressedAudioFormat(&proposal) == S_OK);
    Require(SameExceptRate(proposal, request));
    Require(std::memcmp(&proposal.fFramesPerSecond, &opposite.fFramesPerSecond, sizeof(float)) == 0);
    supported->Release();
  } else {
    Require(hr == APOERR_FORMAT_NOT_SUPPORTED && supported == nullptr);
  }

  UNCOMPRESSEDAUDIOFORMAT forced = request;
  ZORAPOFormatRules::ValidateDefaultAPOFormat(forced);
  Require(!ZORAPOFormatRules::ValidateDefaultAPOFormat(forced));
  Require(forced.dwSamplesPerFrame >= 1 && forced.dwSamplesPerFrame <= 4096);
  Require(forced.fFramesPerSecond >= 10.0f && forced.fFramesPerSecond <= 384000.0f);

  WAVEFORMATEXTENSIBLE cache;
  std::memset(&cache, 0xA5, sizeof(cache));
  const auto* wave = reinterpret_cast<const WAVEFORMATEX*>(data);
  // An extensible tag promises 40 bytes; the engine keeps that promise, so
  // only inputs that do are handed over.
  if (wave->wFormatTag != 0xFFFE || size >= sizeof(WAVEFORMATEXTENSIBLE)) {
    ZORAPOFormatRules::CacheWaveFormat(&requested, cache);
    Require(std::memcmp(&cache, data, 16) == 0);
  }
  return 0;
}
