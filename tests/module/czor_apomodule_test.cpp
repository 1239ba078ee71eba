#include "module/czor_apomodule.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "module/zoraporegistrykeys.h"
#include "module/zorapomodulescripts.h"
#include "moduletesting.h"

namespace {

using velapo::test::ClassesRoot;

// A stand-in class table: objects are plain counted IUnknowns, made for any
// served class, counted while alive.
std::atomic<uint32_t> g_live{0};
CLSID g_lastClsid{};

class FakeObject final : public IUnknown {
 public:
  FakeObject() { ++g_live; }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    *ppv = IsEqualIID(riid, IID_IUnknown) ? (AddRef(), this) : nullptr;
    return *ppv != nullptr ? S_OK : E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG refs = --m_refs;
    if (refs == 0) --g_live, delete this;
    return refs;
  }

 private:
  std::atomic<ULONG> m_refs{1};
};

HRESULT CreateFake(REFCLSID clsid, REFIID riid, void** ppv) {
  g_lastClsid = clsid;
  auto* object = new FakeObject;
  const HRESULT hr = object->QueryInterface(riid, ppv);
  object->Release();
  return hr;
}

uint32_t LiveFakes() { return g_live.load(); }

constexpr CLSID kPropPage = {0x7F578410, 0x1C20, 0x4677, {0xB1, 0x8F, 0x44, 0x74, 0x00, 0x08, 0x65, 0xD4}};
constexpr CLSID kScriptOsfx = {0x42E82F48, 0x20E9, 0x4B35, {0x96, 0x2A, 0x44, 0x39, 0x05, 0x96, 0x70, 0xD4}};
constexpr CLSID kScriptOmfx = {0x272B9432, 0x8AFD, 0x4935, {0x84, 0xB4, 0xA7, 0x7C, 0xFA, 0x09, 0x81, 0x5E}};
constexpr IID kUnknownIid = {0x12345678, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}};

class CZOR_APOModuleTest : public ::testing::Test {
 protected:
  CZOR_APOModule m_module{ZORAPOClassTable{CreateFake, LiveFakes}};
};

TEST_F(CZOR_APOModuleTest, ServesExactlyTheSevenClasses) {
  const auto records = CZOR_APOModule::RegistrationOrder();
  struct Case {
    CLSID clsid;
    IID iid;
    bool nullOut;
    HRESULT result;
  };
  std::vector<Case> cases;
  for (const APO_REG_PROPERTIES* record : records) {
    cases.push_back({record->clsid, IID_IClassFactory, false, S_OK});
    cases.push_back({record->clsid, IID_IUnknown, false, S_OK});
    cases.push_back({record->clsid, kUnknownIid, false, E_NOINTERFACE});
    cases.push_back({record->clsid, IID_IClassFactory, true, E_POINTER});
    // The interface id is not a class id.
    cases.push_back({record->iidAPOInterfaceList[0], IID_IClassFactory, false, CLASS_E_CLASSNOTAVAILABLE});
  }
  for (const CLSID& other : {kPropPage, kScriptOsfx, kScriptOmfx, GUID_NULL}) {
    cases.push_back({other, IID_IClassFactory, false, CLASS_E_CLASSNOTAVAILABLE});
  }
  for (const Case& item : cases) {
    void* out = reinterpret_cast<void*>(1);
    EXPECT_EQ(m_module.GetClassObject(item.clsid, item.iid, item.nullOut ? nullptr : &out), item.result)
        << zor::os::Utf16ToUtf8(zor::com::GuidText(item.clsid));
    if (item.nullOut) continue;
    EXPECT_EQ(out != nullptr, item.result == S_OK);
    if (out != nullptr) static_cast<IUnknown*>(out)->Release();
  }
  EXPECT_EQ(m_module.LockCount(), 0u);
}

TEST_F(CZOR_APOModuleTest, FactoryRefusesAggregationAndNullOutAndMakesItsOwnClass) {
  IClassFactory* factory = nullptr;
  const auto records = CZOR_APOModule::RegistrationOrder();
  ASSERT_EQ(m_module.GetClassObject(records[5]->clsid, IID_IClassFactory, reinterpret_cast<void**>(&factory)), S_OK);
  auto* outer = new FakeObject;
  void* out = outer;
  EXPECT_EQ(factory->CreateInstance(outer, IID_IUnknown, &out), CLASS_E_NOAGGREGATION);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
  out = outer;
  EXPECT_EQ(factory->CreateInstance(nullptr, kUnknownIid, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
  ASSERT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, &out), S_OK);
  EXPECT_TRUE(IsEqualGUID(g_lastClsid, records[5]->clsid));
  EXPECT_EQ(m_module.CanUnloadNow(), S_FALSE);
  factory->Release();
  EXPECT_EQ(m_module.CanUnloadNow(), S_FALSE);  // the object still lives
  static_cast<IUnknown*>(out)->Release();
  outer->Release();
  EXPECT_EQ(m_module.CanUnloadNow(), S_OK);
}

