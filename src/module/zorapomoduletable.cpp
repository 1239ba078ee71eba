// The one place the module meets the effect classes: their creation entry
// and their counts of live objects.
#include "apo/czor_lfx_apo_universal_base.h"
#include "apo/czor_lfx_capture_apo_universal.h"
#include "apo/zorapocreateinstance.h"
#include "module/czor_apomodule.h"

namespace {

HRESULT Create(REFCLSID clsid, REFIID riid, void** ppv) { return ZORAPOCreateInstance(clsid, nullptr, riid, ppv); }

uint32_t LiveObjects() {
  return CZOR_LFX_APO_Universal_Base::LiveObjects() + CZOR_LFX_Capture_APO_Universal::LiveObjects();
}

}  // namespace

ZORAPOClassTable ZORAPOModuleClassTable() { return ZORAPOClassTable{Create, LiveObjects}; }
