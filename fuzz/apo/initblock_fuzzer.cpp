// Fuzzes the init block a render object reads in Initialize: any size and
// any bytes, with the pointer slots pointing at a real property store and
// device collection or null (an engine never hands over wild pointers, and
// nothing could check them). Beyond "no crash, no over-read", it checks that
// a refused block leaves nothing taken and that an accepted one gives back
// every reference when dropped.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "apo/zorapoinitblock.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

struct Store final : IPropertyStore {
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs; }
  HRESULT STDMETHODCALLTYPE GetCount(DWORD* count) override { return *count = 0, S_OK; }
  HRESULT STDMETHODCALLTYPE GetAt(DWORD, PROPERTYKEY*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY, PROPVARIANT* value) override {
    PropVariantInit(value);
    value->vt = VT_LPWSTR;
    value->pwszVal = zor::com::CoTaskMemText(u"{endpoint}");
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetValue(REFPROPERTYKEY, REFPROPVARIANT) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Commit() override { return S_OK; }
  ULONG refs = 1;
};

struct Device final : IMMDevice {
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs; }
  HRESULT STDMETHODCALLTYPE Activate(REFIID, DWORD, PROPVARIANT*, void**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD, IPropertyStore**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetId(LPWSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetState(DWORD*) override { return E_NOTIMPL; }
  ULONG refs = 1;
};

struct Collection final : IMMDeviceCollection {
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs; }
  HRESULT STDMETHODCALLTYPE GetCount(UINT* count) override { return *count = 2, S_OK; }
  HRESULT STDMETHODCALLTYPE Item(UINT index, IMMDevice** device) override {
    *device = nullptr;
    if (index >= 2) return E_INVALIDARG;
    devices[index].AddRef();
    *device = &devices[index];
    return S_OK;
  }
  Device devices[2];
  ULONG refs = 1;
};

template <typename T>
void PutPointer(std::vector<uint8_t>& bytes, size_t offset, T* pointer) {
  if (bytes.size() >= offset + sizeof(pointer)) std::memcpy(bytes.data() + offset, &pointer, sizeof(pointer));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const uint8_t choice = *data++;
  std::vector<uint8_t> bytes(data, data + size - 1);
  Store store;
  Collection collection;
  PutPointer<IPropertyStore>(bytes, offsetof(APOInitSystemEffects, pAPOEndpointProperties), nullptr);
  PutPointer<IPropertyStore>(bytes, offsetof(APOInitSystemEffects, pAPOSystemEffectsProperties),
                             (choice & 1) ? &store : nullptr);
  PutPointer<void>(bytes, offsetof(APOInitSystemEffects, pReserved), nullptr);
  PutPointer<IMMDeviceCollection>(bytes, offsetof(APOInitSystemEffects, pDeviceCollection),
                                  (choice & 2) ? &collection : nullptr);
  {
    ZORAPOInitBlock block;
    const HRESULT hr = ZORAPOInitBlock::Read(static_cast<UINT32>(bytes.size()), bytes.data(), block);
    Require(hr == S_OK || hr == E_INVALIDARG);
    if (hr == E_INVALIDARG) Require(!block.fxProperties && !block.device);
    Require(block.contentIndex <= 5);
  }
  Require(store.refs == 1 && collection.refs == 1);
  Require(collection.devices[0].refs == 1 && collection.devices[1].refs == 1);
  return 0;
}
