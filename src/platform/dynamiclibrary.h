#pragma once

#include <filesystem>

namespace zor::os {

// A loaded shared library (DLL or .so), unloaded by Unload or the destructor.
// Owned by one thread; FindSymbol may be called from any thread while loaded.
class DynamicLibrary {
 public:
  DynamicLibrary() = default;
  ~DynamicLibrary();
  DynamicLibrary(const DynamicLibrary&) = delete;
  DynamicLibrary& operator=(const DynamicLibrary&) = delete;

  // Loads the file, resolving all its symbols now and keeping them local.
  // Unloads what was loaded before. False when the file cannot be loaded.
  bool Load(const std::filesystem::path& path);
  // The address of an exported symbol; null when not loaded or not exported.
  void* FindSymbol(const char* name) const;
  void Unload();
  bool IsLoaded() const { return m_handle != nullptr; }

 private:
  void* m_handle = nullptr;
};

// The absolute path of the module (executable or shared library) that holds
// the address; empty when no module does.
std::filesystem::path ModulePathOf(const void* addressInModule);
// The absolute path of the running executable; empty when unknown.
std::filesystem::path ExecutablePath();

}  // namespace zor::os
