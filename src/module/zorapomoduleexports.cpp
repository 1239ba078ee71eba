// The module's exports, the same on both platforms: the four COM entries,
// and for hosts the class table, the store root and the log's destination.
// Windows names them in velapo64.def; Linux exports exactly these from
// libvelapo.so.
#include <array>
#include <atomic>

#include "apo/zorapoinstancelimit.h"
#include "apo/zoraporegproperties.h"
#include "audio/zorapoprocesslibrary.h"
#include "module/zorapomoduleabi.h"
#include "module/zorapomodulemain.h"
#include "platform/debugoutput.h"
#include "platform/registry.h"

#if defined(_WIN32)
#define VELAPO_EXPORT
#else
#define VELAPO_EXPORT __attribute__((visibility("default")))
#endif

// The effect classes' creation entry and live counts; see zorapomoduletable.cpp.
ZORAPOClassTable ZORAPOModuleClassTable();

namespace {

std::u16string& ModulePathStore() {
  static std::u16string path;
  return path;
}

std::array<ZORAPOModuleClass, CZOR_APOModule::kClassCount> MakeClassList() {
  std::array<ZORAPOModuleClass, CZOR_APOModule::kClassCount> list{};
  const auto records = CZOR_APOModule::RegistrationOrder();
  for (size_t i = 0; i < list.size(); ++i) {
    const APO_REG_PROPERTIES& record = *records[i];
    uint32_t location = kZORLocationCapture;
    for (const ZORAPOClassInfo& info : ZORAPOClasses()) {
      if (info.regProperties == records[i]) location = info.location;
    }
    list[i] = {record.clsid, location, record.szFriendlyName, record.iidAPOInterfaceList[0],
               static_cast<uint32_t>(record.Flags)};
  }
  return list;
}

}  // namespace

CZOR_APOModule& ZORAPOTheModule() {
  static CZOR_APOModule module(ZORAPOModuleClassTable());
  return module;
}

const std::u16string& ZORAPOModulePath() { return ModulePathStore(); }

void ZORAPOModuleAttach(const std::u16string& modulePath, bool readInstanceLimit) {
  ModulePathStore() = modulePath;
  ZORAPOClasses();
  ZORAPOTheModule();
  // Linux hosts choose the settings store's root after loading, so there
  // the limit is read when the first object is made.
  if (readInstanceLimit) ZORAPOInstanceLimit::Get();
  ZORAPOProcessLibrary::SetModulePath(modulePath.c_str());
}

extern "C" VELAPO_EXPORT HRESULT STDMETHODCALLTYPE DllGetClassObject(REFCLSID clsid, REFIID riid, void** ppv) {
  return ZORAPOTheModule().GetClassObject(clsid, riid, ppv);
}

extern "C" VELAPO_EXPORT HRESULT STDMETHODCALLTYPE DllCanUnloadNow() { return ZORAPOTheModule().CanUnloadNow(); }

extern "C" VELAPO_EXPORT HRESULT STDMETHODCALLTYPE DllRegisterServer() {
  return ZORAPOTheModule().RegisterServer(ZORAPOLoadedModuleSetup());
}

extern "C" VELAPO_EXPORT HRESULT STDMETHODCALLTYPE DllUnregisterServer() {
  return ZORAPOTheModule().UnregisterServer(ZORAPOLoadedModuleSetup());
}

extern "C" VELAPO_EXPORT const ZORAPOModuleClass* ZORAPOGetModuleClasses(uint32_t* count) {
  static const auto list = MakeClassList();
  if (count != nullptr) *count = static_cast<uint32_t>(list.size());
  return list.data();
}

extern "C" VELAPO_EXPORT void ZORAPOSetStoreRoot(const char* directory) {
  if (directory != nullptr) zor::os::SetRegistryRoot(directory);
}

extern "C" VELAPO_EXPORT void ZORAPOSetLogSink(ZORAPOLogSink sink, void* context) {
  zor::os::SetDebugSink(sink, context);
}
