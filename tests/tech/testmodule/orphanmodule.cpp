// A module that lacks the destroy export. The loader must refuse to create a
// process from it without calling create; enumeration still works.

#include <cstdlib>

#include "veltech/veltech_abi.h"

extern "C" {

VELTECH_EXPORT void VELTECH_CALL ZORTechEnumProcesses(ZORTechEnumCallback callback, void* context) {
  callback("orphan", context);
}

VELTECH_EXPORT ZORTechBool VELTECH_CALL ZORTechCreateProcess(const char*, ZORTechProcess**, const char*) {
  // A process that could never be destroyed must not be made.
  std::abort();
}

}  // extern "C"
