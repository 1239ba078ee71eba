#include "values/velanyval.h"

#include <bit>
#include <charconv>
#include <cstring>
#include <type_traits>
#include <typeinfo>

#include "platform/text.h"
#include "values/velfixedtext.h"

namespace {

template <size_t Size>
struct UnsignedOfSize;
template <>
struct UnsignedOfSize<1> { using Type = uint8_t; };
template <>
struct UnsignedOfSize<2> { using Type = uint16_t; };
template <>
struct UnsignedOfSize<4> { using Type = uint32_t; };
template <>
struct UnsignedOfSize<8> { using Type = uint64_t; };

// Little-endian bytes whatever the host's order: the bytes end up in blobs
// that other processes and the other platform read.
template <typename T>
void StoreLittleEndian(T value, unsigned char* out) {
  auto bits = std::bit_cast<typename UnsignedOfSize<sizeof(T)>::Type>(value);
  for (size_t i = 0; i < sizeof(T); ++i) {
    out[i] = static_cast<unsigned char>(bits & 0xFF);
    bits = static_cast<decltype(bits)>(bits >> 8);
  }
}

template <typename CharT>
void AppendDecimal(int64_t value, std::basic_string<CharT>& text) {
  char buffer[24];
  const auto result = std::to_chars(buffer, buffer + sizeof(buffer), value);
  for (const char* p = buffer; p != result.ptr; ++p) text.push_back(CharT(*p));
}

template <typename T, typename CharT>
bool NumberText(T value, std::basic_string<CharT>& text) {
  if constexpr (std::is_same_v<T, float>) {
    return VELFormatFixed(static_cast<double>(value), 8, text);
  } else if constexpr (std::is_same_v<T, double>) {
    return VELFormatFixed(value, 17, text);
  } else if constexpr (std::is_same_v<T, uint8_t>) {
    text.assign(1, CharT(value != 0 ? '1' : '0'));
    return true;
  } else {
    text.clear();
    AppendDecimal(static_cast<int64_t>(value), text);
    return true;
  }
}

template <typename Byte, typename CharT>
void HexText(const std::vector<Byte>& bytes, std::basic_string<CharT>& text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  text.assign(bytes.size() * 2, CharT('0'));
  for (size_t i = 0; i < bytes.size(); ++i) {
    const auto byte = static_cast<unsigned char>(bytes[i]);
    text[2 * i] = CharT(kHex[byte >> 4]);
    text[2 * i + 1] = CharT(kHex[byte & 0x0F]);
  }
}

// Same class as this one, judged by the kind code and the dynamic type.
template <typename Self>
const Self* SameKind(const Self& self, const VELAnyVal* other) {
  if (other == nullptr || other->GetType() != self.GetType()) return nullptr;
  if (typeid(*other) != typeid(Self)) return nullptr;
  return static_cast<const Self*>(other);
}

// A string seen as a C string: up to its first NUL.
template <typename CharT>
std::basic_string_view<CharT> UpToNul(const std::basic_string<CharT>& text) {
  return std::basic_string_view<CharT>(text.c_str());
}

struct TypeNames {
  const char* narrow;
  const char16_t* wide;
};
constexpr TypeNames kTypeNames[] = {
    {"Long", u"Long"},
    {"Int", u"Int"},
    {"Short", u"Short"},
    {"Float", u"Float"},
    {"Double", u"Double"},
    {"Bool", u"Bool"},
    {"ASCII String", u"ASCII String"},
    {"Wide String", u"Wide String"},
    {"Byte Array Signed", u"Byte Array Signed"},
    {"Byte Array Unsigned", u"Byte Array Unsigned"},
};
}  // namespace

// ---- VELAnyVal: "no value" ----

uint32_t VELAnyVal::GetSize() const { return 0; }
std::unique_ptr<VELAnyVal> VELAnyVal::Clone() const {
  return std::unique_ptr<VELAnyVal>(new VELAnyVal(*this));
}
uint32_t VELAnyVal::GetData(void*, uint32_t) const { return 0; }
bool VELAnyVal::GetAString(std::string&) const { return false; }
bool VELAnyVal::GetWString(std::u16string&) const { return false; }
const char* VELAnyVal::GetTypeName() const {
  return (m_type >= 0 && m_type <= VEL_ANYVAL_BINARYUC) ? kTypeNames[m_type].narrow : "";
}
const char16_t* VELAnyVal::GetTypeNameW() const {
  return (m_type >= 0 && m_type <= VEL_ANYVAL_BINARYUC) ? kTypeNames[m_type].wide : u"";
}
bool VELAnyVal::IsEqual(const VELAnyVal*) const { return false; }

// ---- numbers and bool ----

template <typename T, int32_t Code>
std::unique_ptr<VELAnyVal> VELAnyValNumber<T, Code>::Clone() const {
  return std::make_unique<VELAnyValNumber>(*this);
}

template <typename T, int32_t Code>
uint32_t VELAnyValNumber<T, Code>::GetData(void* destination, uint32_t capacity) const {
  if (destination == nullptr || capacity < sizeof(T)) return 0;
  StoreLittleEndian(m_value, static_cast<unsigned char*>(destination));
  return sizeof(T);
}

template <typename T, int32_t Code>
bool VELAnyValNumber<T, Code>::GetAString(std::string& text) const {
  return NumberText(m_value, text);
}

