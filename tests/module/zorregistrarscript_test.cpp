// The registration-script reader: a grammar table read into trees and a
// table of bad text refused with a message (the fuzzer takes the rest).
#include "module/zorregistrarscript.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/text.h"

namespace {

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

TEST(ZORRegistrarScriptTest, ReadsEachGrammarCaseIntoItsTree) {
  const std::pair<const char16_t*, const char*> cases[] = {
      {u"", ""},
      {u"HKEY_CLASSES_ROOT{A{B{ C}}} HKCR { }", "HKCR\\A;HKCR\\A\\B;HKCR\\A\\B\\C;"},
      {u"HKCR { {x}{ y} {031392C9-4725-4F53-9A62-E75D902BA553} = S 'x' }",
       "HKCR\\{x};HKCR\\{x}\\y;HKCR\\{031392C9-4725-4F53-9A62-E75D902BA553} = s x;"},
      {u"hklm { NoRemove K { val V = d '0xFFFFFFFF' val W = d '12' } }",
       "HKLM\\K [no];HKLM\\K@V = d 4294967295;HKLM\\K@W = d 12;"},
      {u"HKCR { 'it''s' = s 'a''b' 'NoRemove' { 'val' = s '' } }",
       "HKCR\\it's = s a'b;HKCR\\NoRemove;HKCR\\NoRemove\\val = s ;"},
      {u"HKCR { forceremove delete K }", "HKCR\\K [force] [delete];"},
      {u"HKCR { K = s '%MODULE%' { val '%APPID%' = s '%%%APPID%%%' } }",
       "HKCR\\K = s C:\\x\\it's {odd}.dll;HKCR\\K@{A} = s %{A}%;"},
      {u"\uFEFFHKCR{K=s'1'}HKLM{ L}", "HKCR\\K = s 1;HKLM\\L;"},
  };
  for (const auto& [text, tree] : cases) {
    ZORRegistrarScript script;
    ASSERT_TRUE(script.Parse(text, kReplacements)) << Utf8(text) << ": " << script.Error();
    std::string flat;
    for (const ZORRegistrarRootBlock& block : script.Roots()) {
      for (const ZORRegistrarKey& key : block.keys) {
        Flatten(key, block.root == ZORRegistrarRoot::ClassesRoot ? "HKCR" : "HKLM", flat);
      }
    }
    EXPECT_EQ(flat, tree) << Utf8(text);
  }
}

TEST(ZORRegistrarScriptTest, RefusesBadTextWithAMessageAndNoTree) {
  std::u16string nested = u"HKCR {";
  for (int i = 0; i < 17; ++i) nested += u" K {";
  nested += std::u16string(18, u'}');
  const std::pair<std::u16string, const char*> cases[] = {
      {u"HKCU { K }", "unsupported root"},
      {u"{ K }", "a root key was expected"},
      {u"HKCR K", "'{' was expected"},
      {u"HKCR { K { A", "'}' is missing"},
      {u"HKCR { K = s 'x }", "not closed"},
      {u"HKCR { K = s '%NOPE%' }", "unknown replacement"},
      {u"HKCR { K = s '50%' }", "starts no replacement"},
      {u"HKCR { K = d '4294967296' }", "DWORD"},
      {u"HKCR { K = d '0x' }", "DWORD"},
      {u"HKCR { K = d '-1' }", "DWORD"},
      {u"HKCR { K = d 12 }", "must be quoted"},
      {u"HKCR { K = x 'a' }", "'s' or 'd'"},
      {u"HKCR { val V = s 'a' }", "holds no values"},
      {u"HKCR { K { val = s 'a' } }", "value name was expected"},
      {u"HKCR { K { val V s 'a' } }", "'=' was expected"},
      {u"HKCR { NoRemove ForceRemove K }", "contradicts"},
      {u"HKCR { NoRemove NoRemove K }", "repeated"},
      {u"HKCR { 'a\\b' }", "'\\'"},
      {u"HKCR { " + std::u16string(256, u'k') + u" }", "empty or too long"},
      {u"HKCR { = }", "key name was expected"},
      {u"HKCR { {} }", "key name was expected"},
      {nested, "nested too deeply"},
      {u"HKCR {" + std::u16string(ZORRegistrarScript::kMaxScriptUnits, u' ') + u"}", "too long"},
  };
  for (const auto& [text, error] : cases) {
    ZORRegistrarScript script;
    EXPECT_FALSE(script.Parse(text, kReplacements)) << Utf8(text);
    EXPECT_NE(script.Error().find(error), std::string::npos) << Utf8(text) << " gave " << script.Error();
    EXPECT_TRUE(script.Roots().empty());
    EXPECT_LE(script.ErrorOffset(), text.size());
  }
  ZORRegistrarScript script;
  EXPECT_FALSE(script.ParseUtf8("HKCR { K = s '\xC3' }", kReplacements));
  EXPECT_NE(script.Error().find("UTF-8"), std::string::npos);
  ASSERT_TRUE(script.ParseUtf8("HKCR { K = s '\xC3\xA9' }", kReplacements));
  EXPECT_EQ(script.Roots()[0].keys[0].defaultValue.text, u"\u00E9");
}

}  // namespace
