#include "control/controldevice.h"

std::u16string ControlDevice::DeviceId(const std::u16string& guidText, bool isRender) {
  return (isRender ? u"{0.0.0.00000000}." : u"{0.0.1.00000000}.") + guidText;
}

HRESULT ControlDevice::QueryInterface(REFIID riid, void** ppv) {
  if (!ppv) return E_POINTER;
  *ppv = IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IMMDevice)
             ? static_cast<IMMDevice*>(this)
             : nullptr;
  if (!*ppv) return E_NOINTERFACE;
  AddRef();
  return S_OK;
}

ULONG ControlDevice::AddRef() { return ++m_refs; }

ULONG ControlDevice::Release() {
  const ULONG remaining = --m_refs;
  if (remaining == 0) delete this;
  return remaining;
}

HRESULT ControlDevice::Activate(REFIID, DWORD, PROPVARIANT*, void**) { return E_NOINTERFACE; }

HRESULT ControlDevice::OpenPropertyStore(DWORD, IPropertyStore**) { return E_NOTIMPL; }

HRESULT ControlDevice::GetId(LPWSTR* id) {
  if (!id) return E_POINTER;
  *id = zor::com::CoTaskMemText(m_id);
  return *id ? S_OK : E_OUTOFMEMORY;
}

HRESULT ControlDevice::GetState(DWORD* state) {
  if (!state) return E_POINTER;
  *state = DEVICE_STATE_ACTIVE;
  return S_OK;
}
