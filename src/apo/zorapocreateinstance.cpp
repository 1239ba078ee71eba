#include "apo/zorapocreateinstance.h"

#include <new>

#include "apo/czor_lfx_apo_universal.h"
#include "apo/czor_lfx_capture_apo_universal.h"

namespace {

template <typename Class>
HRESULT Make(REFIID riid, void** ppv) {
  Class* object = new (std::nothrow) Class();
  if (!object) return E_OUTOFMEMORY;
  HRESULT hr = object->FinalConstruct();
  if (SUCCEEDED(hr)) hr = object->QueryInterface(riid, ppv);
  object->Release();  // the creation reference; a failed query ends the object
  return hr;
}

using Maker = HRESULT (*)(REFIID, void**);

Maker MakerFor(REFCLSID clsid) {
  if (IsEqualGUID(clsid, ZORAPOCaptureClass().regProperties->clsid)) return &Make<CZOR_LFX_Capture_APO_Universal>;
  constexpr Maker kRender[] = {&Make<CZOR_LFX_APO_Universal>, &Make<CVEL_SFX_APO>,  &Make<CVEL_MFX_APO>,
                               &Make<CVEL_EFX_APO>,           &Make<CVEL_OSFX_APO>, &Make<CVEL_OMFX_APO>};
  for (const ZORAPOClassInfo& info : ZORAPOClasses()) {
    if (info.location < kZORRenderLocationCount && IsEqualGUID(clsid, info.regProperties->clsid)) {
      return kRender[info.location];
    }
  }
  return nullptr;
}

}  // namespace

HRESULT ZORAPOCreateInstance(REFCLSID clsid, IUnknown* outer, REFIID riid, void** ppv) {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  if (outer) return CLASS_E_NOAGGREGATION;
  const Maker maker = MakerFor(clsid);
  return maker ? maker(riid, ppv) : REGDB_E_CLASSNOTREG;
}
