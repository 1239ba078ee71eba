// Module directories and the OEM configuration file beside the modules.
#include "config/zorapomodulepaths.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "platform/dynamiclibrary.h"

namespace {

constexpr char16_t kSeparator = static_cast<char16_t>(std::filesystem::path::preferred_separator);

std::u16string DirectoryOf(const std::filesystem::path& file) {
  return file.parent_path().u16string() + kSeparator;
}

// The names are those of the build, which is 64-bit only; no setting picks others.
TEST(ZORAPOModulePaths, ModuleNamesAreThoseOfThisBuild) {
  const std::u16string names = GetModuleFileNameOf(0) + GetModuleFileNameOf(1) + GetModuleFileNameOf(2);
#if defined(_WIN32)
  EXPECT_EQ(names, u"velapo64.dllvelcnt64.dllveltech64.dll");
#else
  EXPECT_EQ(names, u"libvelapo.solibvelcnt.solibveltech.so");
#endif
  EXPECT_TRUE(GetModuleFileNameOf(3).empty());
  EXPECT_TRUE(GetModuleDirectory(3).empty());
}

// One case for everything that touches the module's directory, so no two test processes write there at once.
TEST(ZORAPOModulePaths, LoadedModuleGivesItsDirectoryOthersTheExecutables) {
  const std::filesystem::path executable = zor::os::ExecutablePath();
  ASSERT_FALSE(executable.empty());
  const std::u16string executableDirectory = DirectoryOf(executable);
  const std::u16string fallback = executableDirectory + kZOROemConfigFileName;
  // Nothing of the system is loaded here: every module stands for the executable.
  EXPECT_EQ(GetModuleDirectory(kZORModuleHost), executableDirectory);
  ASSERT_FALSE(std::filesystem::exists(fallback));
  EXPECT_EQ(GetDefaultConfigPath(), fallback);

  // The build puts a module of the control module's file name in a directory of its own beside the executable.
  const std::filesystem::path modulePath = executable.parent_path() /
                                           VELAPO_CONFIG_TEST_MODULE_DIR /
                                           GetModuleFileNameOf(kZORModuleControl);
  zor::os::DynamicLibrary module;
  ASSERT_TRUE(module.Load(modulePath)) << modulePath.string();
  const std::u16string moduleDirectory = DirectoryOf(std::filesystem::canonical(modulePath));
  EXPECT_EQ(GetModuleDirectory(kZORModuleControl), moduleDirectory);
  EXPECT_EQ(GetModuleDirectory(kZORModuleHost), executableDirectory);

  // The OEM file beside the control module is taken once it is a file.
  const std::filesystem::path oemFile = moduleDirectory + kZOROemConfigFileName;
  std::filesystem::create_directory(oemFile);
  EXPECT_EQ(GetDefaultConfigPath(), fallback);
  std::filesystem::remove(oemFile);
  std::ofstream(oemFile) << "<zor_configuration/>";
  EXPECT_EQ(GetDefaultConfigPath(), oemFile.u16string());
  std::filesystem::remove(oemFile);
}

}  // namespace
