#pragma once
// A private corner of the settings store for one test, removed afterwards.
// POSIX: a fresh temporary root directory, made the process's store root.
// Windows: a fresh key under HKEY_LOCAL_MACHINE\Software\velapo-tests.
// Helper processes get Root() and a key path on their command line.

#include <string>
#include <string_view>

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

}  // namespace velapo::test
