#include "hostdevicelist.h"

#include <string>
#include <vector>

#include "platform/comobject.h"

namespace {

using zor::os::ComObject;

std::wstring IdOf(IMMDevice* device) {
  LPWSTR id = nullptr;
  std::wstring text;
  if (device != nullptr && SUCCEEDED(device->GetId(&id)) && id != nullptr) text = id;
  CoTaskMemFree(id);
  return text;
}

class DeviceCollection final : public ComObject<IMMDeviceCollection> {
 public:
  explicit DeviceCollection(std::vector<IMMDevice*> devices)
      : ComObject<IMMDeviceCollection>(IID_IMMDeviceCollection), m_devices(std::move(devices)) {}
  HRESULT STDMETHODCALLTYPE GetCount(UINT* count) override {
    if (count == nullptr) return E_POINTER;
    *count = static_cast<UINT>(m_devices.size());
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Item(UINT index, IMMDevice** device) override {
    if (device == nullptr) return E_POINTER;
    *device = nullptr;
    if (index >= m_devices.size()) return E_INVALIDARG;
    *device = m_devices[index];
    (*device)->AddRef();
    return S_OK;
  }

 private:
  ~DeviceCollection() override {
    for (IMMDevice* device : m_devices) device->Release();
  }
  std::vector<IMMDevice*> m_devices;  // counted
};

// The system's enumerator with the host's endpoint added.
class DeviceEnumerator final : public ComObject<IMMDeviceEnumerator> {
 public:
  DeviceEnumerator(IMMDeviceEnumerator* system, IMMDevice* hosted)
      : ComObject<IMMDeviceEnumerator>(IID_IMMDeviceEnumerator), m_system(system), m_hosted(hosted) {
    m_system->AddRef();
    m_hosted->AddRef();
  }
  HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow flow, DWORD mask, IMMDeviceCollection** result) override {
    if (result == nullptr) return E_POINTER;
    *result = nullptr;
    std::vector<IMMDevice*> devices;
    IMMDeviceCollection* system = nullptr;
    UINT count = 0;
    if (SUCCEEDED(m_system->EnumAudioEndpoints(flow, mask, &system)) && system != nullptr &&
        SUCCEEDED(system->GetCount(&count))) {
      for (UINT i = 0; i < count; ++i) {
        IMMDevice* device = nullptr;
        if (SUCCEEDED(system->Item(i, &device)) && device != nullptr) devices.push_back(device);
      }
    }
    if (system != nullptr) system->Release();
    const std::wstring hostedId = IdOf(m_hosted);
    bool present = false;
    for (IMMDevice* device : devices) present = present || IdOf(device) == hostedId;
    if (!present && (flow == eRender || flow == eAll) && (mask & DEVICE_STATE_ACTIVE) != 0) {
      m_hosted->AddRef();
      devices.push_back(m_hosted);
    }
    *result = new DeviceCollection(std::move(devices));
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow flow, ERole role, IMMDevice** device) override {
    return m_system->GetDefaultAudioEndpoint(flow, role, device);
  }
  HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR id, IMMDevice** device) override {
    if (id != nullptr && device != nullptr && IdOf(m_hosted) == id) {
      *device = m_hosted;
      m_hosted->AddRef();
      return S_OK;
    }
    return m_system->GetDevice(id, device);
  }
  HRESULT STDMETHODCALLTYPE RegisterEndpointNotificationCallback(IMMNotificationClient* client) override {
    return m_system->RegisterEndpointNotificationCallback(client);
  }
  HRESULT STDMETHODCALLTYPE UnregisterEndpointNotificationCallback(IMMNotificationClient* client) override {
    return m_system->UnregisterEndpointNotificationCallback(client);
  }

 private:
  ~DeviceEnumerator() override {
    m_hosted->Release();
    m_system->Release();
  }
  IMMDeviceEnumerator* m_system;
  IMMDevice* m_hosted;
};

// Stands in for the system's class object of CLSID_MMDeviceEnumerator.
class EnumeratorFactory final : public ComObject<IClassFactory> {
 public:
  EnumeratorFactory(IMMDeviceEnumerator* system, IMMDevice* hosted)
      : ComObject<IClassFactory>(IID_IClassFactory), m_system(system), m_hosted(hosted) {
    m_system->AddRef();
    m_hosted->AddRef();
  }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if (outer != nullptr) return CLASS_E_NOAGGREGATION;
    DeviceEnumerator* enumerator = new DeviceEnumerator(m_system, m_hosted);
    const HRESULT hr = enumerator->QueryInterface(riid, ppv);
    enumerator->Release();
    return hr;
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

 private:
  ~EnumeratorFactory() override {
    m_hosted->Release();
    m_system->Release();
  }
  IMMDeviceEnumerator* m_system;
  IMMDevice* m_hosted;
};

}  // namespace

HostDeviceList::HostDeviceList(IMMDevice* device) {
  // The system's own enumerator, made before ours takes its class id.
  IMMDeviceEnumerator* system = nullptr;
  if (device == nullptr || FAILED(CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL,
                                                   IID_IMMDeviceEnumerator, reinterpret_cast<void**>(&system)))) {
    return;
  }
  auto* factory = new EnumeratorFactory(system, device);
  system->Release();
  DWORD cookie = 0;
  if (SUCCEEDED(CoRegisterClassObject(CLSID_MMDeviceEnumerator, factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE,
                                      &cookie))) {
    m_cookie = cookie;
    m_factory = factory;
    m_listed = true;
  } else {
    factory->Release();
  }
}

HostDeviceList::~HostDeviceList() {
  if (m_listed) CoRevokeClassObject(m_cookie);
  if (m_factory != nullptr) m_factory->Release();
}
