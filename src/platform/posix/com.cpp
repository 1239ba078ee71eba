// COM's basic services for the Linux build: task memory, the per-thread
// initialisation count, GUID parsing, variant clearing, and the class
// factory for the two classes the platform layer provides.
#include <cstdlib>

#include "platform/com.h"
#include "platform/posix/mmdevices.h"

void* CoTaskMemAlloc(std::size_t bytes) { return std::malloc(bytes == 0 ? 1 : bytes); }

void CoTaskMemFree(void* memory) { std::free(memory); }

namespace {

struct ApartmentState {
  uint32_t count = 0;
  DWORD model = 0;
};
thread_local ApartmentState t_apartment;

}  // namespace

HRESULT CoInitializeEx(void* /*reserved*/, DWORD coInit) {
  const DWORD model = coInit & COINIT_APARTMENTTHREADED;
  if (t_apartment.count == 0) {
    t_apartment.model = model;
    ++t_apartment.count;
    return S_OK;
  }
  if (t_apartment.model != model) return RPC_E_CHANGED_MODE;
  ++t_apartment.count;
  return S_FALSE;
}

void CoUninitialize() {
  if (t_apartment.count > 0) --t_apartment.count;
}

HRESULT CLSIDFromString(LPCOLESTR text, CLSID* clsid) {
  if (!clsid) return E_INVALIDARG;
  *clsid = GUID_NULL;
  if (!text) return S_OK;
  std::u16string_view view(text);
  return zor::com::ParseGuidText(view, *clsid) ? S_OK : CO_E_CLASSSTRING;
}

HRESULT PropVariantClear(PROPVARIANT* value) {
  if (!value) return S_OK;
  switch (value->vt) {
    case VT_LPWSTR:
      CoTaskMemFree(value->pwszVal);
      break;
    case VT_LPSTR:
      CoTaskMemFree(value->pszVal);
      break;
    case VT_BLOB:
      CoTaskMemFree(value->blob.pBlobData);
      break;
    case VT_CLSID:
      CoTaskMemFree(value->puuid);
      break;
    case VT_VECTOR | VT_LPWSTR:
      for (ULONG i = 0; i < value->calpwstr.cElems; ++i) CoTaskMemFree(value->calpwstr.pElems[i]);
      CoTaskMemFree(value->calpwstr.pElems);
      break;
    default:
      break;
  }
  PropVariantInit(value);
  return S_OK;
}

HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD /*context*/, REFIID riid,
                         void** ppv) {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  if (outer) return CLASS_E_NOAGGREGATION;
  if (IsEqualGUID(clsid, CLSID_MMDeviceEnumerator)) return zor::os::CreateDeviceEnumerator(riid, ppv);
  if (IsEqualGUID(clsid, CLSID_PolicyConfigVistaClient)) return zor::os::CreatePolicyConfig(riid, ppv);
  return REGDB_E_CLASSNOTREG;
}
