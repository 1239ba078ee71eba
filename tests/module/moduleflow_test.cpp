// The built module as a host meets it, on Linux (libvelapo.so) and Windows (velapo64.dll):
// installed beside the tech module in a directory of its own and registered, every key of
// its scripts read back, each class made as hosts make it, checked against its engine key
// and run from Initialize to release with 1 s of 100 Hz tone (bound objects trim it by
// 6 dB); removal takes all but the engine keys.
#ifdef _WIN32
#include <windows.h>
#include <process.h>
#else
#include <dlfcn.h>
#endif

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <functional>
#include <numeric>
#include <vector>

#include "apotesting.h"
#include "module/czor_apomodule.h"
#include "module/zorapomoduleabi.h"
#include "module/zorapomodulescripts.h"
#include "module/zoraporegistrykeys.h"
#include "module/zorregistrarscript.h"
#include "moduletesting.h"
#ifdef _WIN32
#include "hostendpoint.h"
#endif

namespace {

using namespace velapo::test;

std::string ScriptData(const ZORRegistrarValue& value) {
  return value.kind == ZORRegistrarValueKind::Dword ? "#" + std::to_string(value.number) : zor::os::Utf16ToUtf8(value.text);
}

// Registered: every key and value of the script there with its data; removed: all but NoRemove keys gone.
void ExpectScriptKey(const ClassesRoot& classes, const ZORRegistrarKey& key, const std::u16string& path, bool registered) {
  SCOPED_TRACE(zor::os::Utf16ToUtf8(path));
  if (!registered && !key.noRemove) {
    EXPECT_FALSE(classes.Exists(path));
    return;
  }
  if (registered && key.hasDefault) {
    EXPECT_EQ(classes.Value(path, u""), ScriptData(key.defaultValue));
  }
  for (const ZORRegistrarValue& value : key.values) {
    EXPECT_EQ(classes.Value(path, value.name), registered ? ScriptData(value) : "<missing>");
  }
  for (const ZORRegistrarKey& subkey : key.subkeys) ExpectScriptKey(classes, subkey, path + u"\\" + subkey.name, registered);
}

void ExpectScripts(const ClassesRoot& classes, const std::u16string& modulePath, bool registered) {
  const ZORRegistrarReplacement replacements[] = {{u"MODULE", modulePath}, {u"APPID", kZORAPOModuleAppId}};
  std::vector<uint16_t> ids(CZOR_APOModule::kClassScripts.begin(), CZOR_APOModule::kClassScripts.end());
  ids.push_back(CZOR_APOModule::kAppIdScript);
  for (const uint16_t id : ids) {
    std::string bytes;
    ZORRegistrarScript script;
    ASSERT_TRUE(ZORAPOModuleScriptText(id, bytes) && script.ParseUtf8(bytes, replacements)) << id;
    for (const ZORRegistrarKey& key : script.Roots()[0].keys) ExpectScriptKey(classes, key, key.name, registered);
  }
}

class ModuleFlowTest : public APOEndpoint {
 protected:
  void TearDown() override {
    std::error_code ignored;
    std::filesystem::remove_all(m_dir, ignored);
    APOEndpoint::TearDown();
  }
  const std::filesystem::path m_dir =
      std::filesystem::temp_directory_path() / ("velapo-module-" + zor::os::Utf16ToUtf8(FreshEndpointGuid()));
  const ClassesRoot m_classes{u"Software\\Classes"};
};

TEST_F(ModuleFlowTest, EveryClassRunsAToneFromRegistrationToRelease) {
  std::filesystem::create_directories(m_dir);
  const std::u16string render = MakeEndpoint(VELAPO_FLOW_CONFIG).Guid();
  const std::u16string typeLib = u"TypeLib\\{8D6935E1-F1D5-4C56-8951-3E2415FDD2AF}";
#ifdef _WIN32
  // Registered by the system's regsvr32, the type library too; then loaded as COM loads it.
  wchar_t buffer[MAX_PATH * 4];
  const std::filesystem::path from =
      std::filesystem::path(std::wstring(buffer, ::GetModuleFileNameW(nullptr, buffer, MAX_PATH * 4))).parent_path();
  std::filesystem::copy_file(from / VELAPO_TECH_DLL, m_dir / "veltech64.dll");
  std::filesystem::copy_file(from / VELAPO_MODULE_DLL, m_dir / "velapo64.dll");
  const std::u16string modulePath = (m_dir / "velapo64.dll").u16string();
  const std::wstring quoted = L"\"" + (m_dir / "velapo64.dll").wstring() + L"\"";
  const auto regsvr32 = [&](bool add) {
    const wchar_t* const registers[] = {L"regsvr32.exe", L"/s", quoted.c_str(), nullptr};
    const wchar_t* const removes[] = {L"regsvr32.exe", L"/s", L"/u", quoted.c_str(), nullptr};
    return static_cast<HRESULT>(::_wspawnvp(_P_WAIT, L"regsvr32.exe", add ? registers : removes));
  };
  ASSERT_EQ(regsvr32(true), S_OK);
  EXPECT_EQ(m_classes.Value(typeLib + u"\\1.0\\0\\win64", u""), zor::os::Utf16ToUtf8(modulePath));
  EXPECT_FALSE(m_classes.Exists(u"TypeLib\\{7FBEFE6C-4533-4E2C-9740-2A7BB520AC16}"));  // named by 113/114 only
  HostEndpoint listed;  // in the device list the objects bind by, as drivers' endpoints are
  std::string error;
  ASSERT_TRUE(listed.Join("", zor::os::Utf16ToUtf8(render), error)) << error;
  HMODULE module = ::LoadLibraryW(zor::os::AsWinChars(modulePath.c_str()));
  const auto entry = [module](const char* name) { return reinterpret_cast<void*>(::GetProcAddress(module, name)); };
  const auto unregister = [&] { return regsvr32(false); };
#else
  // Registered through its own entry; left loaded, as hosts keep it: what it makes once
  // per process would show as leaks after an unload.
  std::filesystem::copy_file(VELAPO_TECH_LIBRARY, m_dir / "libveltech.so");
  std::filesystem::copy_file(VELAPO_MODULE_LIBRARY, m_dir / "libvelapo.so");
  const std::u16string modulePath = (m_dir / "libvelapo.so").u16string();
  void* module = ::dlopen((m_dir / "libvelapo.so").c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(module, nullptr) << ::dlerror();
  const auto entry = [module](const char* name) { return ::dlsym(module, name); };
  reinterpret_cast<ZORAPOSetStoreRootFn>(entry(kZORAPOSetStoreRootName))(m_area.Root().c_str());
  ASSERT_EQ(reinterpret_cast<HRESULT (*)()>(entry("DllRegisterServer"))(), S_OK);
  const auto unregister = [&] { return reinterpret_cast<HRESULT (*)()>(entry("DllUnregisterServer"))(); };
  uint32_t count = 0;  // the class table hosts read, in registration order
  const ZORAPOModuleClass* table = reinterpret_cast<ZORAPOGetModuleClassesFn>(entry(kZORAPOGetModuleClassesName))(&count);
  ASSERT_EQ(count, CZOR_APOModule::kClassCount);
#endif
  ExpectScripts(m_classes, modulePath, true);
  const auto getClassObject = reinterpret_cast<HRESULT (*)(REFCLSID, REFIID, void**)>(entry("DllGetClassObject"));
  const auto canUnloadNow = reinterpret_cast<HRESULT (*)()>(entry("DllCanUnloadNow"));
  const auto order = CZOR_APOModule::RegistrationOrder();
  for (size_t i = 0; i < order.size(); ++i) {
    SCOPED_TRACE(testing::Message() << "class " << i << " in registration order");
    ZORAPORegisteredClass key;
    ASSERT_EQ(ZORAPORegistryKeys(u"Software\\Classes").Read(order[i]->clsid, key), S_OK);
    IUnknown* object = nullptr;
#ifdef _WIN32
    // OSFX, OMFX: their scripts register other ids, so hosts find them by the engine keys and the factory.
    const HRESULT created =
        ::CoCreateInstance(key.clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, reinterpret_cast<void**>(&object));
    EXPECT_EQ(created, i < 5 ? S_OK : REGDB_E_CLASSNOTREG);
#else
    EXPECT_TRUE(IsEqualGUID(table[i].clsid, key.clsid) && IsEqualGUID(table[i].apoInterface, key.interfaces[0]) &&
                std::u16string(table[i].friendlyName) == key.friendlyName && table[i].flags == 12 &&
                (table[i].location == kZORLocationCapture) == (i == 1));
#endif
    IClassFactory* factory = nullptr;
    if (object == nullptr && getClassObject(key.clsid, IID_IClassFactory, reinterpret_cast<void**>(&factory)) == S_OK) {
      factory->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(&object));
      factory->Release();
    }
    ASSERT_NE(object, nullptr);
    // Capture mono at 16 kHz, render stereo at 48 kHz, both on `render`: the manager binds to render endpoints only.
    const bool capture = order[i] == ZORAPOCaptureClass().regProperties;
    ZOREngineEmulator::Stream stream = StreamOn(render, capture ? 1 : 2);
    stream.newerBlock = !capture;
    stream.rate = capture ? 16000.0f : 48000.0f;
    stream.maxFrames = capture ? 160 : 480;  // one period of the tone: buffers repeat seamlessly
    ZOREngineEmulator engine(stream);
    ASSERT_EQ(engine.Adopt(object), S_OK);
    APO_REG_PROPERTIES* properties = nullptr;
    ASSERT_EQ(engine.Object()->GetRegistrationProperties(&properties), S_OK);
    const APO_REG_PROPERTIES fromKey = key.ToRecord();
    EXPECT_EQ(std::memcmp(properties, &fromKey, sizeof(fromKey)), 0);
    CoTaskMemFree(properties);
    std::vector<float> tone(size_t{stream.maxFrames} * stream.inputChannels);
    for (size_t s = 0; s < tone.size(); ++s) {
      tone[s] = 0.5f * float(std::sin(2 * 3.14159265358979 * double(s / stream.inputChannels) / stream.maxFrames));
    }
    ASSERT_EQ(engine.RunLifeCycle(tone, 100), S_OK);
    const double in = std::inner_product(tone.begin(), tone.end(), tone.begin(), 0.0);
    const double out = std::inner_product(tone.begin(), tone.end(), engine.Output().begin(), 0.0,
                                          std::plus<>(), [](float, float y) { return double(y) * y; });
    EXPECT_NEAR(std::sqrt(out / in), std::pow(10.0, -6.0 / 20.0), 0.01);
    engine.Release();
    EXPECT_EQ(canUnloadNow(), S_FALSE);  // the object still lives
    object->Release();
  }
  EXPECT_EQ(canUnloadNow(), S_OK);
  ASSERT_EQ(unregister(), S_OK);
  ExpectScripts(m_classes, modulePath, false);
  EXPECT_FALSE(m_classes.Exists(typeLib));
  std::vector<ZORAPORegisteredClass> engineKeys;
  ASSERT_EQ(ZORAPORegistryKeys(u"Software\\Classes").ReadAll(engineKeys), S_OK);
  EXPECT_GE(engineKeys.size(), 7u);
}

}  // namespace
