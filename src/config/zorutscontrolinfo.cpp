#include "config/zorutscontrolinfo.h"

#include <bit>
#include <cstring>

static_assert(sizeof(void*) == 8, "the control record layout is the 64-bit one");

namespace {

template <typename T>
T FieldAt(const void* record, size_t offset) {
  T value;
  std::memcpy(&value, static_cast<const unsigned char*>(record) + offset, sizeof(T));
  return value;
}

std::string TextOrEmpty(const char* text) { return text != nullptr ? std::string(text) : std::string(); }

}  // namespace

void ZORUTSControlInfo::ReadCommonFields(const void* record) {
  name = TextOrEmpty(FieldAt<const char*>(record, 0));
  first = FieldAt<int32_t>(record, 8);
  second = FieldAt<int32_t>(record, 12);
  type = FieldAt<int32_t>(record, 40);
  enumNames.clear();
  const auto count = FieldAt<uint32_t>(record, 24);
  const auto names = FieldAt<const char* const*>(record, 32);
  if (names == nullptr) return;
  enumNames.reserve(count);
  for (uint32_t i = 0; i < count; ++i) enumNames.push_back(TextOrEmpty(names[i]));
}

void ZORUTSControlInfo::SetFromRawDescriptor(const void* record) {
  if (record == nullptr) return;
  ReadCommonFields(record);
  scale = FieldAt<uint32_t>(record, 44);
}

void ZORUTSControlInfo::SetFromDescriptor(const void* record) {
  if (record == nullptr) return;
  ReadCommonFields(record);
  scale = std::bit_cast<uint32_t>(type == 2 ? 100.0f : 1.0f);
}

void ZORUTSControlInfo::SetName(std::string_view controlName) { name.assign(controlName); }

float ZORUTSControlInfo::GetScale() const { return std::bit_cast<float>(scale); }
