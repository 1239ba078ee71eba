#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "apo/zorapoeffectlistwatcher.h"
#include "apo/zorapoeffecttables.h"
#include "childprocess.h"
#include "config/zorutsvaluelist.h"
#include "platform/event.h"
#include "registrytestarea.h"
#include "support/zorlogcapture.h"

namespace {

using Table = ZORAPOEffectTables::Table;

ZORUTSValueList Values(const std::map<std::string, std::string>& entries) {
  ZORUTSValueList list;
  for (const auto& [name, text] : entries) list.Insert(ZORUTSValue(name, text));
  return list;
}

std::vector<GUID> Ids(std::initializer_list<uint8_t> xx) {
  std::vector<GUID> ids;
  for (const uint8_t x : xx) ids.push_back(ZORAPOEffectTables::EffectType(x));
  return ids;
}

struct SelectCase {
  const char* name;
  Table table;
  std::map<std::string, std::string> values;
  std::string mode;
  std::vector<GUID> expected;
};

TEST(EffectTablesTest, RowsAreOnByTheirTextAndModeInTableOrder) {
  const std::map<std::string, std::string> allSfxEq = {
      {"SFX:Corvo-RV Enable", "1"}, {"SFX:Corvo-NDEQ MODE", "ProfileEQ"},
      {"SFX:Corvo-MYLEQ MODE", "xLevelTrackEQy"}, {"SFX:Corvo-BEQ Enable", "1"}};
  const SelectCase cases[] = {
      {"four EQ rows repeat C3", Table::SFX, allSfxEq, "Music", Ids({0xC3, 0xC3, 0xC3, 0xC3})},
      {"ten is off", Table::SFX, {{"SFX:Corvo-TK Enable", "10"}, {"SFX:Corvo-RUF Enable", "1"}}, "", Ids({0xCC})},
      {"surround in headphone mode", Table::SFX, {{"SFX:Corvo-W5GZ Enable", "1"}}, "x APO4-Headphone x",
       Ids({0xC7})},
      {"surround otherwise", Table::SFX, {{"SFX:Corvo-W5GZ Enable", "1"}}, "APO4-Speaker", Ids({0xC6})},
      {"EFX wants exactly one", Table::EFX,
       {{"EFX:Corvo-RUF Enable", "LevelTrackEQ"}, {"EFX:Corvo-TEQ Enable", "1"}, {"EFX:Corvo-CRSL Enable", "1"}},
       "", Ids({0xCD, 0xCC})},
      {"MFX text counts, no headphone swap", Table::MFX,
       {{"MFX:Corvo-W5GZ Device Enable", "1"}, {"MFX:Corvo-NDEQ MODE", "aProfileEQ"}, {"MFX:Corvo-TEQ Enable", " 1"}},
       "APO4-Headphone", Ids({0xCD, 0xC3})},
      {"keys of another table are ignored", Table::MFX, {{"SFX:Corvo-RUF Enable", "1"}}, "", {}},
      {"location 0 has no table", Table::None, {{"SFX:Corvo-TK Enable", "1"}}, "", {}},
  };
  const Table byLocation[] = {Table::None, Table::SFX, Table::MFX, Table::EFX, Table::SFX, Table::MFX, Table::None};
  for (uint32_t location = 0; location < 7; ++location) {
    EXPECT_EQ(ZORAPOEffectTables::ForLocation(location), byLocation[location]) << location;
  }
  for (const SelectCase& c : cases) {
    const std::vector<GUID> ids = ZORAPOEffectTables::Select(c.table, Values(c.values), c.mode);
    ASSERT_EQ(ids.size(), c.expected.size()) << c.name;
    for (size_t i = 0; i < ids.size(); ++i) EXPECT_TRUE(IsEqualGUID(ids[i], c.expected[i])) << c.name << i;
  }
}

class EffectListWatcherTest : public testing::Test {
 protected:
  void SetUp() override {
    zor::os::RegKey key;
    ASSERT_EQ(zor::os::RegKey::Create(area.Path(u"APO"), zor::os::kKeyAllAccess, key), zor::os::RegStatus::Ok);
  }
  velapo::test::RegistryTestArea area;
};

// A write by another process, as the control panel makes, reaches the
// client's event; the watcher re-arms and sees the next one too.
TEST_F(EffectListWatcherTest, AChangeInAnotherProcessSignalsTheClient) {
  zor::os::Event client(zor::os::EventReset::Auto);
  ZORAPOEffectListWatcher watcher(area.Path(u"APO"));
  ASSERT_TRUE(watcher.Start([&client] { client.Set(); }));
  for (const char* text : {"1", "0"}) {
    velapo::test::ChildProcess writer;
    ASSERT_TRUE(writer.Start(velapo::test::HelperBesideTest(VELAPO_REGISTRY_HELPER),
                             {"write", area.Root(), area.NarrowPath(u"APO\\Endpoint"), "SFX", text}));
    ASSERT_EQ(writer.Wait(velapo::test::kMustNotTimeOutMs * 3), 0);
    EXPECT_TRUE(client.Wait(velapo::test::kMustNotTimeOutMs)) << text;
  }
  watcher.Stop();
  EXPECT_FALSE(watcher.Running());
}

}  // namespace