// LockServer and factory references from many threads balance out exactly;
// an unlock with nothing locked is refused rather than wrapping the count.
TEST_F(CZOR_APOModuleTest, LocksFromManyThreadsBalanceAndNeverGoBelowZero) {
  IClassFactory* factory = nullptr;
  ASSERT_EQ(m_module.GetClassObject(CZOR_APOModule::RegistrationOrder()[0]->clsid, IID_IClassFactory,
                                    reinterpret_cast<void**>(&factory)), S_OK);
  std::vector<std::thread> threads;
  std::atomic<int> refused{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        if (factory->LockServer(1) != S_OK) ++refused;
        factory->AddRef();
        factory->Release();
        if (factory->LockServer(0) != S_OK) ++refused;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(refused.load(), 0);
  EXPECT_EQ(m_module.CanUnloadNow(), S_FALSE);
  factory->Release();
  EXPECT_EQ(m_module.CanUnloadNow(), S_OK);
  EXPECT_EQ(factory->LockServer(0), E_UNEXPECTED);
  EXPECT_EQ(m_module.LockCount(), 0u);
}

// Registration against a private classes root, with scripts, type library
// and locale as the test says, and failures injected.
class CZOR_APOModuleRegistrationTest : public CZOR_APOModuleTest {
 protected:
  CZOR_APOModuleRegistrationTest() {
    m_setup.modulePath = u"C:\\velapo\\velapo64.dll";
    m_setup.classesRootPath = m_root.Path();
    m_setup.loadScript = [this](uint16_t id, std::string& bytes) {
      m_scriptsRun.push_back(id);
      return id != m_missingScript && ZORAPOModuleScriptText(id, bytes);
    };
    m_setup.typeLibrary = [this](bool doRegister) {
      m_localeAtTypeLibrary = m_locale;
      return doRegister ? m_typeLibraryResult : S_OK;
    };
    m_setup.swapThreadLocale = [this](uint32_t locale) { return std::exchange(m_locale, locale); };
  }

  ClassesRoot m_root;
  ZORAPOModuleSetup m_setup;
  std::vector<uint16_t> m_scriptsRun;
  uint16_t m_missingScript = 0;
  HRESULT m_typeLibraryResult = S_OK;
  uint32_t m_locale = 1033;
  uint32_t m_localeAtTypeLibrary = 0;
};

TEST_F(CZOR_APOModuleRegistrationTest, TheFirstFailureEndsRegistrationAndTheLocaleComesBack) {
  m_missingScript = 106;
  EXPECT_EQ(static_cast<uint32_t>(m_module.RegisterServer(m_setup)), 0x80040201u);
  EXPECT_EQ(m_scriptsRun.back(), 106);
  EXPECT_FALSE(m_root.Exists(u"CLSID\\{42E82F48-20E9-4B35-962A-4439059670D4}"));
  EXPECT_EQ(m_locale, 1033u);
  EXPECT_EQ(m_localeAtTypeLibrary, 0u);

  m_missingScript = 0;
  m_typeLibraryResult = static_cast<HRESULT>(0x80029C4Au);
  EXPECT_EQ(m_module.RegisterServer(m_setup), m_typeLibraryResult);
  EXPECT_EQ(m_scriptsRun, (std::vector<uint16_t>{101, 102, 103, 104, 106, 101, 102, 103, 104, 106, 107, 108, 113, 114}));
  EXPECT_EQ(m_localeAtTypeLibrary, CZOR_APOModule::kNeutralLocale);
  EXPECT_EQ(m_locale, 1033u);
  EXPECT_EQ(m_root.Text(u"CLSID\\{42E82F48-20E9-4B35-962A-4439059670D4}\\InprocServer32", u""), m_setup.modulePath);
  // Removal goes on past a failure and answers the first.
  m_missingScript = 102;
  EXPECT_EQ(static_cast<uint32_t>(m_module.UnregisterServer(m_setup)), 0x80040201u);
  EXPECT_FALSE(m_root.Exists(u"AppID\\ZOR_APO_Universal.DLL"));
  EXPECT_FALSE(m_root.Exists(u"CLSID\\{42E82F48-20E9-4B35-962A-4439059670D4}"));
  std::vector<ZORAPORegisteredClass> engineKeys;
  ASSERT_EQ(ZORAPORegistryKeys(m_root.Path()).ReadAll(engineKeys), S_OK);
  EXPECT_EQ(engineKeys.size(), 7u);
}

}  // namespace
