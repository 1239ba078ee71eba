#include "audio/zorapoprocesslibrary.h"

#include <new>
#include <system_error>

#include "config/zorapomodulepaths.h"
#include "core/zorscopedlock.h"
#include "platform/criticalsection.h"

namespace {

// The override path is set once at start-up, but tests and hosts may set it
// again; the lock keeps a late setter from tearing the string under a reader.
struct OverridePath {
  zor::os::CriticalSection lock;
  std::u16string path;
};

OverridePath& TheOverridePath() {
  static OverridePath overridePath;
  return overridePath;
}

std::u16string CurrentOverridePath() {
  OverridePath& state = TheOverridePath();
  ZORScopedLock lock(state.lock);
  return state.path;
}

// The module's enumeration callback: appends each id to the vector behind
// `context`. Nothing may be thrown back through the module's frames.
void VELTECH_CALL AppendTechId(const char* techId, void* context) {
  if (techId == nullptr || context == nullptr) return;
  try {
    static_cast<std::vector<std::string>*>(context)->emplace_back(techId);
  } catch (const std::bad_alloc&) {
  }
}

void EnumWith(const zor::os::DynamicLibrary& module, std::vector<std::string>& techIds) {
  const auto enumerate =
      reinterpret_cast<ZORTechEnumProcessesFn>(module.FindSymbol(VELTECH_ENUM_PROCESSES_EXPORT));
  if (enumerate != nullptr) enumerate(AppendTechId, &techIds);
}

}  // namespace

ZORAPOProcessLibrary::ZORAPOProcessLibrary() : m_entryPoints(std::make_unique<EntryPoints>()) {}

ZORAPOProcessLibrary::~ZORAPOProcessLibrary() {
  DestroyProcess();
  m_module.Unload();
}

void ZORAPOProcessLibrary::SetName(const std::string& name) { m_name = name; }

bool ZORAPOProcessLibrary::CreateProcess(const std::string& techId, const std::string& instanceId) {
  if (!Load()) return false;
  DestroyProcess();
  m_entryPoints->create = reinterpret_cast<ZORTechCreateProcessFn>(
      m_module.FindSymbol(VELTECH_CREATE_PROCESS_EXPORT));
  m_entryPoints->destroy = reinterpret_cast<ZORTechDestroyProcessFn>(
      m_module.FindSymbol(VELTECH_DESTROY_PROCESS_EXPORT));
  if (m_entryPoints->create == nullptr || m_entryPoints->destroy == nullptr) return false;
  ZORTechProcess* process = nullptr;
  const bool created = (m_entryPoints->create(techId.c_str(), &process, instanceId.c_str()) & 0xFF) != 0;
  // A module that fails may still have written something: keep a process
  // only from a create that says it succeeded.
  m_process = created ? process : nullptr;
  return created;
}

void ZORAPOProcessLibrary::DestroyProcess() {
  if (m_process == nullptr) return;
  ZORTechProcess* process = m_process;
  m_process = nullptr;
  if (m_entryPoints->destroy != nullptr) m_entryPoints->destroy(process);
}

bool ZORAPOProcessLibrary::Load() {
  if (m_module.IsLoaded()) return true;
  std::filesystem::path file;
  if (!FindModuleFile(file)) return false;
  return m_module.Load(file);
}

void ZORAPOProcessLibrary::EnumProcesses(std::vector<std::string>& techIds) {
  techIds.clear();
  if (Load()) EnumWith(m_module, techIds);
}

std::vector<std::string> ZORAPOProcessLibrary::EnumProcesses() {
  std::vector<std::string> techIds;
  std::filesystem::path file;
  zor::os::DynamicLibrary module;
  if (FindModuleFile(file) && module.Load(file)) EnumWith(module, techIds);
  return techIds;
}

bool ZORAPOProcessLibrary::FindModulePath(std::u16string& path) {
  std::filesystem::path file;
  const bool found = FindModuleFile(file);
  path = file.u16string();
  return found;
}

bool ZORAPOProcessLibrary::FindModuleFile(std::filesystem::path& file) {
  file.clear();
  const std::u16string overridePath = CurrentOverridePath();
  std::filesystem::path directory;
  std::error_code error;
  if (!overridePath.empty()) {
    // The directory of the named file; made absolute, since the loader
    // would search the system's library paths for a bare file name.
    directory = std::filesystem::absolute(std::filesystem::path(overridePath), error).parent_path();
  } else {
    directory = std::filesystem::path(GetModuleDirectory(kZORModuleHost));
  }
  const std::u16string fileName = ModuleFileName();
  if (error || directory.empty() || fileName.empty()) return false;
  file = directory / std::filesystem::path(fileName);
  return std::filesystem::is_regular_file(file, error);
}

void ZORAPOProcessLibrary::SetModulePath(const char16_t* path) {
  OverridePath& state = TheOverridePath();
  ZORScopedLock lock(state.lock);
  state.path = path != nullptr ? path : u"";
}

std::u16string ZORAPOProcessLibrary::ModuleFileName() { return GetModuleFileNameOf(kZORModuleTech); }
