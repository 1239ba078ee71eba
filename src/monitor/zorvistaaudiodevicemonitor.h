#pragma once

#include <cstdint>

#include "platform/com.h"

// Tells one callback the state of every capture device: those present when
// the callback is set, then each later change. A notification client of the
// platform's enumerator; it is not reference counted (AddRef answers 2,
// Release 1): its owner deletes it, and the destructor unregisters first.
//
// Callbacks come on the enumerator's notification thread and the object has
// no lock: the callback looks after itself. Once the destructor (or
// StopMonitoring) returns, no callback runs or is running.
class ZORVistaAudioDeviceMonitor : public IMMNotificationClient {
 public:
  // Codes given to the callback.
  enum Code : uint32_t {
    kAdded = 0,
    kRemoved = 1,
    kDisabled = 2,
    kActive = 3,
    kNotPresent = 4,
    kUnplugged = 5,
    kOtherState = 6,
  };
  using Callback = void (*)(LPCWSTR deviceId, uint32_t code, void* context);

  ZORVistaAudioDeviceMonitor() = default;
  virtual ~ZORVistaAudioDeviceMonitor();
  ZORVistaAudioDeviceMonitor(const ZORVistaAudioDeviceMonitor&) = delete;
  ZORVistaAudioDeviceMonitor& operator=(const ZORVistaAudioDeviceMonitor&) = delete;

  // Replaces the callback, registers with a fresh enumerator and reports the
  // present devices before it returns. Always true: a missing enumerator
  // only means no reports.
  bool SetDeviceCallback(Callback callback, void* context);
  // Reports every capture device, in any state, through OnDeviceStateChanged.
  void RefreshDevices();
  void StopMonitoring();

  static uint32_t CodeOfState(DWORD state);

  // IUnknown
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }

  // IMMNotificationClient
  HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR deviceId, DWORD newState) override;
  HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR deviceId) override;
  HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR deviceId) override;
  HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow, ERole, LPCWSTR) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY) override { return S_OK; }

 private:
  void Report(LPCWSTR deviceId, uint32_t code) const;

  ZORComPtr<IMMDeviceEnumerator> m_pEnumerator;
  Callback m_pCallback = nullptr;
  void* m_pContext = nullptr;
};
