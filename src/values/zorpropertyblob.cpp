#include "values/zorpropertyblob.h"

#include <bit>
#include <cstring>
#include <type_traits>

#include "platform/littleendian.h"

namespace {

template <typename U>
U LoadLittleEndian(const uint8_t* p) {
  U value = 0;
  for (size_t i = sizeof(U); i-- > 0;) value = static_cast<U>(value << 8 | p[i]);
  return value;
}

// UTF-16LE bytes to code units, taken as a C string. An odd last byte is the
// low half of one more unit, as if the field were followed by zeros.
std::u16string UnitsUpToNul(const uint8_t* bytes, size_t size) {
  std::u16string units;
  units.reserve((size + 1) / 2);
  for (size_t i = 0; i < size; i += 2) {
    const char16_t unit =
        static_cast<char16_t>(bytes[i] | (i + 1 < size ? bytes[i + 1] << 8 : 0));
    if (unit == 0) break;
    units.push_back(unit);
  }
  return units;
}

// Builds the value of one record. Null for an unknown kind; `malformed` is set
// when a number has fewer bytes than its width.
VELAnyValPtr MakeValue(int8_t kind, const uint8_t* bytes, uint32_t size, bool& malformed) {
  auto number = [&](auto* tag) -> VELAnyValPtr {
    using Value = std::remove_pointer_t<decltype(tag)>;
    using Payload = decltype(Value(0).GetValue());
    if (size < sizeof(Payload)) {
      malformed = true;
      return nullptr;
    }
    if constexpr (std::is_same_v<Payload, float>) {
      return std::make_shared<Value>(std::bit_cast<float>(LoadLittleEndian<uint32_t>(bytes)));
    } else if constexpr (std::is_same_v<Payload, double>) {
      return std::make_shared<Value>(std::bit_cast<double>(LoadLittleEndian<uint64_t>(bytes)));
    } else {
      using Unsigned = std::make_unsigned_t<Payload>;
      return std::make_shared<Value>(static_cast<Payload>(LoadLittleEndian<Unsigned>(bytes)));
    }
  };
  switch (kind) {
    case VEL_ANYVAL_LONG: return number(static_cast<VELAnyValLong*>(nullptr));
    case VEL_ANYVAL_INT: return number(static_cast<VELAnyValInt*>(nullptr));
    case VEL_ANYVAL_SHORT: return number(static_cast<VELAnyValShort*>(nullptr));
    case VEL_ANYVAL_FLOAT: return number(static_cast<VELAnyValFloat*>(nullptr));
    case VEL_ANYVAL_DOUBLE: return number(static_cast<VELAnyValDouble*>(nullptr));
    case VEL_ANYVAL_BOOL: return number(static_cast<VELAnyValBool*>(nullptr));
    case VEL_ANYVAL_ASTRING: {
      // Text ends at its first NUL, as a C string would.
      const void* nul = std::memchr(bytes, 0, size);
      const size_t length = nul ? static_cast<size_t>(static_cast<const uint8_t*>(nul) - bytes) : size;
      return std::make_shared<VELAnyValAString>(
          std::string(reinterpret_cast<const char*>(bytes), length));
    }
    case VEL_ANYVAL_WSTRING:
      return std::make_shared<VELAnyValWString>(UnitsUpToNul(bytes, size));
    case VEL_ANYVAL_BINARYC:
      return std::make_shared<VELAnyValBinaryC>(reinterpret_cast<const char*>(bytes), size);
    case VEL_ANYVAL_BINARYUC:
      return std::make_shared<VELAnyValBinaryUC>(bytes, size);
    default:
      return nullptr;
  }
}

}  // namespace

bool ZORPropertyBlob::Write(const ZORPropertyList& list, std::vector<uint8_t>& blob) {
  blob.clear();
  bool complete = true;
  for (const ZORProperty& entry : list) {
    // A reader stops at a record it cannot take and loses all after it, so
    // such an entry is left out rather than written.
    const std::u16string_view name(entry.name.c_str());
    const uint32_t valueSize = entry.value ? entry.value->GetSize() : 0;
    const size_t nameSize = name.size() * sizeof(char16_t);
    if (valueSize == 0 || nameSize == 0 || nameSize > kMaxNameSize) {
      complete = false;
      continue;
    }
    const size_t start = blob.size();
    blob.resize(start + kHeaderSize + nameSize + 1 + valueSize);
    uint8_t* record = blob.data() + start;
    zor::os::StoreLe32(record, static_cast<uint32_t>(nameSize));
    zor::os::StoreLe32(record + 4, 1);
    zor::os::StoreLe32(record + 8, valueSize);
    uint8_t* out = record + kHeaderSize;
    for (char16_t unit : name) {
      *out++ = static_cast<uint8_t>(unit & 0xFF);
      *out++ = static_cast<uint8_t>(unit >> 8);
    }
    *out++ = static_cast<uint8_t>(entry.value->GetType());
    if (entry.value->GetData(out, valueSize) == 0) complete = false;
  }
  return complete;
}

ZORPropertyBlob::Record ZORPropertyBlob::ReadRecord(std::span<const uint8_t> blob, size_t offset) {
  Record record;
  if (offset > blob.size() || blob.size() - offset < kHeaderSize) return record;
  const uint8_t* header = blob.data() + offset;
  const uint32_t nameSize = zor::os::LoadLe32(header);
  const uint32_t kindSize = zor::os::LoadLe32(header + 4);
  const uint32_t valueSize = zor::os::LoadLe32(header + 8);
  if (nameSize == 0 || kindSize == 0 || nameSize > kMaxNameSize || kindSize > kMaxKindSize) {
    return record;
  }
  // 64-bit sum: V is up to 2^32 - 1 and must not wrap around the check.
  const uint64_t total = uint64_t{kHeaderSize} + nameSize + kindSize + valueSize;
  if (total > blob.size() - offset) return record;

  const uint8_t* name = header + kHeaderSize;
  const uint8_t* kind = name + nameSize;
  const uint8_t* value = kind + kindSize;
  bool malformed = false;
  record.property.value = MakeValue(static_cast<int8_t>(kind[0]), value, valueSize, malformed);
  if (malformed) return record;
  record.property.name = UnitsUpToNul(name, nameSize);
  record.valueSize = valueSize;
  record.consumed = static_cast<size_t>(total);
  return record;
}

bool ZORPropertyBlob::Read(std::span<const uint8_t> blob, ZORPropertyList& list) {
  bool result = false;
  size_t position = 0;
  while (position + 1 < blob.size()) {
    Record record = ReadRecord(blob, position);
    if (record.consumed == 0 || record.valueSize == 0) return false;
    position += record.consumed;
    result = true;
    if (record.property.name.empty() || !record.property.value) continue;
    list.push_back(std::move(record.property));
  }
  return result;
}
