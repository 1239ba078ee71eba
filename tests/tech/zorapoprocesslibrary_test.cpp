// The loader of the tech module: where it looks, what it loads, and how it
// hands processes out and takes them back.
#include "audio/zorapoprocesslibrary.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/zorlogcapture.h"
#include "techtesting.h"

namespace {

namespace fs = std::filesystem;
using techtest::ModuleDirectory;
using techtest::TestModuleLog;
using Ids = std::vector<std::string>;

fs::path ModuleIn(const fs::path& directory) { return directory / fs::path(ZORAPOProcessLibrary::ModuleFileName()); }

// Where the loader looks now, when it finds a module there.
fs::path FoundModule() {
  std::u16string path;
  return ZORAPOProcessLibrary::FindModulePath(path) ? fs::path(path) : fs::path();
}

}  // namespace

TEST(ZORAPOProcessLibrary, LooksBesideTheHostModuleOrBesideTheOverrideFile) {
  const fs::path besideExecutable = ModuleIn(techtest::TestDirectory());
  const fs::path testModule = ModuleIn(techtest::TestModuleDirectory());
  ZORAPOProcessLibrary::SetModulePath(nullptr);
  EXPECT_TRUE(fs::equivalent(FoundModule(), besideExecutable)) << FoundModule();
  {
    // The override names a file, which needn't exist; the module is looked
    // for beside it, not at it.
    ModuleDirectory directory(techtest::TestModuleDirectory());
    EXPECT_TRUE(fs::equivalent(FoundModule(), testModule)) << FoundModule();
  }
  // The module's own file: found beside itself. A directory: a file in its
  // parent, so the search is beside it, not inside it. Empty: the default.
  const std::u16string self = testModule.u16string();
  ZORAPOProcessLibrary::SetModulePath(self.c_str());
  EXPECT_TRUE(fs::equivalent(FoundModule(), testModule));
  const std::u16string directory = techtest::TestModuleDirectory().u16string();
  ZORAPOProcessLibrary::SetModulePath(directory.c_str());
  EXPECT_TRUE(fs::equivalent(FoundModule(), besideExecutable));
  ZORAPOProcessLibrary::SetModulePath(u"");
  EXPECT_TRUE(fs::equivalent(FoundModule(), besideExecutable));
}

TEST(ZORAPOProcessLibrary, MissingOrBrokenModuleGivesNothingAndLogsNothing) {
  const fs::path scratch = techtest::TestDirectory() / "scratch-missing-module";
  fs::remove_all(scratch);
  fs::create_directories(scratch);
  ModuleDirectory directory(scratch);
  ZORLogCapture log;
  std::u16string path;
  // Nothing there; then a directory under the module's name; then a file
  // that isn't a library: found, but it doesn't load.
  for (int attempt = 0; attempt < 3; ++attempt) {
    if (attempt == 1) fs::create_directory(ModuleIn(scratch));
    if (attempt == 2) {
      fs::remove(ModuleIn(scratch));
      std::ofstream(ModuleIn(scratch), std::ios::binary) << "not a module";
    }
    EXPECT_EQ(ZORAPOProcessLibrary::FindModulePath(path), attempt == 2) << attempt;
    EXPECT_EQ(fs::path(path), ModuleIn(scratch));
    ZORAPOProcessLibrary library;
    EXPECT_FALSE(library.Load());
    EXPECT_FALSE(library.CreateProcess("probe", "EQ"));
    EXPECT_EQ(library.GetProcess(), nullptr);
    Ids ids = {"stale"};
    library.EnumProcesses(ids);
    EXPECT_TRUE(ids.empty());
    EXPECT_TRUE(ZORAPOProcessLibrary::EnumProcesses().empty());
  }
  EXPECT_TRUE(log.Lines().empty());
  fs::remove_all(scratch);
}

TEST(ZORAPOProcessLibrary, MissingExportRefusesCreateWithoutCallingTheModule) {
  ModuleDirectory directory(techtest::OrphanModuleDirectory());
  ZORLogCapture log;
  ZORAPOProcessLibrary library;
  // The orphan module has create but no destroy; its create aborts if called.
  EXPECT_FALSE(library.CreateProcess("orphan", "EQ"));
  EXPECT_TRUE(library.IsLoaded());
  EXPECT_EQ(library.GetProcess(), nullptr);
  EXPECT_EQ(ZORAPOProcessLibrary::EnumProcesses(), Ids{"orphan"});
  EXPECT_TRUE(log.Lines().empty());
}

TEST(ZORAPOProcessLibrary, EnumeratesTheIdsOfTheModule) {
  {
    ModuleDirectory directory(techtest::TestModuleDirectory());
    TestModuleLog moduleLog;
    const Ids testIds = {"probe", "probe-256", "refuse", "null", "fail-init", "sidechannel", "quietside"};
    EXPECT_EQ(ZORAPOProcessLibrary::EnumProcesses(), testIds);
    ZORAPOProcessLibrary library;
    Ids ids = {"stale"};
    library.EnumProcesses(ids);
    EXPECT_EQ(ids, testIds);
    EXPECT_TRUE(library.IsLoaded());
    EXPECT_EQ(moduleLog.Lines(), (Ids{"enum", "enum"}));
  }
  // veltech, beside the executable.
  EXPECT_EQ(ZORAPOProcessLibrary::EnumProcesses(),
            (Ids{"gain", "peq", "limiter", "widener", "crossfeed", "passthrough"}));
}

TEST(ZORAPOProcessLibrary, HoldsOneProcessAtATimeAndGivesItBack) {
  ModuleDirectory directory(techtest::TestModuleDirectory());
  TestModuleLog moduleLog;
  {
    ZORAPOProcessLibrary library;
    library.DestroyProcess();  // nothing held: nothing happens
    ASSERT_TRUE(library.CreateProcess("probe", "A"));
    ASSERT_NE(library.GetProcess(), nullptr);
    // A second create gives the first process back before making the next.
    ASSERT_TRUE(library.CreateProcess("probe", "B"));
    EXPECT_EQ(moduleLog.Lines(), (Ids{"create probe A", "destroy probe A", "create probe B"}));
    library.DestroyProcess();
    library.DestroyProcess();
    EXPECT_EQ(library.GetProcess(), nullptr);
    EXPECT_TRUE(library.IsLoaded());  // the module stays
    EXPECT_EQ(moduleLog.Lines(), Ids{"destroy probe B"});
    // A refused create leaves no process; so does a create that says yes
    // but hands nothing out.
    EXPECT_FALSE(library.CreateProcess("refuse", "C"));
    EXPECT_TRUE(library.CreateProcess("null", "D"));
    EXPECT_EQ(library.GetProcess(), nullptr);
    ASSERT_TRUE(library.CreateProcess("probe", "E"));
    EXPECT_EQ(moduleLog.Lines(), (Ids{"create refuse C", "create null D", "create probe E"}));
  }
  // The destructor gives the last process back.
  EXPECT_EQ(moduleLog.Lines(), Ids{"destroy probe E"});

  // veltech refuses ids it doesn't offer.
  ZORAPOProcessLibrary::SetModulePath(nullptr);
  ZORAPOProcessLibrary library;
  EXPECT_FALSE(library.CreateProcess("no-such-process", "EQ"));
  EXPECT_FALSE(library.CreateProcess("", "EQ"));
  EXPECT_EQ(library.GetProcess(), nullptr);
}
