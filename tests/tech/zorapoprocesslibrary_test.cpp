// The loader of the tech module: where it looks, what it loads, and how it
// hands processes out and takes them back.
#include "audio/zorapoprocesslibrary.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/zorlogcapture.h"
#include "techtesting.h"

namespace {

using techtest::ModuleDirectory;
using techtest::TestModuleLog;

std::filesystem::path ModuleIn(const std::filesystem::path& directory) {
  return directory / std::filesystem::path(ZORAPOProcessLibrary::ModuleFileName());
}

const std::vector<std::string> kTestModuleIds = {"probe", "probe-256", "refuse", "null", "fail-init",
                                                 "sidechannel"};

// A scratch directory of the test's own, removed afterwards.
class ScratchDirectory {
 public:
  explicit ScratchDirectory(const char* name) : m_path(techtest::TestDirectory() / name) {
    std::filesystem::remove_all(m_path);
    std::filesystem::create_directories(m_path);
  }
  ~ScratchDirectory() {
    std::error_code error;
    std::filesystem::remove_all(m_path, error);
  }
  const std::filesystem::path& Path() const { return m_path; }

 private:
  std::filesystem::path m_path;
};

}  // namespace

TEST(ZORAPOProcessLibrary, LooksBesideTheHostModuleOrBesideTheOverrideFile) {
  ZORAPOProcessLibrary::SetModulePath(nullptr);
  std::u16string path;
  EXPECT_TRUE(ZORAPOProcessLibrary::FindModulePath(path));
  EXPECT_TRUE(std::filesystem::equivalent(std::filesystem::path(path), ModuleIn(techtest::TestDirectory())))
      << std::filesystem::path(path);

  {
    // The override names a file; the module is looked for beside it, not at
    // it, and the file itself needn't exist.
    ModuleDirectory directory(techtest::TestModuleDirectory());
    EXPECT_TRUE(ZORAPOProcessLibrary::FindModulePath(path));
    EXPECT_EQ(std::filesystem::path(path).filename(), std::filesystem::path(ZORAPOProcessLibrary::ModuleFileName()));
    EXPECT_TRUE(std::filesystem::equivalent(std::filesystem::path(path), ModuleIn(techtest::TestModuleDirectory())));
  }
  {
    // Naming the module file itself finds it beside itself.
    const std::u16string self = ModuleIn(techtest::TestModuleDirectory()).u16string();
    ZORAPOProcessLibrary::SetModulePath(self.c_str());
    EXPECT_TRUE(ZORAPOProcessLibrary::FindModulePath(path));
    EXPECT_TRUE(std::filesystem::equivalent(std::filesystem::path(path), ModuleIn(techtest::TestModuleDirectory())));
  }
  {
    // A directory as the override is a file in its parent: the search is
    // beside it, in the executable's directory, not inside it.
    const std::u16string directory = techtest::TestModuleDirectory().u16string();
    ZORAPOProcessLibrary::SetModulePath(directory.c_str());
    EXPECT_TRUE(ZORAPOProcessLibrary::FindModulePath(path));
    EXPECT_TRUE(std::filesystem::equivalent(std::filesystem::path(path), ModuleIn(techtest::TestDirectory())));
  }
  ZORAPOProcessLibrary::SetModulePath(u"");
  EXPECT_TRUE(ZORAPOProcessLibrary::FindModulePath(path));
  EXPECT_TRUE(std::filesystem::equivalent(std::filesystem::path(path), ModuleIn(techtest::TestDirectory())));
}

TEST(ZORAPOProcessLibrary, MissingOrBrokenModuleGivesNothingAndLogsNothing) {
  ScratchDirectory scratch("scratch-missing-module");
  ZORLogCapture log;
  std::u16string path;
  {
    ModuleDirectory directory(scratch.Path());
    EXPECT_FALSE(ZORAPOProcessLibrary::FindModulePath(path));
    EXPECT_EQ(std::filesystem::path(path), ModuleIn(scratch.Path()));
    ZORAPOProcessLibrary library;
    EXPECT_FALSE(library.Load());
    EXPECT_FALSE(library.CreateProcess("probe", "EQ"));
    EXPECT_EQ(library.GetProcess(), nullptr);
    std::vector<std::string> ids = {"stale"};
    library.EnumProcesses(ids);
    EXPECT_TRUE(ids.empty());
    EXPECT_TRUE(ZORAPOProcessLibrary::EnumProcesses().empty());
  }
  {
    // A directory under the module's name isn't a module.
    std::filesystem::create_directory(ModuleIn(scratch.Path()));
    ModuleDirectory directory(scratch.Path());
    EXPECT_FALSE(ZORAPOProcessLibrary::FindModulePath(path));
    std::filesystem::remove(ModuleIn(scratch.Path()));
  }
  {
    // A file that isn't a library is found but doesn't load.
    std::ofstream(ModuleIn(scratch.Path()), std::ios::binary) << "not a module";
    ModuleDirectory directory(scratch.Path());
    EXPECT_TRUE(ZORAPOProcessLibrary::FindModulePath(path));
    ZORAPOProcessLibrary library;
    EXPECT_FALSE(library.Load());
    EXPECT_FALSE(library.CreateProcess("probe", "EQ"));
    EXPECT_TRUE(ZORAPOProcessLibrary::EnumProcesses().empty());
  }
  EXPECT_TRUE(log.Lines().empty());
}

