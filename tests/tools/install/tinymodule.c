/* A third-party tech module at its smallest, built against an installed
 * velapo with nothing but `pkg-config --cflags veltech`: it offers one
 * process id and makes no process. */
#include <stddef.h>

#include <veltech/veltech_abi.h>

VELTECH_EXPORT void VELTECH_CALL ZORTechEnumProcesses(ZORTechEnumCallback callback, void* context) {
  callback("tiny", context);
}

VELTECH_EXPORT ZORTechBool VELTECH_CALL ZORTechCreateProcess(const char* techId,
                                                             ZORTechProcess** process,
                                                             const char* instanceId) {
  (void)techId;
  (void)instanceId;
  *process = NULL;
  return 0;
}

VELTECH_EXPORT void VELTECH_CALL ZORTechDestroyProcess(ZORTechProcess* process) { (void)process; }
