// What the two registry back ends share: status names and the REG_DWORD
// helpers, which only use the public operations.
#include "platform/littleendian.h"
#include "platform/registry.h"

namespace zor::os {

const char* RegStatusName(RegStatus status) {
  switch (status) {
    case RegStatus::Ok:
      return "Ok";
    case RegStatus::NotFound:
      return "NotFound";
    case RegStatus::AccessDenied:
      return "AccessDenied";
    case RegStatus::NotOpen:
      return "NotOpen";
    case RegStatus::InvalidData:
      return "InvalidData";
    case RegStatus::InvalidParameter:
      return "InvalidParameter";
    case RegStatus::MoreData:
      return "MoreData";
    case RegStatus::NoMoreItems:
      return "NoMoreItems";
    case RegStatus::IoFailed:
      return "IoFailed";
    case RegStatus::KeyDeleted:
      return "KeyDeleted";
  }
  return "Unknown";
}

RegStatus RegKey::ReadDword(std::u16string_view name, uint32_t& number) const {
  RegType type = RegType::None;
  std::vector<uint8_t> data;
  const RegStatus status = ReadValue(name, type, data);
  if (status != RegStatus::Ok) return status;
  if (type != RegType::Dword || data.size() != 4) return RegStatus::InvalidData;
  number = LoadLe32(data.data());
  return RegStatus::Ok;
}

RegStatus RegKey::WriteDword(std::u16string_view name, uint32_t number) const {
  const uint8_t data[4] = {static_cast<uint8_t>(number), static_cast<uint8_t>(number >> 8),
                           static_cast<uint8_t>(number >> 16), static_cast<uint8_t>(number >> 24)};
  return WriteValue(name, RegType::Dword, data);
}

}  // namespace zor::os
