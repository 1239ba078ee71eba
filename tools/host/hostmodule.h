#pragma once
// The engine's module as the audio engine uses it: the built library file
// (velapo64.dll, libvelapo.so) loaded by path, its classes made through the
// exported DllGetClassObject and IClassFactory::CreateInstance. Loaded once
// per file and kept for the process's life, as the engine keeps a module
// whose objects may come and go: the library makes a few objects once per
// process that only an exit tears down.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "module/zorapomoduleabi.h"
#include "platform/com.h"

class HostModule {
 public:
  // The module at `path`, or with an empty path the first that exists of:
  // beside the program, the installed library folder seen from the program's
  // folder. Null, with `error`, when none loads or its exports are missing.
  // Any thread but the audio thread; the answer lives until the process ends.
  static HostModule* Load(const std::string& path, std::string& error);
  // Where an empty path looks, in order.
  static std::vector<std::filesystem::path> DefaultPaths();

  const std::filesystem::path& Path() const { return m_path; }
  // The class the module registers for a location (0..5 render, capture
  // kZORLocationCapture); null when it has none.
  const ZORAPOModuleClass* FindClass(uint32_t location) const;
  // DllGetClassObject, then CreateInstance on its factory.
  HRESULT CreateObject(REFCLSID clsid, IUnknown** object) const;
  HRESULT CanUnloadNow() const { return m_canUnloadNow(); }
  // Points the library at this program's settings store root (POSIX; the
  // library keeps a root of its own), before objects are made on it.
  void FollowStoreRoot() const;

 private:
  HostModule() = default;

  std::filesystem::path m_path;
  HRESULT(STDMETHODCALLTYPE* m_getClassObject)(REFCLSID, REFIID, void**) = nullptr;
  HRESULT(STDMETHODCALLTYPE* m_canUnloadNow)() = nullptr;
  ZORAPOSetStoreRootFn m_setStoreRoot = nullptr;
  const ZORAPOModuleClass* m_classes = nullptr;
  uint32_t m_classCount = 0;
};
