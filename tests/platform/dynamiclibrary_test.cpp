// Loading modules, finding exports and module paths.
#include "platform/dynamiclibrary.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

// The test module is built beside this executable.
std::filesystem::path TestModulePath() {
  return zor::os::ExecutablePath().parent_path() / VELAPO_TEST_MODULE_NAME;
}

void FunctionInThisExecutable() {}

}  // namespace

TEST(DynamicLibrary, LoadsAModuleFindsItsExportNamesItsFileAndFailsCleanlyWhenMissing) {
  zor::os::DynamicLibrary library;
  ASSERT_TRUE(library.Load(TestModulePath())) << TestModulePath();
  EXPECT_TRUE(library.IsLoaded());
  void* symbol = library.FindSymbol("VelapoTestModuleAnswer");
  ASSERT_NE(symbol, nullptr);
  using Answer = int (*)();
  EXPECT_EQ(reinterpret_cast<Answer>(symbol)(), 42);
  const std::filesystem::path modulePath = zor::os::ModulePathOf(symbol);
  EXPECT_TRUE(modulePath.is_absolute()) << modulePath;
  EXPECT_TRUE(std::filesystem::equivalent(modulePath, TestModulePath())) << modulePath;
  EXPECT_EQ(library.FindSymbol("NoSuchExport"), nullptr);
  EXPECT_EQ(library.FindSymbol(nullptr), nullptr);
  library.Unload();
  EXPECT_FALSE(library.IsLoaded());
  EXPECT_EQ(library.FindSymbol("VelapoTestModuleAnswer"), nullptr);
  // A missing file fails cleanly.
  EXPECT_FALSE(library.Load(TestModulePath().parent_path() / "no-such-module.bin"));
  EXPECT_FALSE(library.IsLoaded());
  EXPECT_EQ(library.FindSymbol("VelapoTestModuleAnswer"), nullptr);
  library.Unload();  // harmless when nothing is loaded
}

TEST(DynamicLibrary, ExecutablePathNamesTheRunningProgram) {
  const std::filesystem::path executable = zor::os::ExecutablePath();
  ASSERT_FALSE(executable.empty());
  EXPECT_TRUE(executable.is_absolute()) << executable;
  EXPECT_TRUE(std::filesystem::exists(executable)) << executable;
  const std::filesystem::path module =
      zor::os::ModulePathOf(reinterpret_cast<const void*>(&FunctionInThisExecutable));
  EXPECT_TRUE(std::filesystem::equivalent(module, executable)) << module;
  EXPECT_TRUE(zor::os::ModulePathOf(nullptr).empty());
}
