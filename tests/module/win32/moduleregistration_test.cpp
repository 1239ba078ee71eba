// velapo64.dll registered by the system's regsvr32 and read back through
// HKEY_CLASSES_ROOT, as COM and the audio engine see it.
#include <windows.h>
#include <oleauto.h>

#include <gtest/gtest.h>

#include <cstring>

#include "apo/zoraporegproperties.h"
#include "module/zoraporegistrykeys.h"
#include "moduleinstall.h"
#include "platform/com.h"

namespace {

using velapo::test::ClassesKeyExists;
using velapo::test::ClassesValue;

const std::wstring kAppId = L"{553C48B2-BA6B-412B-9F8D-2B62B1B912AA}";
const std::wstring kTypeLib = L"{8D6935E1-F1D5-4C56-8951-3E2415FDD2AF}";
const std::wstring kApoKeys = L"AudioEngine\\AudioProcessingObjects\\";

struct Entry {
  std::wstring key;
  std::wstring name;
  std::wstring data;  // %DLL% for the installed module's path
};

// Every COM entry the scripts make, by key, value and data.
std::vector<Entry> ComEntries() {
  std::vector<Entry> entries = {
      {L"AppID\\" + kAppId, L"", L"ZOR_APO_Universal"},
      {L"AppID\\ZOR_APO_Universal.DLL", L"AppID", kAppId},
  };
  const struct {
    const wchar_t* name;
    const wchar_t* clsid;
    const wchar_t* threading;
  } progIdClasses[] = {
      {L"ZOR_LFX_APO_Universal", L"{031392C9-4725-4F53-9A62-E75D902BA553}", L"Both"},
      {L"ZOR_LFX_Capture_APO_Universal", L"{8B247353-92B7-4588-860C-6BB07BD74567}", L"Both"},
      {L"ZOR_LFX_PropPage_APO_Universal", L"{7F578410-1C20-4677-B18F-4474000865D4}", L"Apartment"},
  };
  for (const auto& c : progIdClasses) {
    const std::wstring progId = std::wstring(L"ZOR_APO_Universal.") + c.name;
    const std::wstring key = std::wstring(L"CLSID\\") + c.clsid;
    const std::wstring text = std::wstring(c.name) + L" Class";
    entries.insert(entries.end(), {
        {progId + L".1", L"", text},
        {progId + L".1\\CLSID", L"", c.clsid},
        {progId, L"", text},
        {progId + L"\\CLSID", L"", c.clsid},
        {progId + L"\\CurVer", L"", progId + L".1"},
        {key, L"", text},
        {key, L"AppID", kAppId},
        {key + L"\\ProgID", L"", progId + L".1"},
        {key + L"\\VersionIndependentProgID", L"", progId},
        {key + L"\\InprocServer32", L"", L"%DLL%"},
        {key + L"\\InprocServer32", L"ThreadingModel", c.threading},
        {key + L"\\TypeLib", L"", kTypeLib},
    });
  }
  const struct {
    const wchar_t* name;
    const wchar_t* clsid;
    const wchar_t* typeLib;
  } plainClasses[] = {
      {L"VEL_SFX_APO", L"{07531B73-E4CA-4B94-9D0E-D3C9A7825FE5}", kTypeLib.c_str()},
      {L"VEL_MFX_APO", L"{FCDD3010-BB3F-4B24-8074-A18FC7D558F7}", kTypeLib.c_str()},
      {L"VEL_EFX_APO", L"{599C2638-CC15-4FFE-B16A-9246260D2DF7}", kTypeLib.c_str()},
      // The ids these two scripts carry are not the classes' own, and their
      // type library is one nothing registers: kept as the scripts have them.
      {L"VEL_OSFX_APO", L"{42E82F48-20E9-4B35-962A-4439059670D4}", L"{7FBEFE6C-4533-4E2C-9740-2A7BB520AC16}"},
      {L"VEL_OMFX_APO", L"{272B9432-8AFD-4935-84B4-A77CFA09815E}", L"{7FBEFE6C-4533-4E2C-9740-2A7BB520AC16}"},
  };
  for (const auto& c : plainClasses) {
    const std::wstring key = std::wstring(L"CLSID\\") + c.clsid;
    entries.insert(entries.end(), {
        {key, L"", std::wstring(c.name) + L" Class"},
        {key + L"\\InprocServer32", L"", L"%DLL%"},
        {key + L"\\InprocServer32", L"ThreadingModel", L"Both"},
        {key + L"\\TypeLib", L"", c.typeLib},
        {key + L"\\Version", L"", L"1.0"},
    });
  }
  entries.push_back({L"TypeLib\\" + kTypeLib + L"\\1.0\\0\\win64", L"", L"%DLL%"});
  return entries;
}

// The engine's keys read back through the reader, which takes each value
// only with its type, as the records they came from.
void ExpectEngineKeys() {
  std::vector<ZORAPORegisteredClass> keys;
  ASSERT_EQ(ZORAPORegistryKeys(u"Software\\Classes").ReadAll(keys), S_OK);
  for (const ZORAPOClassInfo& info : ZORAPOClasses()) {
    ZORAPORegisteredClass key;
    ASSERT_EQ(ZORAPORegistryKeys(u"Software\\Classes").Read(info.regProperties->clsid, key), S_OK);
    const APO_REG_PROPERTIES record = key.ToRecord();
    EXPECT_EQ(std::memcmp(&record, info.regProperties, sizeof(record)), 0) << info.logName;
  }
}

std::string Narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }

