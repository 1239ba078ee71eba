// The paths of the running program and of the module holding an address.
#include "platform/dynamiclibrary.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

void FunctionInThisExecutable() {}

}  // namespace

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
