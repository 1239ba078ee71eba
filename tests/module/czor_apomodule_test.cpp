// The module's factory answers (a table over every served and unserved id),
// its locks from many threads, and registration's order, failures and locale.
#include "module/czor_apomodule.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "apo/zoraporegproperties.h"
#include "engine/zortestendpoint.h"
#include "module/zoraporegistrykeys.h"
#include "module/zorapomodulescripts.h"
#include "moduletesting.h"

namespace {

// The class table's stand-in: plain counted objects, counted while alive.
std::atomic<uint32_t> g_live{0};
CLSID g_lastClsid{};

struct FakeObject final : ZORTestComObject<IUnknown> {
  FakeObject() : ZORTestComObject(IID_IUnknown) { ++g_live; }
  ~FakeObject() override { --g_live; }
};

HRESULT CreateFake(REFCLSID clsid, REFIID riid, void** ppv) {
  g_lastClsid = clsid;
  auto* object = new FakeObject;
  const HRESULT hr = object->QueryInterface(riid, ppv);
  object->Release();
  return hr;
}

constexpr IID kUnknownIid = {0x12345678, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}};

class CZOR_APOModuleTest : public ::testing::Test {
 protected:
  CZOR_APOModule m_module{ZORAPOClassTable{CreateFake, [] { return g_live.load(); }}};
};

TEST_F(CZOR_APOModuleTest, ServesExactlyTheSevenClassesAndItsFactoriesMakeTheirOwn) {
  // Registration's order, which the engine keys are written in: LFX, capture, SFX, MFX, EFX, OSFX, OMFX.
  const auto order = CZOR_APOModule::RegistrationOrder();
  const uint32_t locations[] = {kZORLocationPreBlue, 0, kZORLocationSFX, kZORLocationMFX, kZORLocationEFX,
                                kZORLocationOSFX, kZORLocationOMFX};
  for (size_t i = 0; i < order.size(); ++i) {
    EXPECT_EQ(order[i], i == 1 ? ZORAPOCaptureClass().regProperties : ZORAPOClasses()[locations[i]].regProperties) << i;
  }
  // The property page and the ids resources 113 and 114 carry are not served.
  const CLSID others[] = {{0x7F578410, 0x1C20, 0x4677, {0xB1, 0x8F, 0x44, 0x74, 0x00, 0x08, 0x65, 0xD4}},
                          {0x42E82F48, 0x20E9, 0x4B35, {0x96, 0x2A, 0x44, 0x39, 0x05, 0x96, 0x70, 0xD4}},
                          {0x272B9432, 0x8AFD, 0x4935, {0x84, 0xB4, 0xA7, 0x7C, 0xFA, 0x09, 0x81, 0x5E}}, GUID_NULL};
  for (const CLSID& other : others) {
    void* out = &g_live;
    EXPECT_EQ(m_module.GetClassObject(other, IID_IClassFactory, &out), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(out, nullptr);
  }
  for (const APO_REG_PROPERTIES* record : CZOR_APOModule::RegistrationOrder()) {
    void* out = &g_live;
    EXPECT_EQ(m_module.GetClassObject(record->iidAPOInterfaceList[0], IID_IClassFactory, &out),
              CLASS_E_CLASSNOTAVAILABLE);  // an interface id is no class id
    EXPECT_EQ(m_module.GetClassObject(record->clsid, IID_IClassFactory, nullptr), E_POINTER);
    EXPECT_EQ(m_module.GetClassObject(record->clsid, kUnknownIid, &out), E_NOINTERFACE);
    EXPECT_EQ(out, nullptr);
    IClassFactory* factory = nullptr;
    ASSERT_EQ(m_module.GetClassObject(record->clsid, IID_IClassFactory, reinterpret_cast<void**>(&factory)), S_OK);
    auto* outer = new FakeObject;
    out = outer;
    EXPECT_EQ(factory->CreateInstance(outer, IID_IUnknown, &out), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(factory->CreateInstance(nullptr, kUnknownIid, &out), E_NOINTERFACE);
    EXPECT_EQ(out, nullptr);
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, &out), S_OK);
    EXPECT_TRUE(IsEqualGUID(g_lastClsid, record->clsid));
    factory->Release();
    EXPECT_EQ(m_module.CanUnloadNow(), S_FALSE);  // the object still lives
    static_cast<IUnknown*>(out)->Release();
    outer->Release();
    EXPECT_EQ(m_module.CanUnloadNow(), S_OK);
  }
}

