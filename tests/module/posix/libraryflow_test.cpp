// libvelapo.so as a Linux host uses it: loaded from a directory of its own
// with the tech module beside it, registered, and every class made through
// the exported factory entry and run from Initialize to release.
#include <dlfcn.h>

#include <gtest/gtest.h>

#include "module/zorapomoduleabi.h"
#include "moduleflow.h"

namespace {

using namespace velapo::test;

TEST_F(ModuleFlow, EveryClassOfTheLibraryRunsAToneFromRegistrationToRelease) {
  // Left loaded, as hosts keep the module: what it makes once per process
  // would show as leaks after an unload.
  const auto path = Install(VELAPO_MODULE_LIBRARY, "libvelapo.so", VELAPO_TECH_LIBRARY, "libveltech.so");
  void* library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << ::dlerror();
  reinterpret_cast<ZORAPOSetStoreRootFn>(::dlsym(library, kZORAPOSetStoreRootName))(m_area.Root().c_str());
  ASSERT_EQ(reinterpret_cast<HRESULT (*)()>(::dlsym(library, "DllRegisterServer"))(), S_OK);
  uint32_t count = 0;
  const ZORAPOModuleClass* classes =
      reinterpret_cast<ZORAPOGetModuleClassesFn>(::dlsym(library, kZORAPOGetModuleClassesName))(&count);
  ASSERT_EQ(count, CZOR_APOModule::kClassCount);
  const auto getClassObject = reinterpret_cast<GetClassObjectFn>(::dlsym(library, "DllGetClassObject"));
  const auto records = CZOR_APOModule::RegistrationOrder();
  // The class table a host reads lists the classes in registration order.
  RunEveryClass(MakeEndpoint(VELAPO_FLOW_CONFIG).Guid(), reinterpret_cast<CanUnloadNowFn>(::dlsym(library, "DllCanUnloadNow")),
                [&](size_t i, const ZORAPORegisteredClass& key) {
                  const ZORAPOModuleClass& entry = classes[i];
                  EXPECT_TRUE(IsEqualGUID(entry.clsid, records[i]->clsid) &&
                              IsEqualGUID(entry.apoInterface, records[i]->iidAPOInterfaceList[0]));
                  EXPECT_EQ(std::u16string(entry.friendlyName), std::u16string(records[i]->szFriendlyName));
                  EXPECT_EQ(entry.flags, 12u);
                  EXPECT_EQ(entry.location == kZORLocationCapture, i == 1);
                  return FromFactory(getClassObject, key.clsid);
                });
}

}  // namespace
