// The three exports of the veltech module.

#include <new>

#include "processfactory.h"
#include "veltech/veltech_abi.h"

namespace {

struct EnumContext {
  ZORTechEnumCallback callback;
  void* context;
};

void VisitTechId(const char* techId, void* context) {
  const auto& target = *static_cast<const EnumContext*>(context);
  target.callback(techId, target.context);
}

}  // namespace

extern "C" {

VELTECH_EXPORT void VELTECH_CALL ZORTechEnumProcesses(ZORTechEnumCallback callback, void* context) {
  if (callback == nullptr) return;
  EnumContext target{callback, context};
  veltech::ForEachTechId(VisitTechId, &target);
}

VELTECH_EXPORT ZORTechBool VELTECH_CALL ZORTechCreateProcess(const char* techId, ZORTechProcess** process,
                                                             const char* /*instanceId*/) {
  if (process == nullptr) return 0;
  *process = nullptr;
  try {
    std::unique_ptr<veltech::TechProcess> made = veltech::MakeProcess(techId);
    if (!made) return 0;
    *process = made.release()->Abi();
    return 1;
  } catch (const std::bad_alloc&) {
    return 0;
  }
}

VELTECH_EXPORT void VELTECH_CALL ZORTechDestroyProcess(ZORTechProcess* process) {
  // Only what this module handed out is deleted.
  delete veltech::TechProcess::FromAbi(process);
}

}  // extern "C"
