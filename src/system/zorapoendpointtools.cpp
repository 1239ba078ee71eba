#include "system/zorapoendpointtools.h"

#include <string>

#include "core/zorscopedlock.h"
#include "platform/registry.h"

namespace {

// Makes a fresh enumerator for one operation; none is kept.
ZORComPtr<IMMDeviceEnumerator> MakeEnumerator() {
  ZORComPtr<IMMDeviceEnumerator> enumerator;
  if (FAILED(CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                              enumerator.PutVoid()))) {
    enumerator.Reset();
  }
  return enumerator;
}

bool IsKnownState(DWORD state) {
  return state == DEVICE_STATE_ACTIVE || state == DEVICE_STATE_DISABLED || state == DEVICE_STATE_NOTPRESENT ||
         state == DEVICE_STATE_UNPLUGGED;
}

constexpr std::u16string_view kSettingsRoot = u"Software\\VEL\\APO";
constexpr std::u16string_view kInitFxSwitch = u"InitFxProperties";
constexpr std::u16string_view kEndpointRoots[] = {
    u"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\Render\\",
    u"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\Capture\\",
};
constexpr size_t kMaxSubKeyUnits = 260;

}  // namespace

ZORAPOEndpointTools::ZORAPOEndpointTools() = default;

ZORAPOEndpointTools::~ZORAPOEndpointTools() { Stop(); }

HRESULT ZORAPOEndpointTools::QueryInterface(REFIID riid, void** ppvObject) {
  if (!ppvObject) return E_NOINTERFACE;
  if (IsEqualGUID(riid, IID_IUnknown) || IsEqualGUID(riid, IID_IMMNotificationClient)) {
    *ppvObject = static_cast<IMMNotificationClient*>(this);
    return S_OK;
  }
  *ppvObject = nullptr;
  return E_NOINTERFACE;
}

ULONG ZORAPOEndpointTools::AddRef() { return 2; }

ULONG ZORAPOEndpointTools::Release() { return 1; }

HRESULT ZORAPOEndpointTools::OnDeviceStateChanged(LPCWSTR, DWORD newState) {
  const HRESULT init = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  if (IsKnownState(newState) && m_deviceEvent) {
    m_pendingCode.store(newState == DEVICE_STATE_ACTIVE ? kEventDeviceActive : kEventDeviceInactive);
    m_deviceEvent->Set();
  }
  if (init == S_OK || init == S_FALSE) CoUninitialize();
  return S_OK;
}

HRESULT ZORAPOEndpointTools::OnDeviceAdded(LPCWSTR) { return S_OK; }

HRESULT ZORAPOEndpointTools::OnDeviceRemoved(LPCWSTR) { return S_OK; }

HRESULT ZORAPOEndpointTools::OnDefaultDeviceChanged(EDataFlow, ERole, LPCWSTR) {
  if (m_deviceEvent) {
    m_pendingCode.store(kEventDefaultChanged);
    m_deviceEvent->Set();
  }
  return S_OK;
}

HRESULT ZORAPOEndpointTools::OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY key) {
  if (zor::com::PropertyKeysEqual(key, PKEY_AudioEndpoint_Disable_SysFx) && m_propertyEvent) {
    m_propertyEvent->Set();
  }
  return S_OK;
}

bool ZORAPOEndpointTools::GetEndpoints(std::vector<ZORAPOEndpointInfo>& endpoints) {
  return ListActive(eRender, endpoints);
}

bool ZORAPOEndpointTools::GetCaptureEndpoints(std::vector<ZORAPOEndpointInfo>& endpoints) {
  return ListActive(eCapture, endpoints);
}

bool ZORAPOEndpointTools::ListActive(EDataFlow flow, std::vector<ZORAPOEndpointInfo>& endpoints) {
  endpoints.clear();
  ZORComPtr<IMMDeviceEnumerator> enumerator = MakeEnumerator();
  ZORComPtr<IMMDeviceCollection> collection;
  UINT count = 0;
  if (!enumerator ||
      FAILED(enumerator->EnumAudioEndpoints(flow, DEVICE_STATEMASK_ALL, collection.Put())) ||
      !collection || FAILED(collection->GetCount(&count))) {
    return false;
  }
  std::vector<ZORComPtr<IMMDevice>> active;
  for (UINT index = 0; index < count; ++index) {
    ZORComPtr<IMMDevice> device;
    DWORD state = 0;
    if (FAILED(collection->Item(index, device.Put())) || !device || FAILED(device->GetState(&state))) break;
    if (state == DEVICE_STATE_ACTIVE) active.push_back(device);
  }
  for (const ZORComPtr<IMMDevice>& device : active) {
    ZORAPOEndpointInfo info;
    if (info.SetDevice(device.Get(), flow == eRender)) endpoints.push_back(info);
  }
  return !endpoints.empty();
}

