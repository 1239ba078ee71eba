// Loading libvelapo.so: there is no DllMain, so a constructor runs the load
// steps with the library's own path, which dladdr finds from an address in
// it. Registration writes the settings store's classes root from the
// compiled-in scripts; Linux has no type library and no thread locale.
#include "module/zorapomodulemain.h"
#include "module/zorapomodulescripts.h"
#include "platform/dynamiclibrary.h"

namespace {

__attribute__((constructor)) void AttachModule() {
  const std::filesystem::path path = zor::os::ModulePathOf(reinterpret_cast<const void*>(&AttachModule));
  ZORAPOModuleAttach(path.u16string(), false);
}

}  // namespace

ZORAPOModuleSetup ZORAPOLoadedModuleSetup() {
  ZORAPOModuleSetup setup;
  setup.modulePath = ZORAPOModulePath();
  setup.loadScript = ZORAPOModuleScriptText;
  return setup;
}