template <typename T, int32_t Code>
bool VELAnyValNumber<T, Code>::GetWString(std::u16string& text) const {
  return NumberText(m_value, text);
}


template <typename T, int32_t Code>
bool VELAnyValNumber<T, Code>::IsEqual(const VELAnyVal* other) const {
  const auto* same = SameKind(*this, other);
  // Plain ==: a NaN differs from itself, -0 equals 0.
  return same != nullptr && same->m_value == m_value;
}

template class VELAnyValNumber<int32_t, VEL_ANYVAL_LONG>;
template class VELAnyValNumber<int32_t, VEL_ANYVAL_INT>;
template class VELAnyValNumber<int16_t, VEL_ANYVAL_SHORT>;
template class VELAnyValNumber<float, VEL_ANYVAL_FLOAT>;
template class VELAnyValNumber<double, VEL_ANYVAL_DOUBLE>;
template class VELAnyValNumber<uint8_t, VEL_ANYVAL_BOOL>;

// ---- text ----

template <typename CharT, int32_t Code>
uint32_t VELAnyValText<CharT, Code>::GetSize() const {
  return static_cast<uint32_t>(m_value.size() * sizeof(CharT));
}

template <typename CharT, int32_t Code>
std::unique_ptr<VELAnyVal> VELAnyValText<CharT, Code>::Clone() const {
  return std::make_unique<VELAnyValText>(*this);
}

template <typename CharT, int32_t Code>
uint32_t VELAnyValText<CharT, Code>::GetData(void* destination, uint32_t capacity) const {
  const uint32_t size = GetSize();
  if (destination == nullptr || capacity < size) return 0;
  auto* out = static_cast<unsigned char*>(destination);
  for (size_t i = 0; i < m_value.size(); ++i) {
    StoreLittleEndian(m_value[i], out + i * sizeof(CharT));
  }
  return size;
}

template <typename CharT, int32_t Code>
bool VELAnyValText<CharT, Code>::GetAString(std::string& text) const {
  if constexpr (std::is_same_v<CharT, char>) {
    text = m_value;
    return true;
  } else {
    text.clear();
    // Room for three bytes per unit; anything longer is cut, not refused.
    std::string narrow = zor::os::Utf16ToUtf8(UpToNul(m_value));
    const size_t limit = m_value.size() * 3;
    if (narrow.size() > limit) narrow.resize(limit);
    text.assign(UpToNul(narrow));
    return !text.empty();
  }
}

template <typename CharT, int32_t Code>
bool VELAnyValText<CharT, Code>::GetWString(std::u16string& text) const {
  if constexpr (std::is_same_v<CharT, char16_t>) {
    text = m_value;
    return true;
  } else {
    text.clear();
    // At most one unit per byte, as a buffer of the narrow length holds.
    std::u16string wide = zor::os::Utf8ToUtf16(UpToNul(m_value));
    if (wide.size() > m_value.size()) wide.resize(m_value.size());
    text.assign(UpToNul(wide));
    return !text.empty();
  }
}

template <typename CharT, int32_t Code>
bool VELAnyValText<CharT, Code>::IsEqual(const VELAnyVal* other) const {
  const auto* same = SameKind(*this, other);
  return same != nullptr && std::basic_string_view<CharT>(m_value) == UpToNul(same->m_value);
}

template class VELAnyValText<char, VEL_ANYVAL_ASTRING>;
template class VELAnyValText<char16_t, VEL_ANYVAL_WSTRING>;

// ---- byte arrays ----

template <typename Byte, int32_t Code>
VELAnyValBinary<Byte, Code>::VELAnyValBinary(const Byte* data, uint32_t count) : VELAnyVal(Code) {
  if (data != nullptr && count != 0) m_value.assign(data, data + count);
}

template <typename Byte, int32_t Code>
uint32_t VELAnyValBinary<Byte, Code>::GetSize() const {
  return static_cast<uint32_t>(m_value.size());
}

template <typename Byte, int32_t Code>
std::unique_ptr<VELAnyVal> VELAnyValBinary<Byte, Code>::Clone() const {
  return std::make_unique<VELAnyValBinary>(*this);
}

template <typename Byte, int32_t Code>
uint32_t VELAnyValBinary<Byte, Code>::GetData(void* destination, uint32_t capacity) const {
  const uint32_t size = GetSize();
  if (destination == nullptr || capacity < size) return 0;
  if (size != 0) std::memcpy(destination, m_value.data(), size);
  return size;
}

template <typename Byte, int32_t Code>
bool VELAnyValBinary<Byte, Code>::GetAString(std::string& text) const {
  HexText(m_value, text);
  return true;
}

template <typename Byte, int32_t Code>
bool VELAnyValBinary<Byte, Code>::GetWString(std::u16string& text) const {
  HexText(m_value, text);
  return true;
}

template <typename Byte, int32_t Code>
bool VELAnyValBinary<Byte, Code>::IsEqual(const VELAnyVal* other) const {
  const auto* same = SameKind(*this, other);
  return same != nullptr && same->m_value == m_value;
}

template class VELAnyValBinary<char, VEL_ANYVAL_BINARYC>;
template class VELAnyValBinary<unsigned char, VEL_ANYVAL_BINARYUC>;
