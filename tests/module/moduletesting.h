#pragma once
// Shared by the module's tests: a private classes root in the settings
// store, and reads of what registration left there.

#include <string>
#include <string_view>

#include "platform/registry.h"
#include "registrytestarea.h"

namespace velapo::test {

class ClassesRoot {
 public:
  std::u16string Path(std::u16string_view relative = {}) const {
    return relative.empty() ? m_area.Path(u"Classes") : m_area.Path(u"Classes\\" + std::u16string(relative));
  }
  bool Exists(std::u16string_view relative) const {
    zor::os::RegKey key;
    return zor::os::RegKey::Open(Path(relative), zor::os::kKeyRead, key) == zor::os::RegStatus::Ok;
  }
  // A REG_SZ value's text; "<missing>", or "<type>" for another type.
  std::u16string Text(std::u16string_view relative, std::u16string_view name) const {
    const StoredValue value = Read(relative, name);
    if (value.status != zor::os::RegStatus::Ok) return u"<missing>";
    if (value.type != zor::os::RegType::Sz) return u"<type>";
    std::u16string text;
    for (size_t i = 0; i + 3 < value.data.size(); i += 2) text.push_back(char16_t(value.data[i] | value.data[i + 1] << 8));
    return text;
  }
  // A REG_DWORD value; 0xDEADBEEF when missing or of another type.
  uint32_t Dword(std::u16string_view relative, std::u16string_view name) const {
    const StoredValue value = Read(relative, name);
    if (value.status != zor::os::RegStatus::Ok || value.type != zor::os::RegType::Dword) return 0xDEADBEEF;
    return value.data[0] | value.data[1] << 8 | value.data[2] << 16 | uint32_t(value.data[3]) << 24;
  }

 private:
  StoredValue Read(std::u16string_view relative, std::u16string_view name) const {
    zor::os::RegKey key;
    zor::os::RegKey::Open(Path(relative), zor::os::kKeyRead, key);
    return ReadStored(key, name);
  }
  RegistryTestArea m_area;
};

}  // namespace velapo::test
