#pragma once
// The engine emulator's endpoint side: the FX property store and the device
// collection an init block carries, as test objects that can carry bad input
// (failing reads, values of the wrong type, collections shorter than the
// block claims). Reused by velapo-host's tests.

#include <atomic>
#include <map>
#include <string>
#include <vector>

#include "platform/com.h"

// Reference counting and QueryInterface for one interface.
template <typename Interface>
class ZORTestComObject : public Interface {
 public:
  ZORTestComObject(const IID& iid) : m_iid(iid) {}
  virtual ~ZORTestComObject() = default;
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, m_iid) ? static_cast<Interface*>(this) : nullptr;
    if (!*ppv) return E_NOINTERFACE;
    this->AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG remaining = --m_refs;
    if (remaining == 0) delete this;
    return remaining;
  }
  ULONG References() const { return m_refs.load(); }

 private:
  IID m_iid;
  std::atomic<ULONG> m_refs{1};
};

// Text values by property key; a key given as a number is stored as VT_UI4,
// so a reader expecting text meets the wrong type.
class ZORTestPropertyStore final : public ZORTestComObject<IPropertyStore> {
 public:
  ZORTestPropertyStore() : ZORTestComObject(IID_IPropertyStore) {}
  void SetText(const PROPERTYKEY& key, std::u16string text) { m_texts[Key(key)] = std::move(text); }
  void SetNumber(const PROPERTYKEY& key, ULONG number) { m_numbers[Key(key)] = number; }
  HRESULT failReads = S_OK;  // every GetValue answers this when set

  HRESULT STDMETHODCALLTYPE GetCount(DWORD* count) override;
  HRESULT STDMETHODCALLTYPE GetAt(DWORD, PROPERTYKEY*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT* value) override;
  HRESULT STDMETHODCALLTYPE SetValue(REFPROPERTYKEY, REFPROPVARIANT) override { return STG_E_ACCESSDENIED; }
  HRESULT STDMETHODCALLTYPE Commit() override { return S_OK; }

 private:
  static std::u16string Key(const PROPERTYKEY& key) { return zor::com::PropertyKeyText(key); }
  std::map<std::u16string, std::u16string> m_texts;
  std::map<std::u16string, ULONG> m_numbers;
};

class ZORTestDevice final : public ZORTestComObject<IMMDevice> {
 public:
  explicit ZORTestDevice(std::u16string id) : ZORTestComObject(IID_IMMDevice), m_id(std::move(id)) {}
  HRESULT STDMETHODCALLTYPE Activate(REFIID, DWORD, PROPVARIANT*, void**) override { return E_NOINTERFACE; }
  HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD, IPropertyStore**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetId(LPWSTR* id) override;
  HRESULT STDMETHODCALLTYPE GetState(DWORD* state) override;
  const std::u16string& Id() const { return m_id; }

 private:
  std::u16string m_id;
};

// Devices by id; an index past the end fails as the engine's collection does.
class ZORTestDeviceCollection final : public ZORTestComObject<IMMDeviceCollection> {
 public:
  explicit ZORTestDeviceCollection(const std::vector<std::u16string>& ids);
  ~ZORTestDeviceCollection() override;
  HRESULT STDMETHODCALLTYPE GetCount(UINT* count) override;
  HRESULT STDMETHODCALLTYPE Item(UINT index, IMMDevice** device) override;

 private:
  std::vector<ZORTestDevice*> m_devices;
};
