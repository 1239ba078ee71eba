#include "engine/zortestendpoint.h"

HRESULT ZORTestPropertyStore::GetCount(DWORD* count) {
  if (!count) return E_POINTER;
  *count = static_cast<DWORD>(m_texts.size() + m_numbers.size());
  return S_OK;
}

HRESULT ZORTestPropertyStore::GetValue(REFPROPERTYKEY key, PROPVARIANT* value) {
  if (!value) return E_POINTER;
  PropVariantInit(value);
  if (FAILED(failReads)) return failReads;
  if (const auto text = m_texts.find(Key(key)); text != m_texts.end()) {
    value->pwszVal = zor::com::CoTaskMemText(text->second);
    if (!value->pwszVal) return E_OUTOFMEMORY;
    value->vt = VT_LPWSTR;
  } else if (const auto number = m_numbers.find(Key(key)); number != m_numbers.end()) {
    value->vt = VT_UI4;
    value->ulVal = number->second;
  }
  return S_OK;  // a missing key reads as VT_EMPTY, as a real store gives it
}

HRESULT ZORTestDevice::GetId(LPWSTR* id) {
  if (!id) return E_POINTER;
  *id = zor::com::CoTaskMemText(m_id);
  return *id ? S_OK : E_OUTOFMEMORY;
}

HRESULT ZORTestDevice::GetState(DWORD* state) {
  if (!state) return E_POINTER;
  *state = DEVICE_STATE_ACTIVE;
  return S_OK;
}

ZORTestDeviceCollection::ZORTestDeviceCollection(const std::vector<std::u16string>& ids)
    : ZORTestComObject(IID_IMMDeviceCollection) {
  for (const std::u16string& id : ids) m_devices.push_back(new ZORTestDevice(id));
}

ZORTestDeviceCollection::~ZORTestDeviceCollection() {
  for (ZORTestDevice* device : m_devices) device->Release();
}

HRESULT ZORTestDeviceCollection::GetCount(UINT* count) {
  if (!count) return E_POINTER;
  *count = static_cast<UINT>(m_devices.size());
  return S_OK;
}

HRESULT ZORTestDeviceCollection::Item(UINT index, IMMDevice** device) {
  if (!device) return E_POINTER;
  *device = nullptr;
  if (index >= m_devices.size()) return E_INVALIDARG;
  m_devices[index]->AddRef();
  *device = m_devices[index];
  return S_OK;
}
