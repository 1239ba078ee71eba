#include "platform/posix/mmdevices.h"

namespace zor::os {

HRESULT CreateDeviceEnumerator(REFIID, void** ppv) {
  *ppv = nullptr;
  return REGDB_E_CLASSNOTREG;
}

HRESULT CreatePolicyConfig(REFIID, void** ppv) {
  *ppv = nullptr;
  return REGDB_E_CLASSNOTREG;
}

}  // namespace zor::os
