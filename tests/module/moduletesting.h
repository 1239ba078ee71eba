#pragma once
// Shared by the module's tests: a private classes root in the settings
// store, and reads of what registration left there.

#include <string>
#include <string_view>

#include "platform/registry.h"
#include "platform/text.h"
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
  // The value's text when it is a REG_SZ; "<type N>" or "<missing>" else.
  std::u16string Text(std::u16string_view relative, std::u16string_view name) const {
    zor::os::RegKey key;
    if (zor::os::RegKey::Open(Path(relative), zor::os::kKeyRead, key) != zor::os::RegStatus::Ok) return u"<no key>";
    const StoredValue value = ReadStored(key, name);
    if (value.status != zor::os::RegStatus::Ok) return u"<missing>";
    if (value.type != zor::os::RegType::Sz) return u"<type>";
    std::u16string text;
    for (size_t i = 0; i + 1 < value.data.size(); i += 2) text.push_back(char16_t(value.data[i] | value.data[i + 1] << 8));
    if (!text.empty() && text.back() == 0) text.pop_back();
    return text;
  }

 private:
  RegistryTestArea m_area;
};

}  // namespace velapo::test
