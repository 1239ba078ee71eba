#pragma once
// ZORAPOProcessLibrary: the loader of the tech module. It finds the module
// beside the host module (or beside the file named by the override path),
// loads it once per object, asks it for one process by tech id and gives the
// process back. One object holds at most one process; the wrapper that owns
// the object works with that process directly.
//
// Objects aren't shared between threads: they are made and used on the
// thread that builds the chain (the manager's worker, or the configuration
// thread). Nothing here logs: a missing module, a missing export or a refused
// create shows only in the results.

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

// First, so that on Windows the system headers' CreateProcess macro renames
// the member alike in every file that sees it, whatever else it includes.
#include "platform/com.h"
#include "platform/dynamiclibrary.h"
#include "veltech/veltech_abi.h"

class ZORAPOProcessLibrary {
 public:
  ZORAPOProcessLibrary();
  // Destroys the process, then unloads the module.
  virtual ~ZORAPOProcessLibrary();
  ZORAPOProcessLibrary(const ZORAPOProcessLibrary&) = delete;
  ZORAPOProcessLibrary& operator=(const ZORAPOProcessLibrary&) = delete;

  // A name for the holder's own use; nothing here reads it.
  virtual void SetName(const std::string& name);
  // Loads the module if needed, destroys the process held so far, and asks
  // the module for the process of `techId` at the chain position
  // `instanceId`. False, with no process, when the module or one of its
  // exports is missing or the module refuses.
  virtual bool CreateProcess(const std::string& techId, const std::string& instanceId);
  // Gives the process back to the module; the module stays loaded.
  virtual void DestroyProcess();

  // Finds and loads the module; true if it is loaded.
  bool Load();
  bool IsLoaded() const { return m_module.IsLoaded(); }
  // The process made by the last successful CreateProcess, or null.
  ZORTechProcess* GetProcess() const { return m_process; }
  const std::string& GetName() const { return m_name; }

  // Fills `techIds` with the ids the module offers, loading the module into
  // this object if needed; empty when the module or its export is missing.
  void EnumProcesses(std::vector<std::string>& techIds);
  // The same with a module loaded for this call only.
  static std::vector<std::string> EnumProcesses();

  // The full path where the module is looked for: beside the file of the
  // override path when one is set, else beside the host module (or the
  // executable, when the engine is linked into it). True when a file (not a
  // directory) is there.
  static bool FindModulePath(std::u16string& path);
  // Sets the override path to a file (normally the host module's own, set at
  // start-up); null or empty clears it. Set before any thread loads modules.
  static void SetModulePath(const char16_t* path);
  // The file name of the tech module on this platform and bitness.
  static std::u16string ModuleFileName();

 private:
  struct EntryPoints {
    ZORTechCreateProcessFn create = nullptr;
    ZORTechDestroyProcessFn destroy = nullptr;
  };

  static bool FindModuleFile(std::filesystem::path& file);

  zor::os::DynamicLibrary m_module;
  ZORTechProcess* m_process = nullptr;
  std::string m_name;
  std::unique_ptr<EntryPoints> m_entryPoints;
};
