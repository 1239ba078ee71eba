#include "config/zorapopublicsettings.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <random>
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

TEST_F(PublicSettings, ReaderOpenedTwiceKeepsItsBindingAndTakesTheNewEvent) {
  ZORAPOOperatingMode sameId = kMode;
  sameId.publicControls.Insert(ZORUTSValue("SFX:Later", "1"));
  Event first(EventReset::Manual);
  Event second(EventReset::Manual);
  ZORAPOPublicSettingsReader reader;
  ASSERT_TRUE(reader.Open(kEndpoint, keyPath, kMode, &first));
  ASSERT_TRUE(reader.Open(kEndpoint, keyPath, sameId, &second));
  ASSERT_TRUE(Store(key, kModeValue, Blob({{u"SFX:Width", "4"}})));
  EXPECT_TRUE(velapo::test::PingUntil(key, [&] { return second.Wait(0); }));
  EXPECT_FALSE(first.Wait(0));
  ASSERT_TRUE(reader.ReadAll(list));
  EXPECT_EQ(list.Size(), 2u);  // the controls of the first Open
  EXPECT_EQ(TextOf(list, "SFX:Width"), "4");
}

// Automatic content mode in the configuration (or none), a stored global
// value (processing off, and a name of its own) or none, and what reads.
struct GlobalCase {
  const char* configAuto;
  bool stored;
  const char* expected;  // process enable, automatic content mode, extra name
};

struct GlobalSettings : PublicSettings, ::testing::WithParamInterface<GlobalCase> {};

TEST_P(GlobalSettings, StoredChoicesBeatDefaultsAndAddTheirNames) {
  ZORAPOConfigurationFile configuration;
  if (GetParam().configAuto != nullptr) {
    const auto file = std::filesystem::temp_directory_path() /
                      ("velapo-global-" + std::to_string(std::random_device{}()) + ".xml");
    std::ofstream(file) << "<zor_configuration><properties><control name=\"APO4-Auto Content Mode "
                           "Enable\">" << GetParam().configAuto << "</control></properties></zor_configuration>";
    configuration.Load(file.u16string(), 0, 1);
    std::filesystem::remove(file);
  }
  if (GetParam().stored) {
    ASSERT_TRUE(Store(key, ZORAPOGlobalSettings::kValueName,
                      Blob({{u"APO4-Process Enable", "0"}, {u"Vendor:Extra", "5"}})));
  }
  ZORAPOGlobalSettings global;
  EXPECT_FALSE(global.Init(keyPath, kMode));
  ASSERT_TRUE(global.InitGlobal(keyPath, GetParam().configAuto ? &configuration : nullptr));
  EXPECT_EQ(global.ReadAll(list, true), GetParam().stored);
  EXPECT_EQ(TextOf(list, ZORAPOGlobalSettings::kProcessEnableName) + "," +
                TextOf(list, ZORAPOGlobalSettings::kAutoContentModeName) + "," + TextOf(list, "Vendor:Extra"),
            GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Cases, GlobalSettings,
                         ::testing::Values(GlobalCase{nullptr, false, "1,0,<none>"},
                                           GlobalCase{"Enabled", false, "1,1,<none>"},
                                           GlobalCase{nullptr, true, "0,0,5"}));

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

// The object that saves also watches, and its watcher may merge a copy it
// read before a local save just after it. Neither the store nor a read may
// lose the local write for that.
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

// The road of a change: a control panel process stores a mode and a public
// control; here the selector's client, the settings' client and a reader's
// event all hear of it, and the reads give what it stored.
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
