#pragma once

#include <atomic>

#include "platform/apotypes.h"

// The media type effect objects are handed and hand back: an uncompressed
// format and the extensible wave format made from it. The engine's own
// library makes these on Windows; Wine and Linux lack it, so velapo makes its
// own, for the formats it proposes and for the hosts that stand in for the
// engine. Immutable after creation; its count is atomic, any thread.
class ZORAudioMediaType final : public IAudioMediaType {
 public:
  // Makes a media type of `format` with one reference for the caller.
  // E_POINTER for a null argument, E_OUTOFMEMORY when allocation fails.
  static HRESULT Create(const UNCOMPRESSEDAUDIOFORMAT* format, IAudioMediaType** ppMediaType);

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;

  // Only integer PCM and float samples are uncompressed.
  HRESULT STDMETHODCALLTYPE IsCompressedFormat(BOOL* pfCompressed) override;
  // Flags AUDIOMEDIATYPE_EQUAL_FORMAT_TYPES when the sample types match and
  // AUDIOMEDIATYPE_EQUAL_FORMAT_DATA when the whole format does; S_OK only
  // when both hold, S_FALSE otherwise.
  HRESULT STDMETHODCALLTYPE IsEqual(IAudioMediaType* pIAudioType, DWORD* pdwFlags) override;
  const WAVEFORMATEX* STDMETHODCALLTYPE GetAudioFormat() override;
  HRESULT STDMETHODCALLTYPE GetUncompressedAudioFormat(UNCOMPRESSEDAUDIOFORMAT* pFormat) override;

 private:
  explicit ZORAudioMediaType(const UNCOMPRESSEDAUDIOFORMAT& format);
  ~ZORAudioMediaType() = default;

  std::atomic<ULONG> m_refCount{1};
  UNCOMPRESSEDAUDIOFORMAT m_format;
  WAVEFORMATEXTENSIBLE m_wave;
};
