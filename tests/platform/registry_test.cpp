// The settings store's behaviour as both back ends must show it: the POSIX
// store natively, the real registry in the Windows build under Wine.
#include "platform/registry.h"

#include <gtest/gtest.h>

#include <set>
#include <span>
#include <string>
#include <vector>

#include "childprocess.h"
#include "platform/event.h"
#include "platform/text.h"
#include "registrytestarea.h"

#if defined(_WIN32)
#include "platform/dynamiclibrary.h"
#endif

using zor::os::Event;
using zor::os::EventReset;
using zor::os::RegKey;
using zor::os::RegStatus;
using zor::os::RegType;
using namespace std::string_view_literals;

namespace {

using velapo::test::kMustNotTimeOutMs;
using velapo::test::ReadStored;
using velapo::test::Utf16Bytes;

std::set<std::u16string> AllValueNames(RegKey& key) {
  std::set<std::u16string> names;
  std::u16string name;
  for (uint32_t index = 0; key.EnumValue(index, name) == RegStatus::Ok; ++index) {
    EXPECT_TRUE(names.insert(name).second) << "listed twice";
  }
  return names;
}

class Registry : public ::testing::Test {
 protected:
  // Each armed notification gets its own handle, as Wine keeps one per handle.
  RegKey Watch(std::u16string_view relative, bool subtree, uint32_t filter, Event& event) {
    RegKey key;
    EXPECT_EQ(RegKey::Open(area.Path(relative), zor::os::kKeyRead, key), RegStatus::Ok);
    EXPECT_EQ(key.NotifyChange(subtree, filter, event), RegStatus::Ok);
    return key;
  }

  RegKey Create(std::u16string_view relative, uint32_t access = zor::os::kKeyAllAccess) {
    RegKey key;
    EXPECT_EQ(RegKey::Create(area.Path(relative), access, key), RegStatus::Ok);
    return key;
  }

  velapo::test::RegistryTestArea area;
};

}  // namespace

TEST_F(Registry, KeysOpenInAnyCaseAndKeepTheSpellingOfTheirCreation) {
  RegKey key;
  bool created = false;
  ASSERT_EQ(RegKey::Create(area.Path(u"Audio\\Render"), zor::os::kKeyAllAccess, key, &created),
            RegStatus::Ok);
  EXPECT_TRUE(created);
  ASSERT_EQ(RegKey::Create(area.Path(u"AUDIO\\render"), zor::os::kKeyAllAccess, key, &created),
            RegStatus::Ok);
  EXPECT_FALSE(created);
  ASSERT_EQ(key.WriteDword(u"Marker", 7), RegStatus::Ok);

  RegKey again;
  ASSERT_EQ(RegKey::Open(area.Path(u"aUdIo\\RENDER"), zor::os::kKeyRead, again), RegStatus::Ok);
  uint32_t marker = 0;
  EXPECT_EQ(again.ReadDword(u"marker", marker), RegStatus::Ok);
  EXPECT_EQ(marker, 7u);

  RegKey base = Create({});
  std::u16string name;
  ASSERT_EQ(base.EnumSubKey(0, name), RegStatus::Ok);
  EXPECT_EQ(name, u"Audio");
  EXPECT_EQ(base.EnumSubKey(1, name), RegStatus::NoMoreItems);

  RegKey missing;
  EXPECT_EQ(RegKey::Open(area.Path(u"Audio\\Capture"), zor::os::kKeyRead, missing),
            RegStatus::NotFound);
  EXPECT_FALSE(missing.IsOpen());
  // The empty path opens the same key again, with other rights.
  RegKey reopened;
  ASSERT_EQ(again.OpenSubKey(u"", zor::os::kKeyQueryValue, reopened), RegStatus::Ok);
  EXPECT_EQ(reopened.ReadDword(u"Marker", marker), RegStatus::Ok);
  EXPECT_EQ(reopened.Access(), zor::os::kKeyQueryValue);
}

