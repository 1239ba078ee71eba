#pragma once
// The module installed as a user installs it, for the Windows tests: copied
// with the tech module into a directory of its own, away from the test
// executable, and registered by the system's regsvr32.

#include <windows.h>

#include <string>

namespace velapo::test {

class ModuleInstall {
 public:
  // Copies the built modules (found relative to the test executable) into a
  // fresh directory under the temporary directory.
  ModuleInstall();
  ~ModuleInstall();
  ModuleInstall(const ModuleInstall&) = delete;
  ModuleInstall& operator=(const ModuleInstall&) = delete;

  bool Ready() const { return !m_dllPath.empty(); }
  const std::wstring& DllPath() const { return m_dllPath; }
  // regsvr32 /s [/u] on the copy; its exit code, or -1 when it couldn't run.
  long RunRegsvr32(bool unregister) const;

 private:
  std::wstring m_directory;
  std::wstring m_dllPath;
};

// HKEY_CLASSES_ROOT reads, as the engine and COM see the classes root.
bool ClassesKeyExists(const std::wstring& key);
// The value's type and data as text: a REG_SZ as it stands, a REG_DWORD as
// "dword:" and 8 hex digits; "<missing>" when absent.
std::wstring ClassesValue(const std::wstring& key, const std::wstring& name);

}  // namespace velapo::test
