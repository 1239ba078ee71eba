#include "platform/dynamiclibrary.h"

#include <dlfcn.h>
#include <link.h>

#include <system_error>

namespace zor::os {

DynamicLibrary::~DynamicLibrary() { Unload(); }

bool DynamicLibrary::Load(const std::filesystem::path& path) {
  Unload();
  m_handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  return m_handle != nullptr;
}

void* DynamicLibrary::FindSymbol(const char* name) const {
  if (m_handle == nullptr || name == nullptr) return nullptr;
  return ::dlsym(m_handle, name);
}

void DynamicLibrary::Unload() {
  if (m_handle != nullptr) {
    ::dlclose(m_handle);
    m_handle = nullptr;
  }
}

std::filesystem::path ModulePathOf(const void* addressInModule) {
  Dl_info info{};
  link_map* module = nullptr;
  if (addressInModule == nullptr ||
      ::dladdr1(addressInModule, &info, reinterpret_cast<void**>(&module), RTLD_DL_LINKMAP) == 0 ||
      module == nullptr) {
    return {};
  }
  // The executable's entry has no name: the loader would report it by how it
  // was started, which may be relative to a directory we have left.
  if (module->l_name == nullptr || module->l_name[0] == '\0') return ExecutablePath();
  const std::filesystem::path name = module->l_name;
  std::error_code error;
  std::filesystem::path resolved = std::filesystem::canonical(name, error);
  return error ? std::filesystem::absolute(name, error) : resolved;
}

std::filesystem::path ExecutablePath() {
  std::error_code error;
  std::filesystem::path path = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? std::filesystem::path() : path;
}

}  // namespace zor::os
