#include "platform/com.h"

#include <cstring>

namespace zor::com {
namespace {

constexpr size_t kGuidTextUnits = 38;

int HexValue(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

// Reads `digits` hex digits at text[at]; false on anything that is not one.
bool ReadHex(std::u16string_view text, size_t at, size_t digits, uint32_t& value) {
  value = 0;
  for (size_t i = 0; i < digits; ++i) {
    const int digit = HexValue(text[at + i]);
    if (digit < 0) return false;
    value = (value << 4) | static_cast<uint32_t>(digit);
  }
  return true;
}

void AppendHex(std::u16string& out, uint32_t value, int digits, const char* alphabet) {
  for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) {
    out.push_back(static_cast<char16_t>(alphabet[(value >> shift) & 0xF]));
  }
}

std::u16string FormatGuid(const GUID& guid, const char* alphabet) {
  std::u16string out;
  out.reserve(kGuidTextUnits);
  out.push_back(u'{');
  AppendHex(out, guid.Data1, 8, alphabet);
  out.push_back(u'-');
  AppendHex(out, guid.Data2, 4, alphabet);
  out.push_back(u'-');
  AppendHex(out, guid.Data3, 4, alphabet);
  out.push_back(u'-');
  for (int i = 0; i < 8; ++i) {
    if (i == 2) out.push_back(u'-');
    AppendHex(out, guid.Data4[i], 2, alphabet);
  }
  out.push_back(u'}');
  return out;
}

}  // namespace

std::u16string GuidText(const GUID& guid) { return FormatGuid(guid, "0123456789ABCDEF"); }

bool ParseGuidText(std::u16string_view text, GUID& guid) {
  if (text.size() != kGuidTextUnits || text.front() != u'{' || text.back() != u'}' ||
      text[9] != u'-' || text[14] != u'-' || text[19] != u'-' || text[24] != u'-') {
    return false;
  }
  GUID parsed{};
  uint32_t part = 0;
  if (!ReadHex(text, 1, 8, part)) return false;
  parsed.Data1 = part;
  if (!ReadHex(text, 10, 4, part)) return false;
  parsed.Data2 = static_cast<uint16_t>(part);
  if (!ReadHex(text, 15, 4, part)) return false;
  parsed.Data3 = static_cast<uint16_t>(part);
  static constexpr size_t kByteAt[8] = {20, 22, 25, 27, 29, 31, 33, 35};
  for (int i = 0; i < 8; ++i) {
    if (!ReadHex(text, kByteAt[i], 2, part)) return false;
    parsed.Data4[i] = static_cast<uint8_t>(part);
  }
  guid = parsed;
  return true;
}

std::u16string PropertyKeyText(const PROPERTYKEY& key) {
  std::u16string out = FormatGuid(key.fmtid, "0123456789abcdef");
  out.push_back(u',');
  for (const char c : std::to_string(key.pid)) out.push_back(static_cast<char16_t>(c));
  return out;
}

bool ParsePropertyKeyText(std::u16string_view text, PROPERTYKEY& key) {
  if (text.size() < kGuidTextUnits + 2 || text[kGuidTextUnits] != u',') return false;
  PROPERTYKEY parsed{};
  if (!ParseGuidText(text.substr(0, kGuidTextUnits), parsed.fmtid)) return false;
  const std::u16string_view digits = text.substr(kGuidTextUnits + 1);
  if (digits.size() > 10) return false;
  uint64_t pid = 0;
  for (const char16_t c : digits) {
    if (c < u'0' || c > u'9') return false;
    pid = pid * 10 + static_cast<uint64_t>(c - u'0');
  }
  if (pid > 0xFFFFFFFFu) return false;
  parsed.pid = static_cast<DWORD>(pid);
  key = parsed;
  return true;
}

bool PropertyKeysEqual(const PROPERTYKEY& a, const PROPERTYKEY& b) {
  return a.pid == b.pid && IsEqualGUID(a.fmtid, b.fmtid);
}

WCHAR* CoTaskMemText(std::u16string_view text) {
  auto* copy = static_cast<WCHAR*>(CoTaskMemAlloc((text.size() + 1) * sizeof(WCHAR)));
  if (!copy) return nullptr;
  if (!text.empty()) std::memcpy(copy, text.data(), text.size() * sizeof(WCHAR));
  copy[text.size()] = 0;
  return copy;
}

}  // namespace zor::com
