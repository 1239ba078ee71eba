#include "monitor/zorvistaaudiodevicemonitor.h"

ZORVistaAudioDeviceMonitor::~ZORVistaAudioDeviceMonitor() { StopMonitoring(); }

uint32_t ZORVistaAudioDeviceMonitor::CodeOfState(DWORD state) {
  switch (state) {
    case DEVICE_STATE_ACTIVE:
      return kActive;
    case DEVICE_STATE_DISABLED:
      return kDisabled;
    case DEVICE_STATE_NOTPRESENT:
      return kNotPresent;
    case DEVICE_STATE_UNPLUGGED:
      return kUnplugged;
    default:
      return kOtherState;
  }
}

bool ZORVistaAudioDeviceMonitor::SetDeviceCallback(Callback callback, void* context) {
  StopMonitoring();
  m_pCallback = callback;
  m_pContext = context;
  if (FAILED(CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                              m_pEnumerator.PutVoid()))) {
    m_pEnumerator.Reset();
    return true;
  }
  if (FAILED(m_pEnumerator->RegisterEndpointNotificationCallback(this))) {
    m_pEnumerator.Reset();
    return true;
  }
  RefreshDevices();
  return true;
}

void ZORVistaAudioDeviceMonitor::RefreshDevices() {
  if (!m_pEnumerator) return;
  ZORComPtr<IMMDeviceCollection> devices;
  if (FAILED(m_pEnumerator->EnumAudioEndpoints(eCapture, DEVICE_STATEMASK_ALL, devices.Put()))) return;
  UINT count = 0;
  if (FAILED(devices->GetCount(&count))) return;
  for (UINT index = 0; index < count; ++index) {
    ZORComPtr<IMMDevice> device;
    if (FAILED(devices->Item(index, device.Put())) || !device) return;
    DWORD state = 0;
    if (FAILED(device->GetState(&state))) state = DEVICE_STATE_NOTPRESENT;
    LPWSTR id = nullptr;
    if (FAILED(device->GetId(&id)) || !id) return;
    OnDeviceStateChanged(id, state);
    CoTaskMemFree(id);
  }
}

void ZORVistaAudioDeviceMonitor::StopMonitoring() {
  if (!m_pEnumerator) return;
  // The platform finishes any callback in flight before this returns.
  m_pEnumerator->UnregisterEndpointNotificationCallback(this);
  m_pEnumerator.Reset();
}

HRESULT ZORVistaAudioDeviceMonitor::QueryInterface(REFIID riid, void** ppv) {
  if (!ppv) return E_POINTER;
  if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IMMNotificationClient)) {
    *ppv = static_cast<IMMNotificationClient*>(this);
    return S_OK;
  }
  *ppv = nullptr;
  return E_NOINTERFACE;
}

HRESULT ZORVistaAudioDeviceMonitor::OnDeviceStateChanged(LPCWSTR deviceId, DWORD newState) {
  Report(deviceId, CodeOfState(newState));
  return S_OK;
}

HRESULT ZORVistaAudioDeviceMonitor::OnDeviceAdded(LPCWSTR deviceId) {
  Report(deviceId, kAdded);
  return S_OK;
}

HRESULT ZORVistaAudioDeviceMonitor::OnDeviceRemoved(LPCWSTR deviceId) {
  Report(deviceId, kRemoved);
  return S_OK;
}

void ZORVistaAudioDeviceMonitor::Report(LPCWSTR deviceId, uint32_t code) const {
  if (m_pCallback) m_pCallback(deviceId, code, m_pContext);
}
