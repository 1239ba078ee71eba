#pragma once
// A private corner of the settings store for one test, removed afterwards.
// POSIX: a fresh temporary root directory, made the process's store root.
// Windows: a fresh key under HKEY_LOCAL_MACHINE\Software\velapo-tests.
// Helper processes get Root() and a key path on their command line.

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/registry.h"

namespace velapo::test {

class RegistryTestArea {
 public:
  RegistryTestArea();
  ~RegistryTestArea();
  RegistryTestArea(const RegistryTestArea&) = delete;
  RegistryTestArea& operator=(const RegistryTestArea&) = delete;

  // The store root for helpers ("-" on Windows, where there is none).
  const std::string& Root() const { return m_root; }
  // A key path inside the area, for `relative` below its base.
  std::u16string Path(std::u16string_view relative = {}) const;
  // The same in UTF-8, for a helper's command line.
  std::string NarrowPath(std::u16string_view relative = {}) const;

 private:
  std::string m_root;
  std::u16string m_base;
};

// Makes `root` the store root of a helper process (POSIX; nothing on Windows).
void UseRegistryRoot(const std::string& root);

// Generous bound for waits that must succeed; reaching it means a lost signal.
inline constexpr uint32_t kMustNotTimeOutMs = 10000;

// Text as the store keeps it: UTF-16LE with `terminators` NULs behind.
inline std::vector<uint8_t> Utf16Bytes(std::u16string_view text, size_t terminators = 1) {
  std::vector<uint8_t> bytes;
  for (const char16_t unit : text) {
    bytes.push_back(static_cast<uint8_t>(unit));
    bytes.push_back(static_cast<uint8_t>(unit >> 8));
  }
  bytes.insert(bytes.end(), terminators * 2, 0);
  return bytes;
}

// A value's type and bytes, with the status of the read.
struct StoredValue {
  zor::os::RegStatus status = zor::os::RegStatus::NotFound;
  zor::os::RegType type = zor::os::RegType::None;
  std::vector<uint8_t> data;
};
inline StoredValue ReadStored(zor::os::RegKey& key, std::u16string_view name) {
  StoredValue value;
  value.status = key.ReadValue(name, value.type, value.data);
  return value;
}

inline std::set<std::u16string> ValueNames(zor::os::RegKey& key) {
  std::set<std::u16string> names;
  std::u16string name;
  for (uint32_t index = 0; key.EnumValue(index, name) == zor::os::RegStatus::Ok; ++index) names.insert(name);
  return names;
}

}  // namespace velapo::test
