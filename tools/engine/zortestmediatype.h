#pragma once
// The engine emulator's media type: what the engine hands an effect object,
// able to carry the bad input a faulty engine or a fuzzer might. Reused by
// velapo-host's tests.

#include <atomic>
#include <cstddef>
#include <memory>

#include "platform/apotypes.h"

class ZORTestMediaType final : public IAudioMediaType {
 public:
  struct Faults {
    HRESULT compressedQuery = S_OK;    // result of IsCompressedFormat
    BOOL compressed = 0;               // its answer when that succeeds
    HRESULT uncompressedQuery = S_OK;  // result of GetUncompressedAudioFormat
    bool plainWaveFormat = false;      // GetAudioFormat gives an 18-byte WAVEFORMATEX
    bool nullWaveFormat = false;       // GetAudioFormat gives null
  };

  // One reference for the caller.
  static ZORTestMediaType* Create(const UNCOMPRESSEDAUDIOFORMAT& format, const Faults& faults);
  static ZORTestMediaType* Create(const UNCOMPRESSEDAUDIOFORMAT& format) { return Create(format, Faults{}); }
  // 32-bit float with `channels` and `rate`, mask 0.
  static UNCOMPRESSEDAUDIOFORMAT Float(uint32_t channels, float rate, uint32_t validBits = 32,
                                       uint32_t container = 4);

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;
  HRESULT STDMETHODCALLTYPE IsCompressedFormat(BOOL* pfCompressed) override;
  HRESULT STDMETHODCALLTYPE IsEqual(IAudioMediaType* pIAudioType, DWORD* pdwFlags) override;
  const WAVEFORMATEX* STDMETHODCALLTYPE GetAudioFormat() override;
  HRESULT STDMETHODCALLTYPE GetUncompressedAudioFormat(UNCOMPRESSEDAUDIOFORMAT* pFormat) override;

  ULONG References() const { return m_refCount.load(); }

 private:
  ZORTestMediaType(const UNCOMPRESSEDAUDIOFORMAT& format, const Faults& faults);
  ~ZORTestMediaType() = default;

  std::atomic<ULONG> m_refCount{1};
  UNCOMPRESSEDAUDIOFORMAT m_format;
  Faults m_faults;
  // A plain format lives in a block of exactly its own size, so that a
  // reader going past it is caught by the address sanitiser.
  std::unique_ptr<unsigned char[]> m_wave;
};

// A connection as the engine sets one up for a lock: the descriptor, the
// array entry pointing at it, and the media type it holds a reference of.
struct ZORTestConnection {
  ZORTestConnection(IAudioMediaType* format, void* buffer, uint32_t maxFrames);
  ~ZORTestConnection();
  ZORTestConnection(const ZORTestConnection&) = delete;
  ZORTestConnection& operator=(const ZORTestConnection&) = delete;

  APO_CONNECTION_DESCRIPTOR descriptor{};
  APO_CONNECTION_DESCRIPTOR* entry = &descriptor;

 private:
  // Kept apart from the descriptor, which a test may spoil.
  IAudioMediaType* m_held;
};
