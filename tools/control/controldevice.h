#pragma once
// ControlDevice: an IMMDevice that is nothing but an endpoint's id. What a
// control panel needs of an endpoint (its settings key, configuration,
// effects switch, meter names) comes from the endpoint's keys in the store,
// which ZORAPOEndpointInfo reads from the id alone; so a panel reaches an
// endpoint the system's enumerator does not list (Wine lists only its
// driver's endpoints) as well as one it does.
#include <atomic>
#include <string>

#include "platform/com.h"

class ControlDevice final : public IMMDevice {
 public:
  // "{0.0.0.00000000}.{GUID}" for render, "{0.0.1.00000000}.{GUID}" for
  // capture, as the system forms device ids.
  static std::u16string DeviceId(const std::u16string& guidText, bool isRender);

  explicit ControlDevice(std::u16string id) : m_id(std::move(id)) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;
  HRESULT STDMETHODCALLTYPE Activate(REFIID, DWORD, PROPVARIANT*, void**) override;
  HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD, IPropertyStore**) override;
  HRESULT STDMETHODCALLTYPE GetId(LPWSTR* id) override;
  HRESULT STDMETHODCALLTYPE GetState(DWORD* state) override;

 private:
  ~ControlDevice() = default;
  std::u16string m_id;
  std::atomic<ULONG> m_refs{1};
};
