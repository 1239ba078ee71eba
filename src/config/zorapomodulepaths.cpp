#include "config/zorapomodulepaths.h"

#include <filesystem>
#include <system_error>

#include "platform/dynamiclibrary.h"
#include "platform/modulelookup.h"

namespace {

bool IsExistingFile(const std::u16string& path) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  return !error && std::filesystem::exists(status) && !std::filesystem::is_directory(status);
}

}  // namespace

std::u16string GetModuleFileNameOf(uint32_t which) {
  switch (which) {
    case kZORModuleHost:
      return zor::os::OwnModuleFileName(zor::os::OwnModule::Host);
    case kZORModuleControl:
      return zor::os::OwnModuleFileName(zor::os::OwnModule::Control);
    case kZORModuleTech:
      return zor::os::OwnModuleFileName(zor::os::OwnModule::Tech);
    default:
      return {};
  }
}

std::u16string GetModuleDirectory(uint32_t which) {
  const std::u16string fileName = GetModuleFileNameOf(which);
  if (fileName.empty()) return {};
  std::filesystem::path module = zor::os::LoadedModulePath(fileName);
  if (module.empty()) module = zor::os::ExecutablePath();
  if (module.empty()) return {};
  std::u16string directory = module.parent_path().u16string();
  const char16_t separator = static_cast<char16_t>(std::filesystem::path::preferred_separator);
  if (directory.empty() || directory.back() != separator) directory.push_back(separator);
  return directory;
}

std::u16string GetDefaultConfigPath() {
  std::u16string path;
  for (const uint32_t which : {kZORModuleHost, kZORModuleControl, kZORModuleTech}) {
    path = GetModuleDirectory(which);
    if (!path.empty()) path += kZOROemConfigFileName;
    if (which == kZORModuleTech || IsExistingFile(path)) return path;
  }
  return path;
}
