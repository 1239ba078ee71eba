// The module: its factory's answers and locks, registration (engine keys, failures, locale), the
// engine keys' reader, and the registrar (a table of grammar and bad text; the modifiers' rules).
#include "module/czor_apomodule.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "apo/zoraporegproperties.h"
#include "engine/zortestendpoint.h"
#include "module/zoraporegistrykeys.h"
#include "module/zorapomodulescripts.h"
#include "module/zorregistrar.h"
#include "moduletesting.h"
#include "platform/event.h"

namespace {

using zor::os::RegType;

// The class table's stand-in: one object, live while anyone but the test holds it.
ZORTestComObject<IUnknown> g_object(IID_IUnknown);
CLSID g_lastClsid{};

HRESULT CreateFake(REFCLSID clsid, REFIID riid, void** ppv) {
  g_lastClsid = clsid;
  return g_object.QueryInterface(riid, ppv);
}

class CZOR_APOModuleTest : public ::testing::Test {
 protected:
  static std::u16string EngineKey(const CLSID& clsid) {
    return std::u16string(ZORAPORegistryKeys::kKeyPath) + u"\\" + zor::com::GuidText(clsid);
  }

  CZOR_APOModule m_module{ZORAPOClassTable{CreateFake, [] { return uint32_t(g_object.References() - 1); }}};
  const std::array<const APO_REG_PROPERTIES*, 7> m_records = CZOR_APOModule::RegistrationOrder();
  velapo::test::ClassesRoot m_root;
  const ZORAPORegistryKeys m_keys{m_root.Path()};
};

TEST_F(CZOR_APOModuleTest, ServesTheSevenClassesOnlyAnswersAsComHostsExpectAndCountsLocksFromManyThreads) {
  // Served, in registration order (the engine keys' order): LFX, capture, SFX, MFX, EFX, OSFX, OMFX.
  const uint32_t locations[] = {kZORLocationPreBlue, 0, kZORLocationSFX, kZORLocationMFX, kZORLocationEFX,
                                kZORLocationOSFX, kZORLocationOMFX};
  void* out = nullptr;
  for (size_t i = 0; i < m_records.size(); ++i) {
    EXPECT_EQ(m_records[i], i == 1 ? ZORAPOCaptureClass().regProperties : ZORAPOClasses()[locations[i]].regProperties);
    ASSERT_EQ(m_module.GetClassObject(m_records[i]->clsid, IID_IUnknown, &out), S_OK);
    static_cast<IUnknown*>(out)->Release();
  }
  // Not served: the property page, the ids resources 113 and 114 carry, no id, an interface id.
  const CLSID unserved[] = {{0x7F578410, 0x1C20, 0x4677, {0xB1, 0x8F, 0x44, 0x74, 0x00, 0x08, 0x65, 0xD4}},
                            {0x42E82F48, 0x20E9, 0x4B35, {0x96, 0x2A, 0x44, 0x39, 0x05, 0x96, 0x70, 0xD4}},
                            {0x272B9432, 0x8AFD, 0x4935, {0x84, 0xB4, 0xA7, 0x7C, 0xFA, 0x09, 0x81, 0x5E}}, GUID_NULL,
                            m_records[0]->iidAPOInterfaceList[0]};
  for (const CLSID& clsid : unserved) {
    EXPECT_EQ(m_module.GetClassObject(clsid, IID_IClassFactory, &out), CLASS_E_CLASSNOTAVAILABLE);
  }
  out = &g_object;
  EXPECT_EQ(m_module.GetClassObject(m_records[6]->clsid, IID_IAudioProcessingObject, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(m_module.GetClassObject(m_records[6]->clsid, IID_IClassFactory, nullptr), E_POINTER);
  IClassFactory* factory = nullptr;
  ASSERT_EQ(m_module.GetClassObject(m_records[6]->clsid, IID_IClassFactory, reinterpret_cast<void**>(&factory)), S_OK);
  EXPECT_EQ(factory->CreateInstance(&g_object, IID_IUnknown, &out), CLASS_E_NOAGGREGATION);
  EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
  out = &g_object;
  EXPECT_EQ(factory->CreateInstance(nullptr, IID_IAudioProcessingObject, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
  ASSERT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, &out), S_OK);
  EXPECT_TRUE(IsEqualGUID(g_lastClsid, m_records[6]->clsid));
  factory->Release();
  EXPECT_EQ(m_module.CanUnloadNow(), S_FALSE);  // the object alone holds the module
  static_cast<IUnknown*>(out)->Release();
  EXPECT_EQ(m_module.CanUnloadNow(), S_OK);
  // LockServer from many threads balances out; an unlock of nothing is refused.
  ASSERT_EQ(m_module.GetClassObject(m_records[0]->clsid, IID_IClassFactory, reinterpret_cast<void**>(&factory)), S_OK);
  std::atomic<int> refused{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        refused += factory->LockServer(1) != S_OK;
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

// Engine keys made anew, a listener told; injected failures: the first ends registration,
// removal goes past them and keeps the engine keys; the locale is neutral, then restored.
TEST_F(CZOR_APOModuleTest, RegistrationWritesFreshKeysStopsAtTheFirstFailureAndRestoresTheLocale) {
  std::vector<uint16_t> scriptsRun;
  uint16_t missingScript = 106;
  HRESULT typeLibraryResult = S_OK;
  uint32_t locale = 1033, localeAtTypeLibrary = 0;
  const ZORAPOModuleSetup setup{
      .modulePath = u"C:\\velapo\\velapo64.dll",
      .classesRootPath = m_root.Path(),
      .loadScript = [&](uint16_t id, std::string& bytes) {
        scriptsRun.push_back(id);
        return id != missingScript && ZORAPOModuleScriptText(id, bytes);
      },
      .typeLibrary = [&](bool doRegister) {
        localeAtTypeLibrary = locale;
        return doRegister ? typeLibraryResult : S_OK;
      },
      .swapThreadLocale = [&](uint32_t next) { return std::exchange(locale, next); }};
  const std::u16string osfxKey = u"CLSID\\{42E82F48-20E9-4B35-962A-4439059670D4}";
  m_root.Put(EngineKey(m_records[2]->clsid), u"FromAnOlderVersion", RegType::Dword, {1, 0, 0, 0});
  m_root.Put(std::u16string(ZORAPORegistryKeys::kKeyPath) + u"\\NotAClass", u"", RegType::Dword, {1, 0, 0, 0});
  zor::os::Event event(zor::os::EventReset::Auto);
  ZORAPORegistryKeys::AddListener(&event);

  EXPECT_EQ(static_cast<uint32_t>(m_module.RegisterServer(setup)), 0x80040201u);
  EXPECT_TRUE(event.Wait(0));
  ZORAPORegistryKeys::RemoveListener(&event);
  EXPECT_EQ(m_root.Value(EngineKey(m_records[2]->clsid), u"FromAnOlderVersion"), "<missing>");
  EXPECT_EQ(m_root.Value(EngineKey(m_records[0]->clsid), u"APOInterface0"), "{509B8007-7DCD-4FA4-A2DC-E5622FA24415}");
  ZORAPORegisteredClass capture;  // bit for bit, each value read only with its type
  ASSERT_EQ(m_keys.Read(m_records[1]->clsid, capture), S_OK);
  const APO_REG_PROPERTIES back = capture.ToRecord();
  EXPECT_EQ(std::memcmp(&back, m_records[1], sizeof(back)), 0);
  EXPECT_FALSE(m_root.Exists(osfxKey));
  missingScript = 0;
  typeLibraryResult = static_cast<HRESULT>(0x80029C4Au);
  EXPECT_EQ(m_module.RegisterServer(setup), typeLibraryResult);
  EXPECT_FALSE(event.Wait(0));
  EXPECT_EQ(scriptsRun, (std::vector<uint16_t>{101, 102, 103, 104, 106, 101, 102, 103, 104, 106, 107, 108, 113, 114}));
  EXPECT_EQ(localeAtTypeLibrary, CZOR_APOModule::kNeutralLocale);
  EXPECT_EQ(locale, 1033u);
  missingScript = 102;
  EXPECT_EQ(static_cast<uint32_t>(m_module.UnregisterServer(setup)), 0x80040201u);
  EXPECT_FALSE(m_root.Exists(u"AppID\\ZOR_APO_Universal.DLL") || m_root.Exists(osfxKey));
  std::vector<ZORAPORegisteredClass> all;  // the engine keys stay, a key named as no class passed over
  ASSERT_EQ(m_keys.ReadAll(all), S_OK);
  EXPECT_EQ(all.size(), m_records.size());
}

// One value written wrong, refused as a Win32 result; the longest text the buffer takes reads whole.
TEST_F(CZOR_APOModuleTest, EngineKeysReaderAnswersBadValuesWithAnHresult) {
  using velapo::test::Utf16Bytes;
  const std::tuple<const char16_t*, RegType, std::vector<uint8_t>, uint32_t> cases[] = {
      {u"FriendlyName", RegType::Dword, {1, 0, 0, 0}, 0x8007000D},
      {u"FriendlyName", RegType::Sz, Utf16Bytes(std::u16string(512, u'a')), 0x800700EA},
      {u"FriendlyName", RegType::Sz, {0x41, 0, 0}, 0x8007000D},
      {u"Copyright", RegType::Binary, {}, 0x8007000D},
      {u"Flags", RegType::Dword, {12, 0, 0}, 0x8007000D},
      {u"Flags", RegType::Qword, {12, 0, 0, 0, 0, 0, 0, 0}, 0x8007000D},
      {u"NumAPOInterfaces", RegType::Dword, {2, 0, 0, 0}, 0x80070002},
      {u"NumAPOInterfaces", RegType::Dword, {65, 0, 0, 0}, 0x8007000D},
      {u"APOInterface0", RegType::Sz, Utf16Bytes(std::u16string(38, u'{')), 0x8007000D},
      {u"FriendlyName", RegType::Sz, Utf16Bytes(std::u16string(511, u'a')), S_OK},
  };
  ZORAPORegisteredClass read;
  std::vector<ZORAPORegisteredClass> all;
  for (const auto& [name, type, data, result] : cases) {
    ASSERT_EQ(m_keys.Write(*m_records[2]), S_OK);
    m_root.Put(EngineKey(m_records[2]->clsid), name, type, data);
    EXPECT_EQ(static_cast<uint32_t>(m_keys.Read(m_records[2]->clsid, read)), result) << zor::os::Utf16ToUtf8(name);
    EXPECT_EQ(static_cast<uint32_t>(m_keys.ReadAll(all)), result);
  }
  EXPECT_EQ(read.friendlyName.size(), 511u);
  EXPECT_EQ(std::u16string(zor::com::FromComText(read.ToRecord().szFriendlyName)).size(), 255u);
  EXPECT_EQ(static_cast<uint32_t>(m_keys.Read(GUID_NULL, read)), 0x80070002u);
}

const ZORRegistrarReplacement kReplacements[] = {{u"MODULE", u"C:\\x\\it's {odd}.dll"}, {u"APPID", u"{A}"}};

std::string Utf8(std::u16string_view text) { return zor::os::Utf16ToUtf8(text); }

std::string Value(const ZORRegistrarValue& value) {
  return value.kind == ZORRegistrarValueKind::Dword ? "d " + std::to_string(value.number) : "s " + Utf8(value.text);
}

// One line per key and value: path, modifiers, data.
void Flatten(const ZORRegistrarKey& key, const std::string& parent, std::string& out) {
  const std::string path = parent + "\\" + Utf8(key.name);
  out += path + (key.noRemove ? " [no]" : "") + (key.forceRemove ? " [force]" : "") +
         (key.deleteOnRegister ? " [delete]" : "") + (key.hasDefault ? " = " + Value(key.defaultValue) : "") + ";";
  for (const ZORRegistrarValue& value : key.values) out += path + "@" + Utf8(value.name) + " = " + Value(value) + ";";
  for (const ZORRegistrarKey& subkey : key.subkeys) Flatten(subkey, path, out);
}

// Each row read into its tree (one line per key and value) or refused with its message.
TEST(ZORRegistrarScriptTest, ReadsEachGrammarCaseIntoItsTreeAndRefusesBadText) {
  std::string nested = "HKCR {";
  for (int i = 0; i < 17; ++i) nested += " K {";
  nested += std::string(18, '}');
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"HKEY_CLASSES_ROOT{A{B{ C}}} HKCR { }", "HKCR\\A;HKCR\\A\\B;HKCR\\A\\B\\C;"},
      {"HKCR { {x}{ y} {031392C9-4725-4F53-9A62-E75D902BA553} = S 'x' }",
       "HKCR\\{x};HKCR\\{x}\\y;HKCR\\{031392C9-4725-4F53-9A62-E75D902BA553} = s x;"},
      {"hklm { NoRemove K { val V = d '0xFFFFFFFF' val W = d '12' } }",
       "HKLM\\K [no];HKLM\\K@V = d 4294967295;HKLM\\K@W = d 12;"},
      {"HKCR { 'it''s' = s 'a''b' 'NoRemove' { 'val' = s '' } }",
       "HKCR\\it's = s a'b;HKCR\\NoRemove;HKCR\\NoRemove\\val = s ;"},
      {"HKCR { forceremove delete K }", "HKCR\\K [force] [delete];"},
      {"HKCR { K = s '%MODULE%' { val '%APPID%' = s '%%%APPID%%%' } }",
       "HKCR\\K = s C:\\x\\it's {odd}.dll;HKCR\\K@{A} = s %{A}%;"},
      {"\xEF\xBB\xBFHKCR{K=s'\xC3\xA9'}HKLM{ L}", "HKCR\\K = s \xC3\xA9;HKLM\\L;"},
      {"HKCU { K }", "refused: unsupported root key"},
      {"{ K }", "refused: a root key was expected"},
      {"HKCR K", "refused: '{' was expected after the root key"},
      {"HKCR { K { A", "refused: a key's '}' is missing"},
      {"HKCR { K", "refused: the root's '}' is missing"},
      {"HKCR { K = s 'x }", "refused: a quote is not closed"},
      {"HKCR { K = s '%NOPE%' }", "refused: an unknown replacement name"},
      {"HKCR { K = s '50%' }", "refused: a '%' starts no replacement"},
      {"HKCR { K = d '4294967296' }", "refused: a DWORD must be a decimal or 0x number below 2^32"},
      {"HKCR { K = d '0x' }", "refused: a DWORD must be a decimal or 0x number below 2^32"},
      {"HKCR { K = d 12 }", "refused: a value's data must be quoted"},
      {"HKCR { K = x 'a' }", "refused: a value type 's' or 'd' was expected"},
      {"HKCR { val V = s 'a' }", "refused: a root key holds no values"},
      {"HKCR { K { val = s 'a' } }", "refused: a value name was expected after 'val'"},
      {"HKCR { K { val V s 'a' } }", "refused: '=' was expected after a value name"},
      {"HKCR { NoRemove ForceRemove K }", "refused: NoRemove contradicts ForceRemove and Delete"},
      {"HKCR { NoRemove NoRemove K }", "refused: a modifier is repeated"},
      {"HKCR { 'a\\b' }", "refused: a key name holds '\\' or NUL"},
      {"HKCR { " + std::string(256, 'k') + " }", "refused: a key name is empty or too long"},
      {"HKCR { = }", "refused: a key name was expected"},
      {"HKCR { {} }", "refused: a key name was expected"},
      {nested, "refused: keys are nested too deeply"},
      {"HKCR {" + std::string(ZORRegistrarScript::kMaxScriptUnits, ' ') + "}", "refused: the script is too long"},
      {"HKCR { K = s '\xC3' }", "refused: the script is not well-formed UTF-8"},
  };
  for (const auto& [text, expected] : cases) {
    ZORRegistrarScript script;
    std::string flat = script.ParseUtf8(text, kReplacements) ? "" : "refused: " + script.Error();
    for (const ZORRegistrarRootBlock& block : script.Roots()) {
      for (const ZORRegistrarKey& key : block.keys) {
        Flatten(key, block.root == ZORRegistrarRoot::ClassesRoot ? "HKCR" : "HKLM", flat);
      }
    }
    EXPECT_EQ(flat, expected) << text;
    EXPECT_LE(script.ErrorOffset(), text.size());
  }
}

TEST(ZORRegistrarTest, RegistersAgainAndRemovesByTheModifiersRules) {
  velapo::test::ClassesRoot root;
  const auto run = [&](std::u16string_view text, bool doRegister) {
    ZORRegistrarScript script;
    EXPECT_TRUE(script.Parse(text, {})) << script.Error();
    const ZORRegistrar registrar(root.Path(), root.Path(u"Machine"));
    return doRegister ? registrar.Register(script) : registrar.Unregister(script);
  };
  constexpr char16_t kScript[] =
      u"HKCR { NoRemove Shared { val Ours = s 'o' Plain = s 'p' { val N = d '5' } ForceRemove Forced = s 'f' } }"
      u"HKLM { Machine2 = d '3' }";
  ASSERT_EQ(run(kScript, true), S_OK);
  // ForceRemove clears what an older version left; a plain key is merged into.
  for (const char16_t* key : {u"Shared", u"Shared\\Plain", u"Shared\\Forced"}) {
    root.Put(key, u"Foreign", RegType::Dword, {7, 0, 0, 0});
  }
  ASSERT_EQ(run(kScript, true), S_OK);
  const std::tuple<const char16_t*, const char16_t*, const char*> values[] = {
      {u"Shared", u"Ours", "o"}, {u"Shared\\Plain", u"", "p"}, {u"Shared\\Plain", u"N", "#5"},
      {u"Machine\\Machine2", u"", "#3"}, {u"Shared\\Plain", u"Foreign", "#7"},
      {u"Shared\\Forced", u"", "f"}, {u"Shared\\Forced", u"Foreign", "<missing>"}};
  for (const auto& [key, name, data] : values) {
    EXPECT_EQ(root.Value(key, name), data) << Utf8(key) << "@" << Utf8(name);
  }
  // Removal takes our keys whole, and of a NoRemove key only our values.
  ASSERT_EQ(run(kScript, false), S_OK);
  EXPECT_EQ(root.Value(u"Shared", u"Ours"), "<missing>");
  EXPECT_EQ(root.Value(u"Shared", u"Foreign"), "#7");
  EXPECT_FALSE(root.Exists(u"Shared\\Plain") || root.Exists(u"Shared\\Forced") || root.Exists(u"Machine\\Machine2"));
  EXPECT_EQ(run(kScript, false), S_OK);  // what is gone counts as removed
  // A root name longer than any key name: the store refuses to make it.
  ZORRegistrarScript script;
  ASSERT_TRUE(script.Parse(u"HKCR { A { B } C }", {}));
  const HRESULT hr = ZORRegistrar(root.Path() + u"\\" + std::u16string(300, u'x'), u"").Register(script);
  EXPECT_EQ(static_cast<uint32_t>(hr) & 0xFFFF0000u, 0x80070000u);
  EXPECT_FALSE(root.Exists(u"C"));
}

}  // namespace
