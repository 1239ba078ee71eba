#include "config/zorapopublicsettings.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "childprocess.h"
#include "config/zorapoconfigurationfile.h"
#include "config/zorapoglobalsettings.h"
#include "config/zorapomodeselector.h"
#include "config/zorapopublicsettingsreader.h"
#include "config/zorapostoredsettings.h"
#include "registrytestarea.h"
#include "settingstesting.h"
#include "support/zorlogcapture.h"

using velapo::test::Blob;
using velapo::test::Store;
using zor::os::Event;
using zor::os::EventReset;

namespace {

constexpr GUID kEndpoint = {0x1234, 0x5678, 0x9abc, {1, 2, 3, 4, 5, 6, 7, 8}};
const ZORAPOOperatingMode kMode = velapo::test::MakeMusicMode();
const std::u16string kModeValue = kMode.id.ToRegistryName();

std::string TextOf(const ZORUTSValueList& list, const char* name) {
  const ZORUTSValue* value = list.Find(name);
  return value != nullptr ? value->GetText() : "<none>";
}

struct SettingsClient : IZORAPOPublicSettingsNotify {
  void OnPublicSettingChanged(ZORAPOPublicSettings&, const ZORUTSValue& value) override {
    if (value.name == "SFX:Width" && value.GetText() == "3.5") sawPanelsWidth = true;
  }
  std::atomic<bool> sawPanelsWidth{false};
};

struct PublicSettings : ::testing::Test {
  void SetUp() override { ASSERT_TRUE(velapo::test::CreateKey(keyPath, key)); }
  velapo::test::RegistryTestArea area;
  std::u16string keyPath = area.Path(u"Endpoint");
  zor::os::RegKey key;
  ZORUTSValueList list;
};

}  // namespace

TEST_F(PublicSettings, StoredValuesBeatDefaultsAndOnlyPublicNamesSurvive) {
  ASSERT_TRUE(Store(key, kModeValue, Blob({{u"SFX:Width", "2.0"}, {u"SFX:Tuned", "9"}, {u"Old:Gone", "1"}})));
  ZORAPOPublicSettings settings;
  ZORAPOPublicSettingsReader reader;
  ASSERT_TRUE(settings.Init(keyPath, kMode));
  ASSERT_TRUE(reader.Open(kEndpoint, keyPath, kMode, nullptr));
  ZORUTSValueList seen;
  ASSERT_TRUE(settings.ReadAll(list, true));
  ASSERT_TRUE(reader.ReadAll(seen));
  for (const ZORUTSValueList* read : {&list, &seen}) {
    EXPECT_EQ(read->Size(), 2u);
    EXPECT_EQ(TextOf(*read, "SFX:Width"), "2.0");
    EXPECT_EQ(TextOf(*read, "SFX:Bass"), "0");
  }

  ZORLogCapture log;
  EXPECT_FALSE(settings.WriteControl(ZORUTSValue("SFX:Tuned", "1")));
  EXPECT_TRUE(log.Contains("WriteControl: Unable to get property SFX:Tuned\n"));
  ZORUTSValueList extra;
  extra.Insert(ZORUTSValue("New:Name", "1"));
  ASSERT_TRUE(settings.WriteAll(extra));
  ZORPropertyList stored;
  ASSERT_TRUE(ZORAPOStoredSettings::Read(key, kModeValue, stored));
  EXPECT_EQ(stored.size(), 3u);  // Width, Bass and the new name
  ASSERT_TRUE(settings.Init(keyPath, kMode));
  ASSERT_TRUE(settings.ReadAll(list, true));
  ASSERT_TRUE(reader.ReadAll(seen));
  EXPECT_EQ(TextOf(list, "New:Name") + TextOf(seen, "New:Name"), "<none><none>");
}

