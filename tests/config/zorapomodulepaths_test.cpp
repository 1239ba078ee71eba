// Module directories and the OEM configuration file beside the modules.
#include "config/zorapomodulepaths.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "platform/dynamiclibrary.h"

namespace {

constexpr char16_t kSeparator = static_cast<char16_t>(std::filesystem::path::preferred_separator);

std::u16string DirectoryOf(const std::filesystem::path& file) {
  return file.parent_path().u16string() + kSeparator;
}

// Bitness is process-wide: put it back whatever a test does.
class ProcessBitness {
 public:
  ProcessBitness() : m_saved(GetProcessBitness()) {}
  ~ProcessBitness() { SetProcessBitness(m_saved); }
  ProcessBitness(const ProcessBitness&) = delete;
  ProcessBitness& operator=(const ProcessBitness&) = delete;

 private:
  uint32_t m_saved;
};

TEST(ZORAPOModulePaths, ModuleNamesFollowTheBitnessWhereThePlatformHasTwo) {
  ProcessBitness restore;
  SetProcessBitness(0);  // unset counts as 64
  const std::u16string host64 = GetModuleFileNameOf(kZORModuleHost);
  const std::u16string control64 = GetModuleFileNameOf(kZORModuleControl);
  const std::u16string tech64 = GetModuleFileNameOf(kZORModuleTech);
  SetProcessBitness(64);
  EXPECT_EQ(GetModuleFileNameOf(kZORModuleHost), host64);
  SetProcessBitness(32);
#if defined(_WIN32)
  EXPECT_EQ(host64, u"velapo64.dll");
  EXPECT_EQ(control64, u"velcnt64.dll");
  EXPECT_EQ(tech64, u"veltech64.dll");
  EXPECT_EQ(GetModuleFileNameOf(kZORModuleHost), u"velapo32.dll");
  EXPECT_EQ(GetModuleFileNameOf(kZORModuleControl), u"velcnt32.dll");
  EXPECT_EQ(GetModuleFileNameOf(kZORModuleTech), u"veltech32.dll");
#else
  EXPECT_EQ(host64, u"libvelapo.so");
  EXPECT_EQ(control64, u"libvelcnt.so");
  EXPECT_EQ(tech64, u"libveltech.so");
  EXPECT_EQ(GetModuleFileNameOf(kZORModuleTech), u"libveltech.so");
#endif
  EXPECT_TRUE(GetModuleFileNameOf(3).empty());
  EXPECT_TRUE(GetModuleDirectory(3).empty());
}

// One case for everything that touches the module's directory, so no two
// test processes write there at once.
TEST(ZORAPOModulePaths, LoadedModuleGivesItsDirectoryOthersTheExecutables) {
  const std::filesystem::path executable = zor::os::ExecutablePath();
  ASSERT_FALSE(executable.empty());
  const std::u16string executableDirectory = DirectoryOf(executable);
  // Nothing of the system is loaded in the test: every module stands for the
  // executable.
  EXPECT_EQ(GetModuleDirectory(kZORModuleHost), executableDirectory);
  EXPECT_EQ(GetModuleDirectory(kZORModuleTech), executableDirectory);
  ASSERT_FALSE(std::filesystem::exists(executableDirectory + kZOROemConfigFileName));
  EXPECT_EQ(GetDefaultConfigPath(), executableDirectory + kZOROemConfigFileName);

  // The build puts a module of the control module's file name in a directory
  // of its own beside the executable.
  const std::filesystem::path moduleDirectory = executable.parent_path() / VELAPO_CONFIG_TEST_MODULE_DIR;
  const std::filesystem::path modulePath = moduleDirectory / GetModuleFileNameOf(kZORModuleControl);
  zor::os::DynamicLibrary module;
  ASSERT_TRUE(module.Load(modulePath)) << modulePath.string();
  const std::u16string expected = DirectoryOf(std::filesystem::canonical(modulePath));
  EXPECT_EQ(GetModuleDirectory(kZORModuleControl), expected);
  EXPECT_EQ(GetModuleDirectory(kZORModuleHost), executableDirectory);

  // The OEM file beside the control module is taken once it exists as a file.
  const std::u16string oemFile = expected + kZOROemConfigFileName;
  EXPECT_EQ(GetDefaultConfigPath(), executableDirectory + kZOROemConfigFileName);
  std::filesystem::create_directory(oemFile);  // a directory of that name is no file
  EXPECT_EQ(GetDefaultConfigPath(), executableDirectory + kZOROemConfigFileName);
  std::filesystem::remove(oemFile);
  std::ofstream(std::filesystem::path(oemFile)) << "<zor_configuration/>";
  EXPECT_EQ(GetDefaultConfigPath(), oemFile);
  std::error_code ignored;
  std::filesystem::remove(oemFile, ignored);
}

}  // namespace
