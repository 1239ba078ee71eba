// Registration input of any bytes. An even first byte: the rest is a
// registration script, read with %MODULE% and %APPID% replaced; whatever
// reads prints back, every name quoted, into a script that reads as the
// same tree. An odd first byte: the second is a registry type and the rest
// a value of the engine's keys, through the reader's three decoders; text is
// never longer than 511 units, a DWORD is taken only as four bytes of
// REG_DWORD, and an interface id only from its braced text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "module/zoraporegistrykeys.h"
#include "module/zorregistrarscript.h"

namespace {

const ZORRegistrarReplacement kReplacements[] = {{u"MODULE", u"C:\\dir\\it's {x} 100%.dll"},
                                                 {u"APPID", u"{553C48B2-BA6B-412B-9F8D-2B62B1B912AA}"}};

std::u16string Quote(const std::u16string& text) {
  std::u16string quoted = u"'";
  for (const char16_t unit : text) {
    if (unit == u'\'') quoted += u"''";
    else if (unit == u'%') quoted += u"%%";
    else quoted += unit;
  }
  return quoted + u"'";
}

std::u16string Data(const ZORRegistrarValue& value) {
  if (value.kind == ZORRegistrarValueKind::String) return u"s " + Quote(value.text);
  std::u16string digits;
  uint32_t number = value.number;
  do {
    digits.insert(digits.begin(), static_cast<char16_t>(u'0' + number % 10));
    number /= 10;
  } while (number != 0);
  return u"d '" + digits + u"'";
}

void Print(const ZORRegistrarKey& key, std::u16string& out) {
  if (key.noRemove) out += u"NoRemove ";
  if (key.forceRemove) out += u"ForceRemove ";
  if (key.deleteOnRegister) out += u"Delete ";
  out += Quote(key.name);
  if (key.hasDefault) out += u" = " + Data(key.defaultValue);
  out += u" {\n";
  for (const ZORRegistrarValue& value : key.values) out += u"val " + Quote(value.name) + u" = " + Data(value) + u"\n";
  for (const ZORRegistrarKey& subkey : key.subkeys) Print(subkey, out);
  out += u"}\n";
}

bool Same(const ZORRegistrarValue& a, const ZORRegistrarValue& b) {
  return a.name == b.name && a.kind == b.kind && a.text == b.text && a.number == b.number;
}

bool Same(const ZORRegistrarKey& a, const ZORRegistrarKey& b) {
  if (a.name != b.name || a.noRemove != b.noRemove || a.forceRemove != b.forceRemove ||
      a.deleteOnRegister != b.deleteOnRegister || a.hasDefault != b.hasDefault ||
      (a.hasDefault && !Same(a.defaultValue, b.defaultValue)) || a.values.size() != b.values.size() ||
      a.subkeys.size() != b.subkeys.size()) {
    return false;
  }
  for (size_t i = 0; i < a.values.size(); ++i) {
    if (!Same(a.values[i], b.values[i])) return false;
  }
  for (size_t i = 0; i < a.subkeys.size(); ++i) {
    if (!Same(a.subkeys[i], b.subkeys[i])) return false;
  }
  return true;
}

void Script(const uint8_t* data, size_t size) {
  ZORRegistrarScript script;
  if (!script.ParseUtf8({reinterpret_cast<const char*>(data), size}, kReplacements)) {
    if (script.Error().empty() || !script.Roots().empty()) std::abort();
    return;
  }
  std::u16string printed;
  for (const ZORRegistrarRootBlock& block : script.Roots()) {
    printed += block.root == ZORRegistrarRoot::ClassesRoot ? u"HKCR {\n" : u"HKLM {\n";
    for (const ZORRegistrarKey& key : block.keys) Print(key, printed);
    printed += u"}\n";
  }
  ZORRegistrarScript again;
  if (printed.size() > ZORRegistrarScript::kMaxScriptUnits) return;
  if (!again.Parse(printed, {}) || again.Roots().size() != script.Roots().size()) std::abort();
  for (size_t r = 0; r < script.Roots().size(); ++r) {
    const auto& a = script.Roots()[r];
    const auto& b = again.Roots()[r];
    if (a.root != b.root || a.keys.size() != b.keys.size()) std::abort();
    for (size_t k = 0; k < a.keys.size(); ++k) {
      if (!Same(a.keys[k], b.keys[k])) std::abort();
    }
  }
}

void Value(const uint8_t* data, size_t size) {
  if (size == 0) return;
  const auto type = static_cast<zor::os::RegType>(data[0]);
  const std::span<const uint8_t> bytes(data + 1, size - 1);
  std::u16string text;
  if (SUCCEEDED(ZORAPORegistryKeys::DecodeText(type, bytes, text)) && text.size() > 511) std::abort();
  uint32_t number = 0;
  const bool dword = SUCCEEDED(ZORAPORegistryKeys::DecodeDword(type, bytes, number));
  if (dword != (type == zor::os::RegType::Dword && bytes.size() == 4)) std::abort();
  IID iid{};
  if (SUCCEEDED(ZORAPORegistryKeys::DecodeInterface(type, bytes, iid)) &&
      (!SUCCEEDED(ZORAPORegistryKeys::DecodeText(type, bytes, text)) || text.size() != 38)) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  if (data[0] % 2 == 0) Script(data + 1, size - 1);
  else Value(data + 1, size - 1);
  return 0;
}