TEST_F(Registry, ValuesOfEveryTypeReadBackByteForByte) {
  RegKey key = Create(u"Types");
  struct Case {
    std::u16string name;
    RegType type;
    std::vector<uint8_t> data;
  };
  const std::vector<Case> cases = {
      {u"Dword", RegType::Dword, {0x78, 0x56, 0x34, 0x12}},
      {u"Qword", RegType::Qword, {1, 2, 3, 4, 5, 6, 7, 8}},
      {u"Binary", RegType::Binary, {0, 0xFF, 0x80, 0}},
      {u"EmptyBinary", RegType::Binary, {}},
      {u"Text", RegType::Sz, Utf16Bytes(u"h\u00e9llo")},
      {u"Expand", RegType::ExpandSz, Utf16Bytes(u"%SystemRoot%\\x")},
      {u"Multi", RegType::MultiSz, Utf16Bytes(u"one\0two"sv, 2)},
      {u"", RegType::Binary, {42}},  // the key's default value
  };
  for (const Case& c : cases) ASSERT_EQ(key.WriteValue(c.name, c.type, c.data), RegStatus::Ok);
  for (const Case& c : cases) {
    RegType type = RegType::None;
    uint32_t size = 99;
    ASSERT_EQ(key.QueryValue(c.name, type, size), RegStatus::Ok) << zor::os::Utf16ToUtf8(c.name);
    EXPECT_EQ(type, c.type);
    EXPECT_EQ(size, c.data.size());
    std::vector<uint8_t> data{9, 9};
    ASSERT_EQ(key.ReadValue(c.name, type, data), RegStatus::Ok);
    EXPECT_EQ(data, c.data) << zor::os::Utf16ToUtf8(c.name);
  }
  uint32_t number = 0;
  EXPECT_EQ(key.ReadDword(u"Dword", number), RegStatus::Ok);
  EXPECT_EQ(number, 0x12345678u);
  EXPECT_EQ(key.ReadDword(u"Qword", number), RegStatus::InvalidData);
  EXPECT_EQ(key.ReadDword(u"Nothing", number), RegStatus::NotFound);
}

TEST_F(Registry, TextIsStoredAsGivenEvenWithoutItsTerminator) {
  RegKey key = Create(u"Text");
  // A NUL right behind the given bytes must not be stored with them.
  const std::vector<uint8_t> buffer = {'a', 0, 'b', 0, 0, 0};
  const std::span<const uint8_t> unterminated = std::span(buffer).first(4);
  for (const RegType type : {RegType::Sz, RegType::ExpandSz, RegType::MultiSz}) {
    ASSERT_EQ(key.WriteValue(u"Value", type, unterminated), RegStatus::Ok);
    const auto stored = ReadStored(key, u"Value");
    ASSERT_EQ(stored.status, RegStatus::Ok);
    EXPECT_EQ(stored.type, type);
    EXPECT_EQ(stored.data, std::vector<uint8_t>(unterminated.begin(), unterminated.end()));
  }
}

TEST_F(Registry, ValueNamesIgnoreCaseKeepTheirFirstSpellingAndEnumerateOnce) {
  RegKey key = Create(u"Names");
  ASSERT_EQ(key.WriteDword(u"Gain", 1), RegStatus::Ok);
  ASSERT_EQ(key.WriteDword(u"GAIN", 2), RegStatus::Ok);
  for (int i = 0; i < 4; ++i) {
    ASSERT_EQ(key.WriteDword(u"Other" + zor::os::NarrowToWide(std::to_string(i)), i), RegStatus::Ok);
  }
  uint32_t number = 0;
  ASSERT_EQ(key.ReadDword(u"gain", number), RegStatus::Ok);
  EXPECT_EQ(number, 2u);
  EXPECT_EQ(AllValueNames(key),
            (std::set<std::u16string>{u"Gain", u"Other0", u"Other1", u"Other2", u"Other3"}));
  std::u16string name;
  EXPECT_EQ(key.EnumValue(5, name), RegStatus::NoMoreItems);

  EXPECT_EQ(key.DeleteValue(u"gAIN"), RegStatus::Ok);
  EXPECT_EQ(key.DeleteValue(u"Gain"), RegStatus::NotFound);
  EXPECT_EQ(ReadStored(key, u"Gain").status, RegStatus::NotFound);
  EXPECT_EQ(AllValueNames(key).size(), 4u);
}