TEST(ZORAPOProcessLibrary, MissingExportRefusesCreateWithoutCallingTheModule) {
  ModuleDirectory directory(techtest::OrphanModuleDirectory());
  ZORLogCapture log;
  ZORAPOProcessLibrary library;
  // The orphan module has create but no destroy; its create aborts if called.
  EXPECT_FALSE(library.CreateProcess("orphan", "EQ"));
  EXPECT_TRUE(library.IsLoaded());
  EXPECT_EQ(library.GetProcess(), nullptr);
  EXPECT_EQ(ZORAPOProcessLibrary::EnumProcesses(), std::vector<std::string>{"orphan"});
  EXPECT_TRUE(log.Lines().empty());
}

TEST(ZORAPOProcessLibrary, EnumeratesTheIdsOfTheModule) {
  {
    ModuleDirectory directory(techtest::TestModuleDirectory());
    TestModuleLog moduleLog;
    EXPECT_EQ(ZORAPOProcessLibrary::EnumProcesses(), kTestModuleIds);
    ZORAPOProcessLibrary library;
    std::vector<std::string> ids = {"stale"};
    library.EnumProcesses(ids);
    EXPECT_EQ(ids, kTestModuleIds);
    EXPECT_TRUE(library.IsLoaded());
    EXPECT_EQ(moduleLog.Lines(), (std::vector<std::string>{"enum", "enum"}));
  }
  // veltech, beside the executable.
  EXPECT_EQ(ZORAPOProcessLibrary::EnumProcesses(),
            (std::vector<std::string>{"gain", "peq", "limiter", "widener", "crossfeed", "passthrough"}));
}

TEST(ZORAPOProcessLibrary, HoldsOneProcessAtATimeAndGivesItBack) {
  ModuleDirectory directory(techtest::TestModuleDirectory());
  TestModuleLog moduleLog;
  {
    ZORAPOProcessLibrary library;
    library.SetName("EQ");
    EXPECT_EQ(library.GetName(), "EQ");
    library.DestroyProcess();  // nothing held: nothing happens
    ASSERT_TRUE(library.CreateProcess("probe", "A"));
    ZORTechProcess* first = library.GetProcess();
    ASSERT_NE(first, nullptr);
    // A second create gives the first process back before making the next.
    ASSERT_TRUE(library.CreateProcess("probe", "B"));
    EXPECT_NE(library.GetProcess(), nullptr);
    EXPECT_EQ(moduleLog.Lines(),
              (std::vector<std::string>{"create probe A", "destroy probe A", "create probe B"}));
    library.DestroyProcess();
    EXPECT_EQ(library.GetProcess(), nullptr);
    EXPECT_TRUE(library.IsLoaded());  // the module stays
    library.DestroyProcess();
    EXPECT_EQ(moduleLog.Lines(), std::vector<std::string>{"destroy probe B"});

    // A refused create leaves no process; so does a create that says yes
    // but hands nothing out.
    EXPECT_FALSE(library.CreateProcess("refuse", "C"));
    EXPECT_EQ(library.GetProcess(), nullptr);
    EXPECT_TRUE(library.CreateProcess("null", "D"));
    EXPECT_EQ(library.GetProcess(), nullptr);
    ASSERT_TRUE(library.CreateProcess("probe", "E"));
    EXPECT_EQ(moduleLog.Lines(), (std::vector<std::string>{"create refuse C", "create null D", "create probe E"}));
  }
  // The destructor gives the last process back.
  EXPECT_EQ(moduleLog.Lines(), std::vector<std::string>{"destroy probe E"});
}

TEST(ZORAPOProcessLibrary, VeltechRefusesUnknownIds) {
  ZORAPOProcessLibrary::SetModulePath(nullptr);
  ZORAPOProcessLibrary library;
  EXPECT_FALSE(library.CreateProcess("no-such-process", "EQ"));
  EXPECT_EQ(library.GetProcess(), nullptr);
  EXPECT_FALSE(library.CreateProcess("", "EQ"));
  EXPECT_TRUE(library.CreateProcess("passthrough", "EQ"));
  EXPECT_NE(library.GetProcess(), nullptr);
}