bool ZORAPOEndpointTools::SetDefaultEndpoint(const ZORAPOEndpointInfo& endpoint) {
  ZORComPtr<IPolicyConfigVista> policy;
  if (FAILED(CoCreateInstance(CLSID_PolicyConfigVistaClient, nullptr, CLSCTX_ALL, IID_IPolicyConfigVista,
                              policy.PutVoid())) ||
      !policy) {
    return false;
  }
  return SUCCEEDED(policy->SetDefaultEndpoint(zor::com::ToComText(endpoint.GetDeviceId().c_str()), eConsole));
}

bool ZORAPOEndpointTools::GetDefaultEndpoint(ZORAPOEndpointInfo& endpoint) {
  ZORComPtr<IMMDeviceEnumerator> enumerator = MakeEnumerator();
  ZORComPtr<IMMDevice> device;
  if (!enumerator || FAILED(enumerator->GetDefaultAudioEndpoint(eRender, eMultimedia, device.Put())) || !device) {
    return false;
  }
  return endpoint.SetDevice(device.Get(), true);
}

void ZORAPOEndpointTools::Register(IZORAPOEndpointNotify* observer) {
  ZORScopedLock lock(m_observerLock);
  if (m_observers.empty()) {
    // The worker starts before the observer is in: an event in that gap
    // reaches nobody.
    lock.Unlock();
    Start();
    lock.Lock();
  }
  m_observers[observer] = true;
}

void ZORAPOEndpointTools::Unregister(IZORAPOEndpointNotify* observer) {
  ZORScopedLock lock(m_observerLock);
  m_observers[observer] = false;
}

size_t ZORAPOEndpointTools::ObserverEntries() const {
  ZORScopedLock lock(m_observerLock);
  return m_observers.size();
}

bool ZORAPOEndpointTools::Start() {
  Stop();
  if (!m_deviceEvent) m_deviceEvent = std::make_unique<zor::os::Event>(zor::os::EventReset::Auto);
  if (!m_propertyEvent) m_propertyEvent = std::make_unique<zor::os::Event>(zor::os::EventReset::Auto);
  ZORComPtr<IMMDeviceEnumerator> enumerator = MakeEnumerator();
  if (!enumerator || FAILED(enumerator->RegisterEndpointNotificationCallback(this))) return false;
  return m_thread.Start(this);
}

bool ZORAPOEndpointTools::Stop() {
  m_thread.Stop();
  ZORComPtr<IMMDeviceEnumerator> enumerator = MakeEnumerator();
  return enumerator && SUCCEEDED(enumerator->UnregisterEndpointNotificationCallback(this));
}

void ZORAPOEndpointTools::Broadcast(int32_t code) {
  ZORScopedLock lock(m_observerLock);
  for (const auto& [observer, enabled] : m_observers) {
    if (enabled) observer->OnEndpointEvent(code);
  }
}

bool ZORAPOEndpointTools::Run(ZORThreadBasic&, zor::os::Event& stopEvent) {
  zor::os::Event* const events[] = {&stopEvent, m_deviceEvent.get(), m_propertyEvent.get()};
  for (;;) {
    switch (zor::os::WaitAny(events, 3, zor::os::kInfinite)) {
      case 0:
        return true;
      case 1: {
        // Not reset: two callbacks before this wake collapse into the later.
        const int32_t code = m_pendingCode.load();
        if (code < kEventNone) Broadcast(code);
        break;
      }
      case 2:
        Broadcast(kEventSysFxChanged);
        break;
      default:
        break;
    }
  }
}

bool InitFxProperties(const char16_t* path) {
  if (!path) {
    zor::os::RegKey settings;
    uint32_t enabled = 0;
    if (zor::os::RegKey::Open(kSettingsRoot, zor::os::kKeyQueryValue, settings) != zor::os::RegStatus::Ok ||
        settings.ReadDword(kInitFxSwitch, enabled) != zor::os::RegStatus::Ok || enabled == 0) {
      return true;
    }
    const bool render = InitFxProperties(std::u16string(kEndpointRoots[0]).c_str());
    const bool capture = InitFxProperties(std::u16string(kEndpointRoots[1]).c_str());
    return render && capture;
  }
  std::u16string_view parentPath(path);
  while (parentPath.ends_with(u'\\')) parentPath.remove_suffix(1);
  zor::os::RegKey parent;
  if (zor::os::RegKey::Open(parentPath, zor::os::kKeyCreateSubKey | zor::os::kKeyEnumerateSubKeys, parent) !=
      zor::os::RegStatus::Ok) {
    return false;
  }
  bool result = true;
  std::u16string name;
  for (uint32_t index = 0; parent.EnumSubKey(index, name) == zor::os::RegStatus::Ok; ++index) {
    if (name.size() > kMaxSubKeyUnits) continue;
    zor::os::RegKey fxProperties;
    if (parent.CreateSubKey(name + u"\\FxProperties", zor::os::kKeyQueryValue, fxProperties) !=
        zor::os::RegStatus::Ok) {
      result = false;
    }
  }
  return result;
}
