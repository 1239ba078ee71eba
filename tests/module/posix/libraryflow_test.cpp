// libvelapo.so as a Linux host uses it: loaded from a directory of its own
// with the tech module beside it, registered, and every class made through
// the exported factory entry and run from Initialize to release.
#include <dlfcn.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "apotesting.h"
#include "module/czor_apomodule.h"
#include "module/zorapomoduleabi.h"
#include "moduleflow.h"

namespace {

using namespace velapo::test;

TEST_F(APOEndpoint, EveryClassOfTheLibraryRunsAToneFromRegistrationToRelease) {
  // Left loaded, as hosts keep the module: what it makes once per process
  // would show as leaks after an unload.
  const auto dir = std::filesystem::temp_directory_path() / ("velapo-library-" + zor::os::Utf16ToUtf8(FreshEndpointGuid()));
  std::filesystem::create_directories(dir);
  std::filesystem::copy_file(VELAPO_MODULE_LIBRARY, dir / "libvelapo.so");
  std::filesystem::copy_file(VELAPO_TECH_LIBRARY, dir / "libveltech.so");
  void* library = ::dlopen((dir / "libvelapo.so").c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << ::dlerror();
  reinterpret_cast<ZORAPOSetStoreRootFn>(::dlsym(library, kZORAPOSetStoreRootName))(m_area.Root().c_str());
  const auto getClassObject = reinterpret_cast<HRESULT (*)(REFCLSID, REFIID, void**)>(::dlsym(library, "DllGetClassObject"));
  const auto canUnloadNow = reinterpret_cast<HRESULT (*)()>(::dlsym(library, "DllCanUnloadNow"));
  ASSERT_EQ(reinterpret_cast<HRESULT (*)()>(::dlsym(library, "DllRegisterServer"))(), S_OK);
  uint32_t count = 0;
  const ZORAPOModuleClass* classes =
      reinterpret_cast<ZORAPOGetModuleClassesFn>(::dlsym(library, kZORAPOGetModuleClassesName))(&count);
  ASSERT_EQ(count, CZOR_APOModule::kClassCount);
  const std::u16string render = MakeEndpoint(VELAPO_FLOW_CONFIG).Guid();
  const auto records = CZOR_APOModule::RegistrationOrder();
  for (uint32_t i = 0; i < count; ++i) {
    const ZORAPOModuleClass& entry = classes[i];
    SCOPED_TRACE(zor::os::Utf16ToUtf8(entry.friendlyName));
    EXPECT_TRUE(IsEqualGUID(entry.clsid, records[i]->clsid) && IsEqualGUID(entry.apoInterface, records[i]->iidAPOInterfaceList[0]));
    EXPECT_EQ(std::u16string(entry.friendlyName), std::u16string(records[i]->szFriendlyName));
    EXPECT_EQ(entry.flags, 12u);
    ZORAPORegisteredClass key;
    ASSERT_EQ(ZORAPORegistryKeys(u"Software\\Classes").Read(entry.clsid, key), S_OK);
    IClassFactory* factory = nullptr;
    ASSERT_EQ(getClassObject(entry.clsid, IID_IClassFactory, reinterpret_cast<void**>(&factory)), S_OK);
    IUnknown* object = nullptr;
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(&object)), S_OK);
    factory->Release();
    // The manager binds only to render endpoints for now: capture runs there too.
    RunFlow(object, key, render, entry.location == kZORLocationCapture);
    EXPECT_EQ(canUnloadNow(), S_FALSE);
    object->Release();
  }
  EXPECT_EQ(canUnloadNow(), S_OK);
  std::filesystem::remove_all(dir);
}

}  // namespace