// Nothing stored, or what a hostile process may store under these names:
// every class reads it as a failed load and keeps its defaults.
TEST_F(PublicSettings, MissingOrDamagedStoredValuesAreFailedLoads) {
  std::vector<uint8_t> truncated = Blob({{u"SFX:Width", "2"}, {u"APO4-Process Enable", "0"}});
  truncated.resize(truncated.size() - 3);
  for (const auto& damaged : {std::vector<uint8_t>{}, std::vector<uint8_t>{0x07}, truncated}) {
    for (std::u16string_view name : {ZORAPOModeSelector::kValueName, ZORAPOGlobalSettings::kValueName,
                                     std::u16string_view(kModeValue)}) {
      ASSERT_TRUE(damaged.empty() || Store(key, name, damaged));
    }
    list.Insert(ZORUTSValue("stale", "1"));
    ZORAPOModeSelector selector;
    ZORAPOModeId id;
    ZORAPOGlobalSettings global;
    ZORAPOPublicSettings settings;
    ZORAPOPublicSettingsReader reader;
    ASSERT_TRUE(selector.Init(keyPath, kMode.id) && global.InitGlobal(keyPath, nullptr) &&
                settings.Init(keyPath, kMode) && reader.Open(kEndpoint, keyPath, kMode, nullptr));
    EXPECT_FALSE(selector.GetMode(id));
    EXPECT_FALSE(global.ReadAll(list, true));
    EXPECT_EQ(TextOf(list, ZORAPOGlobalSettings::kProcessEnableName), "1");
    EXPECT_FALSE(settings.ReadAll(list, true));
    EXPECT_EQ(TextOf(list, "SFX:Width"), "1.0");
    EXPECT_FALSE(settings.ReadAllControls(list, true));
    EXPECT_EQ(list.Size(), 3u);  // the mode's controls stand
    EXPECT_FALSE(reader.ReadAll(list));
    EXPECT_TRUE(list.IsEmpty());
  }
  EXPECT_FALSE(ZORAPOPublicSettings().Init(area.Path(u"Missing"), kMode));
}

// A watcher's older copy, merged just after a local save, must not lose the local write.
TEST_F(PublicSettings, LocalWritesSurviveTheWatchersOlderCopies) {
  ZORAPOPublicSettings settings;
  SettingsClient client;
  ASSERT_TRUE(settings.Init(keyPath, kMode));
  ASSERT_TRUE(settings.SetNotify(&client));
  std::jthread pinger([&](std::stop_token stop) {
    for (uint32_t round = 0; !stop.stop_requested(); ++round) key.WriteDword(u"Ping", round);
  });
  for (int round = 1; round <= 200; ++round) {
    ASSERT_TRUE(settings.WriteControl(ZORUTSValue("SFX:Width", std::to_string(round))));
    ASSERT_TRUE(settings.ReadAll(list, true));
    ASSERT_EQ(TextOf(list, "SFX:Width"), std::to_string(round));
  }
}

// A control panel process stores a mode and a control: every listener here hears it.
TEST_F(PublicSettings, ChangesStoredByAnotherProcessReachEveryListener) {
  ZORAPOModeSelector selector;
  velapo::test::ModeClient modeClient;
  ZORAPOPublicSettings settings;
  SettingsClient client;
  Event changed(EventReset::Manual);
  ZORAPOPublicSettingsReader reader;
  ASSERT_TRUE(selector.Init(keyPath, kMode.id) && selector.SetNotify(&modeClient));
  ASSERT_TRUE(settings.Init(keyPath, kMode) && settings.SetNotify(&client));
  ASSERT_TRUE(reader.Open(kEndpoint, keyPath, kMode, &changed));

  velapo::test::ChildProcess panel;
  ASSERT_TRUE(panel.Start(velapo::test::HelperBesideTest(VELAPO_SETTINGS_HELPER),
                          {area.Root(), area.NarrowPath(u"Endpoint")}));
  for (int round = 0; round < 300 && !(client.sawPanelsWidth && modeClient.calls && changed.Wait(0)); ++round) {
    modeClient.called.Wait(100);
  }
  EXPECT_TRUE(client.sawPanelsWidth);
  EXPECT_GT(modeClient.calls, 0);
  ASSERT_TRUE(reader.ReadAll(list));
  EXPECT_EQ(TextOf(list, "SFX:Width"), "3.5");
  ZORAPOModeId id;
  ASSERT_TRUE(selector.GetMode(id));
  EXPECT_EQ(id, ZORAPOModeId("APO4-Movie", "APO4-Headphones"));
  ASSERT_EQ(key.WriteDword(u"Ack", 1), zor::os::RegStatus::Ok);
  EXPECT_EQ(panel.Wait(60000), 0);
}
