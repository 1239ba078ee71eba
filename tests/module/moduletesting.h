#pragma once
// Shared by the module's tests: what registration left below a classes root, the
// test's own in the settings store or the system's (Windows), read and written.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/littleendian.h"
#include "platform/text.h"
#include "registrytestarea.h"

namespace velapo::test {

class ClassesRoot {
 public:
  ClassesRoot() : m_area(std::make_unique<RegistryTestArea>()), m_base(m_area->Path(u"Classes")) {}
  explicit ClassesRoot(std::u16string base) : m_base(std::move(base)) {}

  std::u16string Path(std::u16string_view relative = {}) const {
    return relative.empty() ? m_base : m_base + u"\\" + std::u16string(relative);
  }
  bool Exists(std::u16string_view relative) const {
    zor::os::RegKey key;
    return zor::os::RegKey::Open(Path(relative), zor::os::kKeyRead, key) == zor::os::RegStatus::Ok;
  }
  // Writes one value, making its key, as an older version or a bad hand would.
  void Put(std::u16string_view relative, std::u16string_view name, zor::os::RegType type,
           const std::vector<uint8_t>& data) const {
    zor::os::RegKey key;
    ASSERT_EQ(zor::os::RegKey::Create(Path(relative), zor::os::kKeyAllAccess, key), zor::os::RegStatus::Ok);
    ASSERT_EQ(key.WriteValue(name, type, data), zor::os::RegStatus::Ok);
  }
  // A value as the scripts write it: REG_SZ as its text, REG_DWORD as "#n"; else "<missing>" or "<type>".
  std::string Value(std::u16string_view relative, std::u16string_view name) const {
    zor::os::RegKey key;
    zor::os::RegKey::Open(Path(relative), zor::os::kKeyRead, key);
    const StoredValue value = ReadStored(key, name);
    if (value.status != zor::os::RegStatus::Ok) return "<missing>";
    if (value.type == zor::os::RegType::Dword && value.data.size() == 4) {
      return "#" + std::to_string(zor::os::LoadLe32(value.data.data()));
    }
    std::u16string text(value.data.size() / 2, u'\0');
    for (size_t i = 0; i < text.size(); ++i) text[i] = char16_t(value.data[2 * i] | value.data[2 * i + 1] << 8);
    return value.type == zor::os::RegType::Sz ? zor::os::Utf16ToUtf8(text.substr(0, text.find(u'\0'))) : "<type>";
  }

 private:
  std::unique_ptr<RegistryTestArea> m_area;
  std::u16string m_base;
};

}  // namespace velapo::test
