#include "config/zorapomodeselector.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "registrytestarea.h"
#include "settingstesting.h"

namespace {

const ZORAPOModeId kMusic("APO4-Music", "APO4-Internal Stereo");
const ZORAPOModeId kMovie("APO4-Movie", "APO4-Headphones");

struct ModeSelector : ::testing::Test {
  void SetUp() override { ASSERT_TRUE(velapo::test::CreateKey(keyPath, key)); }
  velapo::test::RegistryTestArea area;
  std::u16string keyPath = area.Path(u"Endpoint");
  zor::os::RegKey key;
};

}  // namespace

TEST_F(ModeSelector, StoredModeIsSharedByEverySelectorOfTheEndpoint) {
  ZORAPOModeSelector first;
  ZORAPOModeSelector second;
  ZORAPOModeId id;
  ASSERT_TRUE(first.Init(keyPath, kMusic));
  EXPECT_FALSE(first.GetMode(id));  // nothing stored: the configuration decides
  EXPECT_FALSE(first.DeleteValue());
  ASSERT_TRUE(first.SetMode(kMovie));
  ASSERT_TRUE(second.Init(keyPath, kMusic));
  ASSERT_TRUE(second.GetMode(id));
  EXPECT_EQ(id, kMovie);
  ASSERT_TRUE(second.GetModeForContent(id, nullptr));
  EXPECT_EQ(id, kMovie);
  ASSERT_TRUE(second.GetModeForContent(id, "APO4-Voice"));
  EXPECT_EQ(id, ZORAPOModeId("APO4-Voice", "APO4-Headphones"));
  EXPECT_TRUE(second.DeleteValue());
  EXPECT_FALSE(first.GetMode(id));

  ASSERT_TRUE(velapo::test::Store(key, ZORAPOModeSelector::kValueName,
                                  velapo::test::Blob({{u"APO4-Operating Mode", "APO4-Movie"}})));
  EXPECT_FALSE(first.GetMode(id));  // no speaker type: undefined
  EXPECT_FALSE(first.Init(area.Path(u"Missing"), kMusic));
  EXPECT_FALSE(first.SetMode(kMovie));
  EXPECT_FALSE(first.GetMode(id));
}

// Selectors with a client come and go while the stored mode changes: a dying
// selector never calls its client (ASan and TSan see a late call).
TEST_F(ModeSelector, DestructorRacingAChangeNeverReachesADeadClient) {
  std::jthread writer([&](std::stop_token stop) {
    ZORAPOModeSelector other;
    other.Init(keyPath, kMusic);
    for (int round = 0; !stop.stop_requested(); ++round) other.SetMode(round % 2 ? kMusic : kMovie);
  });
  int told = 0;
  for (int round = 0; round < 20; ++round) {
    auto client = std::make_unique<velapo::test::ModeClient>();
    {
      ZORAPOModeSelector selector;
      ASSERT_TRUE(selector.Init(keyPath, kMusic));
      ASSERT_TRUE(selector.SetNotify(client.get()));
      client->called.Wait(round % 2 == 0 ? 200 : 0);
    }
    told += client->calls;
  }
  EXPECT_GT(told, 0);
}
