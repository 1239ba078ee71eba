#pragma once

#include <windows.h>
#include <mediaobj.h>

#include <atomic>
#include <memory>

// The buffer that the Windows audio resampler media object reads from and
// writes to: a block of owned bytes with a length and a maximum length, and
// a reference count that starts at 1 with its creator.
//
// A long-lived buffer may be re-armed for another call (Rearm) so that the
// audio thread doesn't allocate per call; the bytes it owns stay the largest
// ever asked for. Reference counting is thread-safe; the bytes belong to one
// thread at a time.
//
// COM objects die by Release, never by delete through an interface, so the
// interface's lack of a virtual destructor is as it should be.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
class CMediaBuffer final : public IMediaBuffer {
 public:
  // A buffer of `maxLength` bytes with length 0 in *buffer, owned by the
  // caller. E_POINTER for a null out pointer, E_OUTOFMEMORY when the bytes
  // can't be allocated.
  static HRESULT Create(DWORD maxLength, IMediaBuffer** buffer);

  // Answers IUnknown and IMediaBuffer; E_NOINTERFACE otherwise.
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;

  // E_INVALIDARG for more than the maximum length.
  HRESULT STDMETHODCALLTYPE SetLength(DWORD length) override;
  HRESULT STDMETHODCALLTYPE GetMaxLength(DWORD* maxLength) override;
  // Either pointer may be null, not both (E_POINTER).
  HRESULT STDMETHODCALLTYPE GetBufferAndLength(BYTE** buffer, DWORD* length) override;

  // Makes the buffer serve as one of `maxLength` bytes with length 0, if the
  // bytes it owns suffice and no one else holds it (a media object may keep
  // an input buffer until it has used it up). audio thread
  bool Rearm(DWORD maxLength);

 private:
  CMediaBuffer(DWORD maxLength, std::unique_ptr<BYTE[]> bytes);
  ~CMediaBuffer() = default;

  DWORD m_length = 0;
  DWORD m_maxLength;
  std::atomic<ULONG> m_refCount{1};
  std::unique_ptr<BYTE[]> m_bytes;
  DWORD m_capacity;  // bytes owned; the maximum length never exceeds it
};
#pragma GCC diagnostic pop
