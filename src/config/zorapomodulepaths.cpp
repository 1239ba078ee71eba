#include "config/zorapomodulepaths.h"

#include <atomic>
#include <filesystem>
#include <system_error>

#include "platform/dynamiclibrary.h"
#include "platform/modulelookup.h"

namespace {

std::atomic<uint32_t> g_processBitness{0};

bool IsExistingFile(const std::u16string& path) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  return !error && std::filesystem::exists(status) && !std::filesystem::is_directory(status);
}

}  // namespace

void SetProcessBitness(uint32_t bits) { g_processBitness.store(bits, std::memory_order_relaxed); }

uint32_t GetProcessBitness() { return g_processBitness.load(std::memory_order_relaxed); }

std::u16string GetModuleFileNameOf(uint32_t which) {
  const uint32_t bits = GetProcessBitness();
  const bool is64Bit = bits == 0 || bits == 64;
  switch (which) {
    case kZORModuleHost:
      return zor::os::OwnModuleFileName(zor::os::OwnModule::Host, is64Bit);
    case kZORModuleControl:
      return zor::os::OwnModuleFileName(zor::os::OwnModule::Control, is64Bit);
    case kZORModuleTech:
      return zor::os::OwnModuleFileName(zor::os::OwnModule::Tech, is64Bit);
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
