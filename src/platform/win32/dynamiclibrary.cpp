#include "platform/dynamiclibrary.h"

#include <windows.h>

#include <string>

#include "platform/text.h"

namespace zor::os {
namespace {

// GetModuleFileNameW cuts silently; grow until the whole path fits.
std::filesystem::path FileNameOf(HMODULE module) {
  std::wstring buffer(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = ::GetModuleFileNameW(module, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length == 0) return {};
    if (length < buffer.size()) {
      buffer.resize(length);
      return std::filesystem::path(buffer);
    }
    if (buffer.size() >= 32768) return {};
    buffer.resize(buffer.size() * 2);
  }
}

}  // namespace

DynamicLibrary::~DynamicLibrary() { Unload(); }

bool DynamicLibrary::Load(const std::filesystem::path& path) {
  Unload();
  static_assert(sizeof(std::filesystem::path::value_type) == sizeof(wchar_t));
  m_handle = ::LoadLibraryW(path.c_str());
  return m_handle != nullptr;
}

void* DynamicLibrary::FindSymbol(const char* name) const {
  if (m_handle == nullptr || name == nullptr) return nullptr;
  return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(m_handle), name));
}

void DynamicLibrary::Unload() {
  if (m_handle != nullptr) {
    ::FreeLibrary(static_cast<HMODULE>(m_handle));
    m_handle = nullptr;
  }
}

std::filesystem::path ModulePathOf(const void* addressInModule) {
  HMODULE module = nullptr;
  if (addressInModule == nullptr ||
      !::GetModuleHandleExW(
          GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
          static_cast<LPCWSTR>(addressInModule), &module)) {
    return {};
  }
  return FileNameOf(module);
}

std::filesystem::path ExecutablePath() { return FileNameOf(nullptr); }

}  // namespace zor::os
