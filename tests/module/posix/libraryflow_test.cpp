// libvelapo.so as a Linux host uses it: loaded from a directory of its own
// with the tech module beside it, every class made through the exported
// factory entry and run from registration to release.
#include <dlfcn.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "apotesting.h"
#include "module/czor_apomodule.h"
#include "module/zorapomoduleabi.h"
#include "moduleflow.h"

namespace {

using namespace velapo::test;

class LibraryFlowTest : public APOEndpoint {
 protected:
  void SetUp() override {
    APOEndpoint::SetUp();
    std::filesystem::create_directories(m_dir);
    std::filesystem::copy_file(VELAPO_MODULE_LIBRARY, m_dir / "libvelapo.so");
    std::filesystem::copy_file(VELAPO_TECH_LIBRARY, m_dir / "libveltech.so");
    m_library = ::dlopen((m_dir / "libvelapo.so").c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(m_library, nullptr) << ::dlerror();
    reinterpret_cast<ZORAPOSetStoreRootFn>(Symbol(kZORAPOSetStoreRootName))(m_area.Root().c_str());
    m_getClassObject = reinterpret_cast<decltype(m_getClassObject)>(Symbol("DllGetClassObject"));
    m_canUnloadNow = reinterpret_cast<decltype(m_canUnloadNow)>(Symbol("DllCanUnloadNow"));
    m_registerServer = reinterpret_cast<decltype(m_registerServer)>(Symbol("DllRegisterServer"));
  }
  void TearDown() override {
    if (m_library != nullptr) ::dlclose(m_library);
    std::error_code ignored;
    std::filesystem::remove_all(m_dir, ignored);
    APOEndpoint::TearDown();
  }
  void* Symbol(const char* name) {
    void* symbol = ::dlsym(m_library, name);
    EXPECT_NE(symbol, nullptr) << name;
    return symbol;
  }

  std::filesystem::path m_dir = std::filesystem::temp_directory_path() /
                                ("velapo-library-" + zor::os::Utf16ToUtf8(FreshEndpointGuid()));
  void* m_library = nullptr;
  HRESULT (*m_getClassObject)(REFCLSID, REFIID, void**) = nullptr;
  HRESULT (*m_canUnloadNow)() = nullptr;
  HRESULT (*m_registerServer)() = nullptr;
};

TEST_F(LibraryFlowTest, EveryClassRunsAToneFromRegistrationToRelease) {
  uint32_t count = 0;
  const ZORAPOModuleClass* classes =
      reinterpret_cast<ZORAPOGetModuleClassesFn>(Symbol(kZORAPOGetModuleClassesName))(&count);
  ASSERT_EQ(count, CZOR_APOModule::kClassCount);
  void* factory = reinterpret_cast<void*>(1);
  EXPECT_EQ(m_getClassObject(GUID_NULL, IID_IClassFactory, &factory), CLASS_E_CLASSNOTAVAILABLE);
  EXPECT_EQ(factory, nullptr);

  ASSERT_EQ(m_registerServer(), S_OK);
  const std::u16string render = MakeEndpoint(VELAPO_FLOW_CONFIG);
  const auto records = CZOR_APOModule::RegistrationOrder();
  for (uint32_t i = 0; i < count; ++i) {
    const ZORAPOModuleClass& entry = classes[i];
    EXPECT_TRUE(IsEqualGUID(entry.clsid, records[i]->clsid));
    EXPECT_EQ(std::u16string(entry.friendlyName), std::u16string(records[i]->szFriendlyName));
    EXPECT_TRUE(IsEqualGUID(entry.apoInterface, records[i]->iidAPOInterfaceList[0]));
    EXPECT_EQ(entry.flags, 12u);
    ZORAPORegisteredClass key;
    ASSERT_EQ(ZORAPORegistryKeys(u"Software\\Classes").Read(entry.clsid, key), S_OK);
    IClassFactory* classFactory = nullptr;
    ASSERT_EQ(m_getClassObject(entry.clsid, IID_IClassFactory, reinterpret_cast<void**>(&classFactory)), S_OK);
    IUnknown* object = nullptr;
    ASSERT_EQ(classFactory->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(&object)), S_OK);
    classFactory->Release();
    const bool isCapture = entry.location == kZORLocationCapture;
    SCOPED_TRACE(zor::os::Utf16ToUtf8(entry.friendlyName));
    // The manager binds only to render endpoints for now, so capture runs on
    // the render endpoint's configuration too.
    RunFlow(object, key, FlowStream(render, isCapture));
    EXPECT_EQ(m_canUnloadNow(), S_FALSE);
    object->Release();
  }
  EXPECT_EQ(m_canUnloadNow(), S_OK);
}

}  // namespace
