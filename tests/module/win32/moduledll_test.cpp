// velapo64.dll as a user installs it: copied with veltech64.dll into a
// directory of its own, registered by the system's regsvr32 and read back
// through HKEY_CLASSES_ROOT key by key as its scripts say, then every class
// made as hosts make them (CoCreateInstance; OSFX and OMFX through the engine
// keys and DllGetClassObject) and run; regsvr32 /u leaves the engine keys.
#include <windows.h>
#include <process.h>

#include <gtest/gtest.h>

#include <cstring>

#include "hostendpoint.h"
#include "module/zorapomodulescripts.h"
#include "module/zorregistrarscript.h"
#include "moduleflow.h"

namespace {

using namespace velapo::test;

std::wstring Wide(std::u16string_view text) { return std::wstring(text.begin(), text.end()); }
std::string Narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }

// A value's data as the scripts write it: REG_SZ as it is, REG_DWORD as "#n".
std::wstring ClassesValue(const std::wstring& key, const std::wstring& name) {
  DWORD type = 0;
  wchar_t data[1024];
  DWORD size = sizeof(data);
  if (::RegGetValueW(HKEY_CLASSES_ROOT, key.c_str(), name.empty() ? nullptr : name.c_str(), RRF_RT_ANY | RRF_NOEXPAND,
                     &type, data, &size) != ERROR_SUCCESS) {
    return L"<missing>";
  }
  DWORD number = 0;
  std::memcpy(&number, data, sizeof(number));
  if (type == REG_DWORD) return L"#" + std::to_wstring(number);
  return type == REG_SZ ? std::wstring(data) : L"<type>";
}

bool ClassesKeyExists(const std::wstring& key) {
  HKEY handle = nullptr;
  if (::RegOpenKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, &handle) != ERROR_SUCCESS) return false;
  ::RegCloseKey(handle);
  return true;
}

std::wstring ScriptData(const ZORRegistrarValue& value) {
  return value.kind == ZORRegistrarValueKind::Dword ? L"#" + std::to_wstring(value.number) : Wide(value.text);
}

// Registered: every key and value of the script is there with its data.
// Removed: every key but the NoRemove ones is gone.
void ExpectScriptKey(const ZORRegistrarKey& key, const std::wstring& parent, bool registered) {
  const std::wstring path = parent + Wide(key.name);
  if (key.deleteOnRegister) return;
  if (!registered && !key.noRemove) {
    EXPECT_FALSE(ClassesKeyExists(path)) << Narrow(path);
    return;
  }
  if (registered && key.hasDefault) {
    EXPECT_EQ(ClassesValue(path, L""), ScriptData(key.defaultValue)) << Narrow(path);
  }
  for (const ZORRegistrarValue& value : key.values) {
    EXPECT_EQ(ClassesValue(path, Wide(value.name)), registered ? ScriptData(value) : L"<missing>") << Narrow(path);
  }
  for (const ZORRegistrarKey& subkey : key.subkeys) ExpectScriptKey(subkey, path + L"\\", registered);
}

class ModuleDllTest : public ModuleFlow {
 protected:
  void SetUp() override {
    ModuleFlow::SetUp();
    wchar_t buffer[MAX_PATH * 4];
    const std::filesystem::path from =
        std::filesystem::path(std::wstring(buffer, ::GetModuleFileNameW(nullptr, buffer, MAX_PATH * 4))).parent_path();
    m_dll = Install(from / VELAPO_MODULE_DLL, "velapo64.dll", from / VELAPO_TECH_DLL, "veltech64.dll").wstring();
  }
  // regsvr32's exit code; -1 when it could not be started.
  int Regsvr32(bool unregister) {
    const std::wstring dll = L"\"" + m_dll + L"\"";
    const wchar_t* const add[] = {L"regsvr32.exe", L"/s", dll.c_str(), nullptr};
    const wchar_t* const remove[] = {L"regsvr32.exe", L"/s", L"/u", dll.c_str(), nullptr};
    return static_cast<int>(::_wspawnvp(_P_WAIT, L"regsvr32.exe", unregister ? remove : add));
  }
  void ExpectScripts(bool registered) {
    const std::u16string dll(m_dll.begin(), m_dll.end());
    const ZORRegistrarReplacement replacements[] = {{u"MODULE", dll}, {u"APPID", kZORAPOModuleAppId}};
    std::vector<uint16_t> ids(CZOR_APOModule::kClassScripts.begin(), CZOR_APOModule::kClassScripts.end());
    ids.push_back(CZOR_APOModule::kAppIdScript);
    for (const uint16_t id : ids) {
      std::string bytes;
      ZORRegistrarScript script;
      ASSERT_TRUE(ZORAPOModuleScriptText(id, bytes) && script.ParseUtf8(bytes, replacements)) << id;
      for (const ZORRegistrarKey& key : script.Roots()[0].keys) ExpectScriptKey(key, L"", registered);
    }
  }
  std::wstring m_dll;
};

TEST_F(ModuleDllTest, Regsvr32WritesEveryKeyAndEveryClassRunsAsHostsMakeIt) {
  ASSERT_EQ(Regsvr32(false), 0);
  ExpectScripts(true);
  const std::wstring typeLibKey = L"TypeLib\\{8D6935E1-F1D5-4C56-8951-3E2415FDD2AF}";
  EXPECT_EQ(ClassesValue(typeLibKey + L"\\1.0\\0\\win64", L""), m_dll);
  EXPECT_FALSE(ClassesKeyExists(L"TypeLib\\{7FBEFE6C-4533-4E2C-9740-2A7BB520AC16}"));  // named by 113/114 only

  const std::u16string render = MakeEndpoint(VELAPO_FLOW_CONFIG).Guid();
  HostEndpoint listed;  // in the device list the objects bind by, as drivers' endpoints are
  std::string error;
  ASSERT_TRUE(listed.Join("", zor::os::Utf16ToUtf8(render), error)) << error;
  HMODULE dll = ::LoadLibraryW(m_dll.c_str());  // the DLL COM loaded
  const auto entry = [dll](const char* name) { return reinterpret_cast<void*>(::GetProcAddress(dll, name)); };
  const auto getClassObject = reinterpret_cast<GetClassObjectFn>(entry("DllGetClassObject"));
  RunEveryClass(render, reinterpret_cast<CanUnloadNowFn>(entry("DllCanUnloadNow")),
                [&](size_t i, const ZORAPORegisteredClass& key) -> IUnknown* {  // as hosts make them
                  IUnknown* object = nullptr;
                  const HRESULT created = ::CoCreateInstance(key.clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                                                             reinterpret_cast<void**>(&object));
                  if (i < 5) {
                    EXPECT_EQ(created, S_OK);
                    return object;
                  }
                  // OSFX, OMFX: their scripts register other ids, so hosts use the engine keys.
                  EXPECT_EQ(created, REGDB_E_CLASSNOTREG);
                  return FromFactory(getClassObject, key.clsid);
                });
  ::FreeLibrary(dll);
  ASSERT_EQ(Regsvr32(true), 0);
  ExpectScripts(false);
  EXPECT_FALSE(ClassesKeyExists(typeLibKey));
  std::vector<ZORAPORegisteredClass> engineKeys;
  ASSERT_EQ(ZORAPORegistryKeys(u"Software\\Classes").ReadAll(engineKeys), S_OK);
  EXPECT_GE(engineKeys.size(), 7u);
}

}  // namespace