TEST_F(Registry, OperationsNeedTheRightsTheKeyWasOpenedWith) {
  Create(u"Rights").WriteDword(u"Value", 1);
  RegKey reader;
  ASSERT_EQ(RegKey::Open(area.Path(u"Rights"), zor::os::kKeyRead, reader), RegStatus::Ok);
  EXPECT_EQ(reader.WriteDword(u"Value", 2), RegStatus::AccessDenied);
  EXPECT_EQ(reader.DeleteValue(u"Value"), RegStatus::AccessDenied);

  RegKey writer;
  ASSERT_EQ(RegKey::Open(area.Path(u"Rights"), zor::os::kKeySetValue, writer), RegStatus::Ok);
  uint32_t number = 0;
  EXPECT_EQ(writer.ReadDword(u"Value", number), RegStatus::AccessDenied);
  Event event(EventReset::Auto);
  EXPECT_EQ(writer.NotifyChange(false, zor::os::kNotifyChangeLastSet, event),
            RegStatus::AccessDenied);
  EXPECT_EQ(writer.WriteDword(u"Value", 3), RegStatus::Ok);
  EXPECT_EQ(reader.ReadDword(u"Value", number), RegStatus::Ok);
  EXPECT_EQ(number, 3u);

  RegKey closed;
  EXPECT_EQ(closed.ReadDword(u"Value", number), RegStatus::NotOpen);
  EXPECT_EQ(closed.WriteDword(u"Value", 1), RegStatus::NotOpen);
}

TEST_F(Registry, DuplicateOutlivesTheOriginal) {
  RegKey original = Create(u"Dup");
  RegKey copy;
  ASSERT_EQ(original.Duplicate(copy), RegStatus::Ok);
  EXPECT_EQ(copy.Access(), original.Access());
  original.Close();
  original.Close();  // a second close does nothing
  EXPECT_FALSE(original.IsOpen());
  ASSERT_EQ(copy.WriteDword(u"Still", 5), RegStatus::Ok);
  uint32_t number = 0;
  RegKey moved(std::move(copy));
  EXPECT_FALSE(copy.IsOpen());  // NOLINT(bugprone-use-after-move): the move empties it
  EXPECT_EQ(moved.ReadDword(u"Still", number), RegStatus::Ok);
  EXPECT_EQ(number, 5u);
}

TEST_F(Registry, DeletingATreeTakesItsKeysAndValues) {
  RegKey inner = Create(u"Tree\\Branch\\Leaf");
  ASSERT_EQ(inner.WriteDword(u"Value", 1), RegStatus::Ok);
  Event removed(EventReset::Auto);
  RegKey parentWatch = Watch({}, false, zor::os::kNotifyChangeName, removed);

  RegKey base = Create({});
  EXPECT_EQ(base.DeleteSubKeyTree(u""), RegStatus::InvalidParameter);
  ASSERT_EQ(base.DeleteSubKeyTree(u"TREE"), RegStatus::Ok);
  EXPECT_TRUE(removed.Wait(kMustNotTimeOutMs));
  RegKey gone;
  EXPECT_EQ(RegKey::Open(area.Path(u"Tree"), zor::os::kKeyRead, gone), RegStatus::NotFound);
  uint32_t number = 0;
  EXPECT_EQ(inner.ReadDword(u"Value", number), RegStatus::KeyDeleted);
  EXPECT_EQ(base.DeleteSubKeyTree(u"Tree"), RegStatus::NotFound);
}

