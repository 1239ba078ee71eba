#include "hostmodule.h"

#include <map>
#include <memory>
#include <mutex>

#include "platform/debugoutput.h"
#include "platform/dynamiclibrary.h"
#include "platform/modulelookup.h"
#include "platform/registry.h"
#include "platform/text.h"

namespace {

// The library's log lines join the program's own, so that they go wherever
// velapo-host sends the engine's log (a report's velapo.log, or nowhere).
void ForwardLogLine(void*, const char* line, bool) { zor::os::DebugOutputNarrow(line); }

std::filesystem::path ProgramFolder() { return zor::os::ExecutablePath().parent_path(); }

struct LoadedModule {
  zor::os::DynamicLibrary library;
  std::unique_ptr<HostModule> module;
};

}  // namespace

std::vector<std::filesystem::path> HostModule::DefaultPaths() {
  const std::filesystem::path file = zor::os::Utf16ToUtf8(zor::os::OwnModuleFileName(zor::os::OwnModule::Host));
  const std::filesystem::path folder = ProgramFolder();
  std::vector<std::filesystem::path> paths{folder / file};
#ifdef VELAPO_HOST_INSTALLED_MODULE_DIR
  paths.push_back((folder / VELAPO_HOST_INSTALLED_MODULE_DIR / file).lexically_normal());
#endif
  return paths;
}

HostModule* HostModule::Load(const std::string& path, std::string& error) {
  std::filesystem::path chosen = path;
  if (path.empty()) {
    const std::vector<std::filesystem::path> candidates = DefaultPaths();
    std::error_code ignored;
    chosen = candidates.front();
    for (const std::filesystem::path& candidate : candidates) {
      if (std::filesystem::exists(candidate, ignored)) {
        chosen = candidate;
        break;
      }
    }
  }
  std::error_code ignored;
  const std::filesystem::path absolute = std::filesystem::absolute(chosen, ignored);

  // Never unloaded (see the header): the loaded modules live in a map that
  // the process never frees.
  static std::mutex lock;
  static auto* loaded = new std::map<std::filesystem::path, std::unique_ptr<LoadedModule>>();
  std::lock_guard<std::mutex> guard(lock);
  if (auto found = loaded->find(absolute); found != loaded->end()) return found->second->module.get();

  auto owned = std::make_unique<LoadedModule>();
  LoadedModule& entry = *owned;
  if (!entry.library.Load(absolute)) {
    error = "the engine's module " + absolute.string() + " does not load (build it, or name one with --module)";
    return nullptr;
  }
  auto module = std::unique_ptr<HostModule>(new HostModule());
  module->m_path = absolute;
  module->m_getClassObject =
      reinterpret_cast<decltype(m_getClassObject)>(entry.library.FindSymbol("DllGetClassObject"));
  module->m_canUnloadNow = reinterpret_cast<decltype(m_canUnloadNow)>(entry.library.FindSymbol("DllCanUnloadNow"));
  auto getClasses = reinterpret_cast<ZORAPOGetModuleClassesFn>(entry.library.FindSymbol(kZORAPOGetModuleClassesName));
  module->m_setStoreRoot = reinterpret_cast<ZORAPOSetStoreRootFn>(entry.library.FindSymbol(kZORAPOSetStoreRootName));
  auto setLogSink = reinterpret_cast<ZORAPOSetLogSinkFn>(entry.library.FindSymbol(kZORAPOSetLogSinkName));
  if (module->m_getClassObject == nullptr || module->m_canUnloadNow == nullptr || getClasses == nullptr ||
      module->m_setStoreRoot == nullptr || setLogSink == nullptr) {
    error = absolute.string() + " lacks the engine module's exports (DllGetClassObject, ZORAPOGetModuleClasses, ...)";
    return nullptr;
  }
  setLogSink(&ForwardLogLine, nullptr);
  module->m_classes = getClasses(&module->m_classCount);
  HostModule* answer = module.get();
  entry.module = std::move(module);
  loaded->emplace(absolute, std::move(owned));
  return answer;
}

void HostModule::FollowStoreRoot() const { m_setStoreRoot(zor::os::RegistryRoot().c_str()); }

const ZORAPOModuleClass* HostModule::FindClass(uint32_t location) const {
  for (uint32_t i = 0; i < m_classCount; ++i) {
    if (m_classes[i].location == location) return &m_classes[i];
  }
  return nullptr;
}

HRESULT HostModule::CreateObject(REFCLSID clsid, IUnknown** object) const {
  *object = nullptr;
  IClassFactory* factory = nullptr;
  HRESULT hr = m_getClassObject(clsid, IID_IClassFactory, reinterpret_cast<void**>(&factory));
  if (SUCCEEDED(hr)) hr = factory->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(object));
  if (factory != nullptr) factory->Release();
  return hr;
}
