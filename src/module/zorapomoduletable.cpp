// The one place the module meets the effect classes: their creation entry
// and their count of live objects.
#include "module/czor_apomodule.h"

ZORAPOClassTable ZORAPOModuleClassTable() {
  // The classes are not built yet: every factory answers
  // CLASS_E_CLASSNOTAVAILABLE from CreateInstance until they are.
  return ZORAPOClassTable{};
}