TEST_F(Registry, NotificationFiresOnceForTheChangesItsFilterNames) {
  RegKey key = Create(u"Watched");
  Event values(EventReset::Auto);
  Event names(EventReset::Auto);
  RegKey valueWatch = Watch(u"Watched", false, zor::os::kNotifyChangeLastSet, values);
  RegKey nameWatch = Watch(u"Watched", false, zor::os::kNotifyChangeName, names);

  // A new subkey is a name change, not a value change.
  Create(u"Watched\\Child");
  ASSERT_TRUE(names.Wait(kMustNotTimeOutMs));
  EXPECT_FALSE(values.Wait(0));

  // A value write is a value change, and the name watch is spent already.
  ASSERT_EQ(key.WriteDword(u"Gain", 1), RegStatus::Ok);
  ASSERT_TRUE(values.Wait(kMustNotTimeOutMs));

  // One shot: the spent notifications stay quiet while a fresh one fires.
  Event fresh(EventReset::Auto);
  RegKey freshWatch = Watch(u"Watched", false, zor::os::kNotifyChangeLastSet, fresh);
  ASSERT_EQ(key.WriteDword(u"Gain", 2), RegStatus::Ok);
  ASSERT_TRUE(fresh.Wait(kMustNotTimeOutMs));
  EXPECT_FALSE(values.Wait(0));
  EXPECT_FALSE(names.Wait(0));
}

TEST_F(Registry, SubtreeNotificationReachesNewKeysAndClosingSignalsAPendingOne) {
  Create(u"Root");
  Event subtree(EventReset::Auto);
  Event flat(EventReset::Auto);
  RegKey subtreeWatch = Watch(u"Root", true, zor::os::kNotifyChangeLastSet, subtree);
  RegKey flatWatch = Watch(u"Root", false, zor::os::kNotifyChangeLastSet, flat);

  RegKey deep = Create(u"Root\\New\\Deeper");
  ASSERT_EQ(deep.WriteDword(u"Value", 1), RegStatus::Ok);
  ASSERT_TRUE(subtree.Wait(kMustNotTimeOutMs));
  EXPECT_FALSE(flat.Wait(0));
  // Closing a key signals its pending notification.
  flatWatch.Close();
  EXPECT_TRUE(flat.Wait(kMustNotTimeOutMs));
}

TEST_F(Registry, AWriteInAnotherProcessSignalsThisOne) {
  RegKey key = Create(u"Shared");
  Event changed(EventReset::Auto);
  ASSERT_EQ(key.NotifyChange(false, zor::os::kNotifyChangeLastSet, changed), RegStatus::Ok);

  velapo::test::ChildProcess writer;
  ASSERT_TRUE(writer.Start(velapo::test::HelperBesideTest(VELAPO_REGISTRY_HELPER),
                           {"write", area.Root(), area.NarrowPath(u"SHARED"), "Mode", "Movie"}));
  ASSERT_EQ(writer.Wait(kMustNotTimeOutMs * 3), 0);
  ASSERT_TRUE(changed.Wait(kMustNotTimeOutMs));
  const auto stored = ReadStored(key, u"mode");
  ASSERT_EQ(stored.status, RegStatus::Ok);
  EXPECT_EQ(stored.type, RegType::Sz);
  EXPECT_EQ(stored.data, Utf16Bytes(u"Movie"));
}

