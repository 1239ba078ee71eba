#pragma once
// ZORAPOClassFactory: the class factory of one effect class. It makes no
// objects itself: the module's class table does, and the factory only adds
// the rules every factory keeps (no aggregation, a null out pointer refused,
// the out pointer cleared on every failure). The factory lives as long as
// the module; its references count as locks on the module, as LockServer's
// do, so a host holding a factory keeps the module loaded.

#include <atomic>

#include "platform/com.h"

class CZOR_APOModule;

class ZORAPOClassFactory final : public IClassFactory {
 public:
  ZORAPOClassFactory() = default;
  ZORAPOClassFactory(const ZORAPOClassFactory&) = delete;
  ZORAPOClassFactory& operator=(const ZORAPOClassFactory&) = delete;

  void Bind(CZOR_APOModule* module, const CLSID& clsid);
  const CLSID& Clsid() const { return m_clsid; }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override;
  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override;

 private:
  CZOR_APOModule* m_module = nullptr;
  CLSID m_clsid{};
};
