#include <stdlib.h>
#include <unistd.h>

#include <filesystem>

#include "hostendpoint.h"
#include "hostplatform.h"
#include "platform/registry.h"

bool MakePrivateStoreRoot(std::string& root) {
  std::error_code error;
  std::string pattern = (std::filesystem::temp_directory_path(error) / "velapo-host-XXXXXX").string();
  if (error || ::mkdtemp(pattern.data()) == nullptr) return false;
  zor::os::SetRegistryRoot(pattern);
  root = pattern;
  return true;
}

void RemovePrivateStoreRoot(const std::string& root) {
  std::error_code ignored;
  if (!root.empty()) std::filesystem::remove_all(root, ignored);
}

bool UseStoreRoot(const std::string& directory) {
  std::error_code error;
  if (directory.empty() || !std::filesystem::is_directory(directory, error)) return false;
  zor::os::SetRegistryRoot(directory);
  return true;
}

bool IsTerminal(FILE* stream) { return ::isatty(::fileno(stream)) != 0; }

const char* NullDevice() { return "/dev/null"; }
