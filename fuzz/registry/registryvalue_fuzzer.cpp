// Fuzzes the POSIX settings store's value file decoder and the registry
// property set's reading of registry values: any local program can write
// the store's files, and any value of a key. Beyond "no crash, no
// over-read", it checks that a file the decoder accepts encodes back to the
// same bytes, that its name escapes into a safe file name that reads back,
// and that a value the property set reads survives its way back into the
// registry, so a hostile file can never turn into a different setting.
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/posix/registrystore.h"
#include "values/zorpropertyset.h"
#include "values/zorpropertysetregistry.h"

namespace store = zor::os::regstore;
using zor::os::RegStatus;
using zor::os::RegType;

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

std::vector<uint8_t> PayloadOf(const VELAnyVal& value) {
  std::vector<uint8_t> bytes(value.GetSize());
  if (!bytes.empty()) Require(value.GetData(bytes.data(), value.GetSize()) == bytes.size());
  return bytes;
}

// What the property set reads from a value, and that reading it back from
// what the set would write gives the same value. Empty data comes back as
// the number 0 by design, so only values with a payload are compared.
void CheckValueLayout(RegType type, std::span<const uint8_t> data) {
  const VELAnyValPtr value = ZORPropertySetRegistry::ValueFromRegistry(type, data);
  if (value == nullptr) return;
  RegType writtenType = RegType::None;
  std::vector<uint8_t> written;
  Require(ZORPropertySetRegistry::ValueToRegistry(*value, writtenType, written));
  const VELAnyValPtr again = ZORPropertySetRegistry::ValueFromRegistry(writtenType, written);
  Require(again != nullptr);
  if (value->GetSize() != 0) {
    Require(again->GetType() == value->GetType());
    Require(PayloadOf(*again) == PayloadOf(*value));
  }
}

void CheckName(std::u16string_view name) {
  const std::u16string folded = store::FoldName(name);
  const std::string escaped = store::EscapeName(folded);
  Require(escaped.size() <= store::kMaxEscapedBytes);
  Require(escaped.find('/') == std::string::npos && escaped.find('\0') == std::string::npos);
  Require(escaped.empty() || (escaped[0] != '.' && escaped[0] != store::kValuePrefix));
  std::u16string back;
  if (escaped.find('~') == std::string::npos && !folded.empty()) {
    Require(store::UnescapeName(escaped, back) && back == folded);
  }
}

}  // namespace

namespace {

void CheckFile(std::span<const uint8_t> file) {
  store::Record record;
  if (store::DecodeRecord(file, record) == RegStatus::Ok) {
    Require(store::EncodeRecord(record.type, record.name, record.data) ==
            std::vector<uint8_t>(file.begin(), file.end()));
    std::u16string name;
    Require(store::DecodeRecordName(file, file.size(), name) == RegStatus::Ok &&
            name == record.name);
    CheckName(record.name);
    const auto type = static_cast<RegType>(record.type);
    CheckValueLayout(type, record.data);
    if (type == RegType::Binary && !record.data.empty()) {
      // A binary value holds a property blob: both of the set's readers.
      ZORPropertySet set;
      set.SetAllPropertiesBinary(record.data);
      set.MergePropertiesBinary(record.data, true, true);
    }
  } else {
    std::u16string name;
    store::DecodeRecordName(file, file.size(), name);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span<const uint8_t> file(data, size);
  CheckFile(file);
  // The checksum stops almost every mutation at the door; the same bytes
  // with a checksum that fits reach the checks behind it.
  if (size >= store::kRecordHeaderSize + store::kRecordTrailerSize) {
    std::vector<uint8_t> fitted(file.begin(), file.end());
    const uint32_t crc = store::Crc32(std::span(fitted).first(size - store::kRecordTrailerSize));
    for (size_t i = 0; i < 4; ++i) fitted[size - 4 + i] = static_cast<uint8_t>(crc >> (8 * i));
    CheckFile(fitted);
  }

  // The same bytes as the data of every value type, and as a file name.
  for (const RegType type : {RegType::Sz, RegType::ExpandSz, RegType::MultiSz, RegType::Dword,
                             RegType::Binary, RegType::Qword}) {
    CheckValueLayout(type, file);
  }
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  std::u16string folded;
  if (store::UnescapeName(text, folded)) Require(store::EscapeName(folded) == text);
  return 0;
}
