#include "apo/zorapoinstancelimit.h"

#include "platform/registry.h"

uint32_t ZORAPOInstanceLimit::Get() {
  static const uint32_t limit = Read();
  return limit;
}

uint32_t ZORAPOInstanceLimit::Read() {
  zor::os::RegKey key;
  if (zor::os::RegKey::Open(u"Software\\VEL\\VELX", zor::os::kKeyQueryValue, key) != zor::os::RegStatus::Ok) {
    return kMaxInstances;
  }
  uint32_t count = kMaxInstances;
  // ReadDword refuses a value of any other type or size, which then counts as absent.
  if (key.ReadDword(u"BypassCount", count) != zor::os::RegStatus::Ok) return kMaxInstances;
  return count < kMaxInstances ? count : kMaxInstances;
}