TEST_F(Registry, SecurityDescriptorTextIsUnderstoodAndNeedsWriteDac) {
  // The descriptor the engine puts on its settings keys.
  constexpr char16_t kDescriptor[] =
      u"D:(D;OICI;GA;;;BG)(D;OICI;GA;;;AN)(A;OICI;GA;;;AU)(A;OICI;GA;;;BA)(A;OICI;GA;;;LS)"
      u"(A;OICI;GA;;;SY)";
  RegKey key = Create(u"Secured", zor::os::kKeyAllAccess);
  const zor::os::RegSecurityResult applied = key.SetSecurity(kDescriptor);
  EXPECT_TRUE(applied.converted);
  EXPECT_EQ(applied.status, RegStatus::Ok);
  EXPECT_EQ(key.WriteDword(u"AfterSecurity", 1), RegStatus::Ok);

  const zor::os::RegSecurityResult nonsense = key.SetSecurity(u"D:(this is no ACE)");
  EXPECT_FALSE(nonsense.converted);
  EXPECT_NE(nonsense.conversionError, 0u);

  RegKey reader;
  ASSERT_EQ(RegKey::Open(area.Path(u"Secured"), zor::os::kKeyRead, reader), RegStatus::Ok);
  const zor::os::RegSecurityResult refused = reader.SetSecurity(kDescriptor);
  EXPECT_TRUE(refused.converted);
  EXPECT_EQ(refused.status, RegStatus::AccessDenied);
}

#if defined(_WIN32)
// What the registry does under Wine 8, where the Windows build's tests run.
// A key opened with KEY_WOW64_64KEY (as the engine opens its settings keys)
// is signalled like any other. What Wine leaves out: a write that leaves a
// value's type and data as they were signals nothing (Windows and the POSIX
// store report it), and a watcher on a key that is deleted is not signalled.
// Pinned here so that a Wine that changes, or a Windows that differs, shows.
TEST_F(Registry, WineSignalsWow64KeysButNotUnchangedWritesOrDeletedKeys) {
  zor::os::DynamicLibrary ntdll;
  ASSERT_TRUE(ntdll.Load("ntdll.dll"));
  const bool underWine = ntdll.FindSymbol("wine_get_version") != nullptr;

  RegKey writer = Create(u"Wow64");
  RegKey other = Create(u"Other");
  ASSERT_EQ(writer.WriteDword(u"Value", 1), RegStatus::Ok);
  RegKey flagged;
  ASSERT_EQ(RegKey::Open(area.Path(u"Wow64"),
                         zor::os::kKeyQueryValue | zor::os::kKeyNotify | zor::os::kKeyWow64_64Key,
                         flagged),
            RegStatus::Ok);

  Event changed(EventReset::Auto);
  ASSERT_EQ(flagged.NotifyChange(false, zor::os::kNotifyChangeLastSet, changed), RegStatus::Ok);
  ASSERT_EQ(writer.WriteDword(u"Value", 2), RegStatus::Ok);
  EXPECT_TRUE(changed.Wait(kMustNotTimeOutMs));

  // The same data again; a change elsewhere afterwards marks the moment by
  // which the first would have been reported.
  Event control(EventReset::Auto);
  ASSERT_EQ(flagged.NotifyChange(false, zor::os::kNotifyChangeLastSet, changed), RegStatus::Ok);
  RegKey controlWatch = Watch(u"Other", false, zor::os::kNotifyChangeLastSet, control);
  ASSERT_EQ(writer.WriteDword(u"Value", 2), RegStatus::Ok);
  ASSERT_EQ(other.WriteDword(u"Value", 1), RegStatus::Ok);
  ASSERT_TRUE(control.Wait(kMustNotTimeOutMs));
  EXPECT_EQ(changed.Wait(underWine ? 0 : kMustNotTimeOutMs), !underWine);

  Event deleted(EventReset::Auto);
  Event removed(EventReset::Auto);
  RegKey leafWatch = Watch(u"Other", false, zor::os::kNotifyChangeLastSet, deleted);
  RegKey parentWatch = Watch({}, false, zor::os::kNotifyChangeName, removed);
  ASSERT_EQ(Create({}).DeleteSubKeyTree(u"Other"), RegStatus::Ok);
  ASSERT_TRUE(removed.Wait(kMustNotTimeOutMs));
  EXPECT_EQ(deleted.Wait(underWine ? 0 : kMustNotTimeOutMs), !underWine);
  leafWatch.Close();
  flagged.Close();
}
#endif
