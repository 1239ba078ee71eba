// velapo64.dll as the audio engine's host meets it: registered by regsvr32
// from a directory of its own, five classes made by CoCreateInstance, OSFX
// and OMFX found through the engine keys and made through the DLL's
// DllGetClassObject, each run from registration to release.
#include <windows.h>

#include <gtest/gtest.h>

#include "apotesting.h"
#include "moduleflow.h"
#include "moduleinstall.h"

namespace {

using namespace velapo::test;

class ModuleFlowTest : public APOEndpoint {
 protected:
  ModuleInstall m_install;
};

TEST_F(ModuleFlowTest, EveryClassRunsAToneFromTheRegisteredDll) {
  ASSERT_TRUE(m_install.Ready());
  ASSERT_EQ(m_install.RunRegsvr32(false), 0);
  const std::u16string render = MakeEndpoint(VELAPO_FLOW_CONFIG).Guid();
  // The system's device enumerator lists only the audio service's own
  // endpoints, never the test's, so the objects run unbound and pass audio;
  // Linux, whose enumerator reads the store, runs the same flow bound.
  const bool bound = false;
  std::vector<ZORAPORegisteredClass> keys;
  ASSERT_EQ(ZORAPORegistryKeys(u"Software\\Classes").ReadAll(keys), S_OK);

  // The DLL COM loads; the same module a host loads by the registered path.
  HMODULE dll = ::LoadLibraryW(m_install.DllPath().c_str());
  ASSERT_NE(dll, nullptr);
  const auto getClassObject = reinterpret_cast<HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**)>(
      reinterpret_cast<void*>(::GetProcAddress(dll, "DllGetClassObject")));
  const auto canUnloadNow = reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(
      reinterpret_cast<void*>(::GetProcAddress(dll, "DllCanUnloadNow")));
  ASSERT_NE(getClassObject, nullptr);
  ASSERT_NE(canUnloadNow, nullptr);

  for (const ZORAPOClassInfo& info : ZORAPOClasses()) {
    const CLSID& clsid = info.regProperties->clsid;
    const ZORAPORegisteredClass* key = nullptr;
    for (const ZORAPORegisteredClass& candidate : keys) {
      if (IsEqualGUID(candidate.clsid, clsid)) key = &candidate;
    }
    ASSERT_NE(key, nullptr) << info.logName;
    SCOPED_TRACE(info.logName);
    IUnknown* object = nullptr;
    const HRESULT created = ::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                                               reinterpret_cast<void**>(&object));
    if (info.location == kZORLocationOSFX || info.location == kZORLocationOMFX) {
      // Their scripts register other ids: hosts go by the engine keys.
      EXPECT_EQ(created, REGDB_E_CLASSNOTREG);
      IClassFactory* factory = nullptr;
      ASSERT_EQ(getClassObject(key->clsid, IID_IClassFactory, reinterpret_cast<void**>(&factory)), S_OK);
      ASSERT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(&object)), S_OK);
      factory->Release();
    } else {
      ASSERT_EQ(created, S_OK);
    }
    RunFlow(object, *key, FlowStream(render, info.location == kZORLocationCapture), bound);
    object->Release();
  }
  EXPECT_EQ(canUnloadNow(), S_OK);
  ::FreeLibrary(dll);
  EXPECT_EQ(m_install.RunRegsvr32(true), 0);
}

}  // namespace