class ModuleRegistrationTest : public ::testing::Test {
 protected:
  void ExpectAll(const std::vector<Entry>& entries) {
    for (const Entry& entry : entries) {
      const std::wstring expected = entry.data == L"%DLL%" ? m_install.DllPath() : entry.data;
      EXPECT_EQ(ClassesValue(entry.key, entry.name), expected) << Narrow(entry.key) << " " << Narrow(entry.name);
    }
  }
  void SetStale(const std::wstring& key) {
    HKEY handle = nullptr;
    ASSERT_EQ(::RegOpenKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_SET_VALUE, &handle), ERROR_SUCCESS);
    const DWORD one = 1;
    ::RegSetValueExW(handle, L"Stale", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&one), sizeof(one));
    ::RegCloseKey(handle);
  }

  velapo::test::ModuleInstall m_install;
};

TEST_F(ModuleRegistrationTest, Regsvr32WritesEveryKeyAndRemovesAllButTheEngineKeys) {
  ASSERT_TRUE(m_install.Ready());
  ASSERT_EQ(m_install.RunRegsvr32(false), 0);
  ExpectAll(ComEntries());
  ExpectEngineKeys();
  EXPECT_TRUE(ClassesKeyExists(L"CLSID\\{7F578410-1C20-4677-B18F-4474000865D4}\\Programmable"));
  EXPECT_FALSE(ClassesKeyExists(L"TypeLib\\{7FBEFE6C-4533-4E2C-9740-2A7BB520AC16}"));

  // The registered type library names each class's interface.
  ITypeLib* library = nullptr;
  const GUID libraryId = {0x8D6935E1, 0xF1D5, 0x4C56, {0x89, 0x51, 0x3E, 0x24, 0x15, 0xFD, 0xD2, 0xAF}};
  ASSERT_EQ(::LoadRegTypeLib(libraryId, 1, 0, 0, &library), S_OK);
  for (const ZORAPOClassInfo& info : ZORAPOClasses()) {
    ITypeInfo* type = nullptr;
    EXPECT_EQ(library->GetTypeInfoOfGuid(info.regProperties->iidAPOInterfaceList[0], &type), S_OK);
    if (type != nullptr) type->Release();
  }
  EXPECT_EQ(library->GetTypeInfoCount(), 9u);  // seven interfaces, the manager's and its class
  library->Release();

  // A second registration over keys holding values of an older version.
  SetStale(L"CLSID\\{031392C9-4725-4F53-9A62-E75D902BA553}");
  SetStale(kApoKeys + L"{031392C9-4725-4F53-9A62-E75D902BA553}");
  ASSERT_EQ(m_install.RunRegsvr32(false), 0);
  EXPECT_EQ(ClassesValue(L"CLSID\\{031392C9-4725-4F53-9A62-E75D902BA553}", L"Stale"), L"<missing>");
  EXPECT_EQ(ClassesValue(kApoKeys + L"{031392C9-4725-4F53-9A62-E75D902BA553}", L"Stale"), L"<missing>");

  ASSERT_EQ(m_install.RunRegsvr32(true), 0);
  for (const Entry& entry : ComEntries()) EXPECT_FALSE(ClassesKeyExists(entry.key)) << Narrow(entry.key);
  EXPECT_FALSE(ClassesKeyExists(L"TypeLib\\" + kTypeLib));
  EXPECT_TRUE(ClassesKeyExists(L"CLSID"));
  EXPECT_TRUE(ClassesKeyExists(L"AppID"));
  ExpectEngineKeys();
}

}  // namespace
