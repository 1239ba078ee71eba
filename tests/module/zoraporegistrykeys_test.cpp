#include "module/zoraporegistrykeys.h"

#include <gtest/gtest.h>

#include <cstring>

#include "apo/zoraporegproperties.h"
#include "module/czor_apomodule.h"
#include "moduletesting.h"
#include "platform/event.h"

namespace {

using velapo::test::ClassesRoot;
using zor::os::RegKey;
using zor::os::RegStatus;
using zor::os::RegType;

class ZORAPORegistryKeysTest : public ::testing::Test {
 protected:
  std::u16string KeyOf(const APO_REG_PROPERTIES& record) {
    return std::u16string(ZORAPORegistryKeys::kKeyPath) + u"\\" + zor::com::GuidText(record.clsid);
  }
  void Put(const APO_REG_PROPERTIES& record, std::u16string_view name, RegType type, std::vector<uint8_t> data) {
    RegKey key;
    ASSERT_EQ(RegKey::Open(m_root.Path(KeyOf(record)), zor::os::kKeyAllAccess, key), RegStatus::Ok);
    ASSERT_EQ(key.WriteValue(name, type, data), RegStatus::Ok);
  }

  ClassesRoot m_root;
  ZORAPORegistryKeys m_keys{m_root.Path()};
  const std::array<const APO_REG_PROPERTIES*, 7> m_records = CZOR_APOModule::RegistrationOrder();
};

// Registration's read-back: the records come back bit for bit (the reader
// takes each value only with its type), a stale value goes with a rewrite,
// and other key names are passed over.
TEST_F(ZORAPORegistryKeysTest, ReadsBackExactlyWhatWasWrittenAndDropsStaleValues) {
  ASSERT_EQ(m_keys.WriteAll(m_records), S_OK);
  Put(*m_records[0], u"FromAnOlderVersion", RegType::Dword, {1, 0, 0, 0});
  {
    RegKey junk;
    ASSERT_EQ(RegKey::Create(m_root.Path(std::u16string(ZORAPORegistryKeys::kKeyPath) + u"\\NotAClass"),
                             zor::os::kKeyAllAccess, junk), RegStatus::Ok);
  }
  ASSERT_EQ(m_keys.WriteAll(m_records), S_OK);
  EXPECT_EQ(m_root.Text(KeyOf(*m_records[0]), u"FromAnOlderVersion"), u"<missing>");
  EXPECT_EQ(m_root.Text(KeyOf(*m_records[0]), u"APOInterface0"), u"{509B8007-7DCD-4FA4-A2DC-E5622FA24415}");
  std::vector<ZORAPORegisteredClass> all;
  ASSERT_EQ(m_keys.ReadAll(all), S_OK);
  ASSERT_EQ(all.size(), m_records.size());
  for (const APO_REG_PROPERTIES* record : m_records) {
    ZORAPORegisteredClass one;
    ASSERT_EQ(m_keys.Read(record->clsid, one), S_OK);
    const APO_REG_PROPERTIES back = one.ToRecord();
    EXPECT_EQ(std::memcmp(&back, record, sizeof(back)), 0);
    RegKey key;
    ASSERT_EQ(RegKey::Open(m_root.Path(KeyOf(*record)), zor::os::kKeyRead, key), RegStatus::Ok);
    EXPECT_EQ(velapo::test::ValueNames(key).size(), 12u);
  }
}

TEST_F(ZORAPORegistryKeysTest, AListenerIsSetAfterEachClassUntilRemoved) {
  zor::os::Event event(zor::os::EventReset::Auto);
  ZORAPORegistryKeys::AddListener(&event);
  ASSERT_EQ(m_keys.Write(*m_records[0]), S_OK);
  EXPECT_TRUE(event.Wait(0));
  ZORAPORegistryKeys::RemoveListener(&event);
  ASSERT_EQ(m_keys.Write(*m_records[1]), S_OK);
  EXPECT_FALSE(event.Wait(0));
}

struct BadValue {
  const char16_t* name;
  RegType type;
  std::vector<uint8_t> data;
  uint32_t result;
};

std::vector<uint8_t> Text(size_t units, char16_t unit = u'a') {
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i < units; ++i) bytes.insert(bytes.end(), {uint8_t(unit), uint8_t(unit >> 8)});
  bytes.insert(bytes.end(), {0, 0});
  return bytes;
}

TEST_F(ZORAPORegistryKeysTest, ABadOrMissingValueEndsTheReadAsAnHresult) {
  const BadValue cases[] = {
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
  for (const BadValue& item : cases) {
    ASSERT_EQ(m_keys.Write(*m_records[2]), S_OK);
    Put(*m_records[2], item.name, item.type, item.data);
    ZORAPORegisteredClass read;
    EXPECT_EQ(static_cast<uint32_t>(m_keys.Read(m_records[2]->clsid, read)), item.result)
        << zor::os::Utf16ToUtf8(item.name);
    std::vector<ZORAPORegisteredClass> all;
    EXPECT_EQ(static_cast<uint32_t>(m_keys.ReadAll(all)), item.result);
  }
  // The longest text the buffer takes reads whole; the record keeps 255.
  ASSERT_EQ(m_keys.Write(*m_records[2]), S_OK);
  Put(*m_records[2], u"FriendlyName", RegType::Sz, Text(511));
  ZORAPORegisteredClass read;
  ASSERT_EQ(m_keys.Read(m_records[2]->clsid, read), S_OK);
  EXPECT_EQ(read.friendlyName.size(), 511u);
  EXPECT_EQ(std::u16string(zor::com::FromComText(read.ToRecord().szFriendlyName)).size(), 255u);
  EXPECT_EQ(static_cast<uint32_t>(m_keys.Read(GUID_NULL, read)), 0x80070002u);
}

}  // namespace
