#include "module/zorapoclassfactory.h"

#include "module/czor_apomodule.h"

void ZORAPOClassFactory::Bind(CZOR_APOModule* module, const CLSID& clsid) {
  m_module = module;
  m_clsid = clsid;
}

HRESULT ZORAPOClassFactory::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IClassFactory)) {
    *ppv = static_cast<IClassFactory*>(this);
    AddRef();
    return S_OK;
  }
  *ppv = nullptr;
  return E_NOINTERFACE;
}

ULONG ZORAPOClassFactory::AddRef() { return m_module->Lock(); }

ULONG ZORAPOClassFactory::Release() { return m_module->Unlock(); }

HRESULT ZORAPOClassFactory::CreateInstance(IUnknown* outer, REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  // The effect objects hand out their own interfaces only; nothing may
  // wrap them as an inner object.
  if (outer != nullptr) return CLASS_E_NOAGGREGATION;
  const ZORAPOClassTable& table = m_module->Table();
  if (table.create == nullptr) return CLASS_E_CLASSNOTAVAILABLE;
  const HRESULT hr = table.create(m_clsid, riid, ppv);
  if (FAILED(hr)) *ppv = nullptr;
  return hr;
}

HRESULT ZORAPOClassFactory::LockServer(BOOL lock) {
  if (lock) {
    m_module->Lock();
    return S_OK;
  }
  // An unlock that no lock preceded would let a host's objects outlive
  // the module; it is refused rather than counted.
  return m_module->Unlock() != ULONG(-1) ? S_OK : E_UNEXPECTED;
}
