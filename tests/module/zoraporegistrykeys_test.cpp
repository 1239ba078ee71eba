// The engine keys: written fresh (a stale value and a foreign key name are
// passed over), a listener set after each class, and the reader's refusals.
#include "module/zoraporegistrykeys.h"

#include <gtest/gtest.h>

#include <cstring>

#include "module/czor_apomodule.h"
#include "moduletesting.h"
#include "platform/event.h"
#include "platform/text.h"

namespace {

using zor::os::RegKey;
using zor::os::RegType;

std::vector<uint8_t> Text(size_t units, char16_t unit = u'a') {
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i < units; ++i) bytes.insert(bytes.end(), {uint8_t(unit), uint8_t(unit >> 8)});
  bytes.insert(bytes.end(), {0, 0});
  return bytes;
}

TEST(ZORAPORegistryKeysTest, WritesFreshKeysAndReadsBadValuesAsAnHresult) {
  velapo::test::ClassesRoot root;
  const ZORAPORegistryKeys keys(root.Path());
  const auto records = CZOR_APOModule::RegistrationOrder();
  const std::u16string path = std::u16string(ZORAPORegistryKeys::kKeyPath) + u"\\";
  const auto put = [&](std::u16string_view name, RegType type, std::vector<uint8_t> data) {
    RegKey key;
    ASSERT_EQ(RegKey::Create(root.Path(path + zor::com::GuidText(records[2]->clsid)), zor::os::kKeyAllAccess, key),
              zor::os::RegStatus::Ok);
    ASSERT_EQ(key.WriteValue(name, type, data), zor::os::RegStatus::Ok);
  };
  put(u"FromAnOlderVersion", RegType::Dword, {1, 0, 0, 0});
  RegKey junk;
  ASSERT_EQ(RegKey::Create(root.Path(path + u"NotAClass"), zor::os::kKeyAllAccess, junk), zor::os::RegStatus::Ok);
  zor::os::Event event(zor::os::EventReset::Auto);
  ZORAPORegistryKeys::AddListener(&event);
  ASSERT_EQ(keys.WriteAll(records), S_OK);
  EXPECT_TRUE(event.Wait(0));
  ZORAPORegistryKeys::RemoveListener(&event);
  EXPECT_EQ(root.Text(path + zor::com::GuidText(records[2]->clsid), u"FromAnOlderVersion"), u"<missing>");
  // Texts as REG_SZ, the interface id in braces (Text answers "<type>" for another type).
  EXPECT_EQ(root.Text(path + zor::com::GuidText(records[0]->clsid), u"APOInterface0"),
            u"{509B8007-7DCD-4FA4-A2DC-E5622FA24415}");
  std::vector<ZORAPORegisteredClass> all;
  ASSERT_EQ(keys.ReadAll(all), S_OK);
  EXPECT_EQ(all.size(), records.size());
  for (const APO_REG_PROPERTIES* record : records) {  // bit for bit, each value only with its type
    ZORAPORegisteredClass one;
    ASSERT_EQ(keys.Read(record->clsid, one), S_OK);
    const APO_REG_PROPERTIES back = one.ToRecord();
    EXPECT_EQ(std::memcmp(&back, record, sizeof(back)), 0);
  }
  ASSERT_EQ(keys.Write(*records[1]), S_OK);
  EXPECT_FALSE(event.Wait(0));

  const std::tuple<const char16_t*, RegType, std::vector<uint8_t>, uint32_t> cases[] = {
      {u"FriendlyName", RegType::Dword, {1, 0, 0, 0}, 0x8007000D},
      {u"FriendlyName", RegType::Sz, Text(512), 0x800700EA},
      {u"FriendlyName", RegType::Sz, {0x41, 0, 0}, 0x8007000D},
      {u"Copyright", RegType::Binary, {}, 0x8007000D},
      {u"Flags", RegType::Dword, {12, 0, 0}, 0x8007000D},
      {u"Flags", RegType::Qword, {12, 0, 0, 0, 0, 0, 0, 0}, 0x8007000D},
      {u"NumAPOInterfaces", RegType::Dword, {2, 0, 0, 0}, 0x80070002},
      {u"NumAPOInterfaces", RegType::Dword, {65, 0, 0, 0}, 0x8007000D},
      {u"APOInterface0", RegType::Sz, Text(38, u'{'), 0x8007000D},
  };
  for (const auto& [name, type, data, result] : cases) {
    ASSERT_EQ(keys.Write(*records[2]), S_OK);
    put(name, type, data);
    ZORAPORegisteredClass read;
    EXPECT_EQ(static_cast<uint32_t>(keys.Read(records[2]->clsid, read)), result) << zor::os::Utf16ToUtf8(name);
    EXPECT_EQ(static_cast<uint32_t>(keys.ReadAll(all)), result);
  }
  // The longest text the buffer takes reads whole; the record keeps 255.
  ASSERT_EQ(keys.Write(*records[2]), S_OK);
  put(u"FriendlyName", RegType::Sz, Text(511));
  ZORAPORegisteredClass read;
  ASSERT_EQ(keys.Read(records[2]->clsid, read), S_OK);
  EXPECT_EQ(read.friendlyName.size(), 511u);
  EXPECT_EQ(std::u16string(zor::com::FromComText(read.ToRecord().szFriendlyName)).size(), 255u);
  EXPECT_EQ(static_cast<uint32_t>(keys.Read(GUID_NULL, read)), 0x80070002u);
}

}  // namespace