// LockServer and factory references from many threads balance out exactly;
// an unlock with nothing locked is refused rather than wrapping the count.
TEST_F(CZOR_APOModuleTest, LocksFromManyThreadsBalanceAndNeverGoBelowZero) {
  IClassFactory* factory = nullptr;
  ASSERT_EQ(m_module.GetClassObject(CZOR_APOModule::RegistrationOrder()[0]->clsid, IID_IClassFactory,
                                    reinterpret_cast<void**>(&factory)), S_OK);
  std::atomic<int> refused{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        refused += factory->LockServer(1) != S_OK;
        factory->AddRef();
        factory->Release();
        refused += factory->LockServer(0) != S_OK;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(refused.load(), 0);
  EXPECT_EQ(factory->LockServer(1), S_OK);
  factory->Release();
  EXPECT_EQ(m_module.CanUnloadNow(), S_FALSE);  // the server lock alone holds the module
  EXPECT_EQ(factory->LockServer(0), S_OK);
  EXPECT_EQ(m_module.CanUnloadNow(), S_OK);
  EXPECT_EQ(factory->LockServer(0), E_UNEXPECTED);
}

// Registration against a private classes root, with failures injected: the
// first ends registration, removal goes on past them, and the thread locale
// is neutral around the type library and always restored.
TEST_F(CZOR_APOModuleTest, RegistrationStopsAtTheFirstFailureAndRestoresTheLocale) {
  velapo::test::ClassesRoot root;
  std::vector<uint16_t> scriptsRun;
  uint16_t missingScript = 106;
  HRESULT typeLibraryResult = S_OK;
  uint32_t locale = 1033, localeAtTypeLibrary = 0;
  ZORAPOModuleSetup setup;
  setup.modulePath = u"C:\\velapo\\velapo64.dll";
  setup.classesRootPath = root.Path();
  setup.loadScript = [&](uint16_t id, std::string& bytes) {
    scriptsRun.push_back(id);
    return id != missingScript && ZORAPOModuleScriptText(id, bytes);
  };
  setup.typeLibrary = [&](bool doRegister) {
    localeAtTypeLibrary = locale;
    return doRegister ? typeLibraryResult : S_OK;
  };
  setup.swapThreadLocale = [&](uint32_t next) { return std::exchange(locale, next); };
  const std::u16string osfxKey = u"CLSID\\{42E82F48-20E9-4B35-962A-4439059670D4}";

  EXPECT_EQ(static_cast<uint32_t>(m_module.RegisterServer(setup)), 0x80040201u);
  EXPECT_FALSE(root.Exists(osfxKey));
  EXPECT_EQ(locale, 1033u);
  EXPECT_EQ(localeAtTypeLibrary, 0u);
  missingScript = 0;
  typeLibraryResult = static_cast<HRESULT>(0x80029C4Au);
  EXPECT_EQ(m_module.RegisterServer(setup), typeLibraryResult);
  EXPECT_EQ(scriptsRun, (std::vector<uint16_t>{101, 102, 103, 104, 106, 101, 102, 103, 104, 106, 107, 108, 113, 114}));
  EXPECT_EQ(localeAtTypeLibrary, CZOR_APOModule::kNeutralLocale);
  EXPECT_EQ(locale, 1033u);
  EXPECT_EQ(root.Text(osfxKey + u"\\InprocServer32", u""), setup.modulePath);
  missingScript = 102;
  EXPECT_EQ(static_cast<uint32_t>(m_module.UnregisterServer(setup)), 0x80040201u);
  EXPECT_FALSE(root.Exists(u"AppID\\ZOR_APO_Universal.DLL") || root.Exists(osfxKey));
  std::vector<ZORAPORegisteredClass> engineKeys;  // removal leaves the engine keys
  ASSERT_EQ(ZORAPORegistryKeys(root.Path()).ReadAll(engineKeys), S_OK);
  EXPECT_EQ(engineKeys.size(), 7u);
}

}  // namespace
