// The loader of the tech module: where it looks, what it loads, and how it hands processes out and takes them back.
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

}  // namespace

// Nothing there, a directory under the module's name, a file that isn't a
// library, a module without its destroy export: nothing is created or logged.
TEST(ZORAPOProcessLibrary, MissingOrBrokenModuleGivesNothingAndLogsNothing) {
  const fs::path scratch = techtest::TestDirectory() / "scratch-missing-module";
  fs::remove_all(scratch);
  fs::create_directories(scratch);
  ZORLogCapture log;
  {
    ModuleDirectory directory(scratch);
    for (int attempt = 0; attempt < 3; ++attempt) {
      if (attempt == 1) fs::create_directory(ModuleIn(scratch));
      if (attempt == 2) {
        fs::remove(ModuleIn(scratch));
        std::ofstream(ModuleIn(scratch), std::ios::binary) << "not a module";
      }
      std::u16string path;
      EXPECT_EQ(ZORAPOProcessLibrary::FindModulePath(path), attempt == 2) << attempt;
      ZORAPOProcessLibrary library;
      EXPECT_FALSE(library.Load() || library.CreateProcess("probe", "EQ"));
      EXPECT_EQ(library.GetProcess(), nullptr);
      Ids ids = {"stale"};
      library.EnumProcesses(ids);
      EXPECT_TRUE(ids.empty());
    }
  }
  ModuleDirectory orphan(techtest::OrphanModuleDirectory());  // its create aborts if called
  ZORAPOProcessLibrary library;
  EXPECT_FALSE(library.CreateProcess("orphan", "EQ"));
  EXPECT_TRUE(library.IsLoaded());
  EXPECT_EQ(ZORAPOProcessLibrary::EnumProcesses(), Ids{"orphan"});
  EXPECT_TRUE(log.Lines().empty());
  fs::remove_all(scratch);
}

TEST(ZORAPOProcessLibrary, EnumeratesAndHoldsOneProcessAtATime) {
  {
    ModuleDirectory directory(techtest::TestModuleDirectory());
    TestModuleLog moduleLog;
    EXPECT_EQ(ZORAPOProcessLibrary::EnumProcesses(),
              (Ids{"probe", "probe-256", "refuse", "null", "fail-init", "sidechannel", "quietside"}));
    {
      ZORAPOProcessLibrary library;
      library.DestroyProcess();  // nothing held: nothing happens
      // A second create gives the first process back before making the next.
      ASSERT_TRUE(library.CreateProcess("probe", "A") && library.CreateProcess("probe", "B"));
      library.DestroyProcess();
      library.DestroyProcess();
      EXPECT_TRUE(library.IsLoaded());  // the module stays
      ASSERT_TRUE(library.CreateProcess("probe", "E"));
    }
    // The destructor gives the last process back.
    EXPECT_EQ(moduleLog.Lines(), (Ids{"enum", "create probe A", "destroy probe A", "create probe B", "destroy probe B",
                                      "create probe E", "destroy probe E"}));
  }
  // veltech, beside the executable, refuses ids it doesn't offer.
  EXPECT_EQ(ZORAPOProcessLibrary::EnumProcesses(), (Ids{"gain", "peq", "limiter", "widener", "crossfeed", "passthrough"}));
  ZORAPOProcessLibrary library;
  EXPECT_FALSE(library.CreateProcess("no-such-process", "EQ") || library.CreateProcess("", "EQ"));
  EXPECT_EQ(library.GetProcess(), nullptr);
}
