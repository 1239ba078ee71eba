// Property sets in the settings store: blob and per-value layouts, loads,
// auto-save, watchers, and a save in another process.
#include "values/zorpropertysetregistry.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "childprocess.h"
#include "platform/event.h"
#include "platform/registry.h"
#include "registrytestarea.h"
#include "support/zorlogcapture.h"
#include "values/zorpropertysetthreadsafe.h"

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

// A round waits this long for its signal before writing again (a missed
// signal fell between a watcher's reload and its next arm).

std::vector<uint8_t> Dword(uint32_t number) {
  return {static_cast<uint8_t>(number), static_cast<uint8_t>(number >> 8),
          static_cast<uint8_t>(number >> 16), static_cast<uint8_t>(number >> 24)};
}

int32_t LongOf(const ZORPropertySet& set, std::u16string_view name) {
  VELAnyValPtr value;
  if (!set.GetProperty(name, value)) return -999;
  const auto* number = dynamic_cast<const VELAnyValLong*>(value.get());
  return number != nullptr ? number->GetValue() : -998;
}

// Counts what a set tells its observers, from any thread.
struct Observer : IZORPropertySetNotify {
  void OnPropertyChanged(ZORPropertySet&, const ZORProperty&) override {
    ++changed;
    changedEvent.Set();
  }
  bool OnPropertyChanging(ZORPropertySet&, ZORProperty&) override { return false; }
  std::atomic<int> changed{0};
  Event changedEvent{EventReset::Auto};
};

struct Notifier : IZORPropertySetRegistrySimpleNotify {
  void OnRegistryChanged(ZORPropertySetRegistry& registry) override {
    from = &registry;
    ++calls;
    called.Set();
  }
  std::atomic<ZORPropertySetRegistry*> from{nullptr};
  std::atomic<int> calls{0};
  Event called{EventReset::Auto};
};

class PropertySetRegistry : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(RegKey::Create(area.Path(u"Settings"), zor::os::kKeyAllAccess, key), RegStatus::Ok);
    ASSERT_TRUE(registry.SetKey(&key));
    registry.SetPropertySet(&set);
  }

  // Writes `source` as the blob `valueName` from a separate object, as another process would.
  void SaveFromOutside(const ZORPropertySet& source, std::u16string_view valueName) {
    std::vector<uint8_t> blob;
    ASSERT_TRUE(source.GetAllPropertiesBinary(blob));
    ASSERT_EQ(key.WriteValue(valueName, RegType::Binary, blob), RegStatus::Ok);
  }

  RegStatus Query(std::u16string_view valueName) {
    RegType type = RegType::None;
    uint32_t size = 0;
    return key.QueryValue(valueName, type, size);
  }

  // "Gain" as a separate reader loads it from the blob `valueName`.
  int32_t SavedGain(std::u16string_view valueName) {
    ZORPropertySetThreadsafe check;
    ZORPropertySetRegistry reader;
    reader.SetKey(&key);
    reader.SetPropertySet(&check);
    EXPECT_TRUE(reader.LoadBinary(valueName, false, false, false));
    return LongOf(check, u"Gain");
  }

  // Saves Gain = 1 as "VelApoGlobal" and starts watching it for `observer`.
  void SaveAndMonitor(Observer& observer) {
    set.SetPropertyLong(u"Gain", 1);
    ASSERT_TRUE(registry.SaveBinary(u"VelApoGlobal"));
    set.AddNotify(&observer);
    ASSERT_TRUE(registry.MonitorBinary(true, u"VelApoGlobal"));
  }

  // Writes rounds of fresh data beside the set's value until `done` says the watcher has seen what it should.

  velapo::test::RegistryTestArea area;
  RegKey key;
  ZORPropertySetThreadsafe set;
  ZORPropertySetRegistry registry;
};

}  // namespace

TEST_F(PropertySetRegistry, SaveBinaryRefusesEmptySetsAndValuesAndFallsBackToTheRememberedName) {
  ZORLogCapture log;
  EXPECT_FALSE(registry.SaveBinary(u"VelApoGlobal"));
  EXPECT_EQ(log.Count("GetAllPropertiesBinary returned 0 length.\n"), 1u);
  set.SetPropertyWString(u"Empty", u"");  // one empty value spoils the whole save
  EXPECT_FALSE(registry.SaveBinary(u"VelApoGlobal"));
  EXPECT_EQ(Query(u"VelApoGlobal"), RegStatus::NotFound);
  // Without a name: the key's default value, then the last name loaded.
  set.ClearAllProperties();
  set.SetPropertyLong(u"Gain", 1);
  ASSERT_TRUE(registry.SaveBinary(nullptr));
  EXPECT_EQ(ReadStored(key, u"").data.size(), 4u + 4 + 4 + 8 + 1 + 4);
  ASSERT_TRUE(registry.SaveBinary(u"Named"));
  ZORPropertySetThreadsafe other;
  other.SetPropertyLong(u"Gain", 2);
  SaveFromOutside(other, u"Loaded");
  ASSERT_TRUE(registry.LoadBinary(u"Loaded", false, false, false));
  set.SetPropertyLong(u"Gain", 3);
  ASSERT_TRUE(registry.SaveBinary(nullptr));
  EXPECT_EQ(SavedGain(u"Loaded"), 3);
  EXPECT_EQ(SavedGain(u"Named"), 1);
}

// The set holds a = 0 and C = 3 before each load; the blob "Blob" holds A = 1, B = 2.
TEST_F(PropertySetRegistry, LoadBinaryRules) {
  ZORPropertySetThreadsafe source;
  source.SetPropertyLong(u"A", 1);
  source.SetPropertyLong(u"B", 2);
  SaveFromOutside(source, u"Blob");
  std::vector<uint8_t> blob;
  ASSERT_TRUE(source.GetAllPropertiesBinary(blob));
  blob.resize(blob.size() - 3);
  ASSERT_EQ(key.WriteValue(u"Cut", RegType::Binary, blob), RegStatus::Ok);
  ASSERT_EQ(key.WriteDword(u"Dword", 7), RegStatus::Ok);
  ASSERT_EQ(key.WriteValue(u"Empty", RegType::Binary, {}), RegStatus::Ok);
  struct Row {
    std::u16string_view value;
    bool merge, overwriteExisting, addNew, ok;
    int32_t a, b, c;  // then; -999: missing
  };
  const Row rows[] = {
      {u"Blob", true, true, false, true, 1, -999, 3},  {u"Blob", true, false, true, true, 0, 2, 3},
      {u"Blob", false, false, false, true, 1, 2, -999},  // replaced, in the blob's spelling
      {u"Cut", false, false, false, false, 1, -999, -999},  // keeps the records before the cut
      {u"Missing", true, true, true, false, 0, -999, 3},   {u"Dword", false, true, true, false, 0, -999, 3},
      {u"Empty", true, true, true, false, 0, -999, 3},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.value.begin(), row.value.end()));
    set.ClearAllProperties();
    set.SetPropertyLong(u"a", 0);
    set.SetPropertyLong(u"C", 3);
    EXPECT_EQ(registry.LoadBinary(row.value, row.merge, row.overwriteExisting, row.addNew), row.ok);
    EXPECT_EQ(LongOf(set, u"A"), row.a);
    EXPECT_EQ(LongOf(set, u"B"), row.b);
    EXPECT_EQ(LongOf(set, u"C"), row.c);
    ZORPropertyList list;
    set.GetAllProperties(list);
    EXPECT_EQ(list.at(0).name, row.a == 1 && row.c == -999 ? u"A" : u"a");
  }
}

// Each kind stored as its own value and read back as Long, WString or BinaryC.
TEST_F(PropertySetRegistry, ValueLayoutStoresEachKindByTheTable) {
  const unsigned char bytes[] = {1, 2};
  set.SetProperty(u"Bool", VELAnyValBool(1));
  set.SetProperty(u"Short", VELAnyValShort(-2));
  set.SetProperty(u"Int", VELAnyValInt(-5));
  set.SetProperty(u"Float", VELAnyValFloat(1.1f));
  set.SetProperty(u"Double", VELAnyValDouble(0.5));
  set.SetPropertyAString(u"Narrow", "abc");
  set.SetPropertyAString(u"EmptyNarrow", "");
  set.SetPropertyWString(u"EmptyWide", u"");
  set.SetProperty(u"EmptyArray", VELAnyValBinaryUC(nullptr, 0));
  set.SetProperty(u"Array", VELAnyValBinaryUC(bytes, 2));
  EXPECT_FALSE(registry.SaveValues());
  EXPECT_EQ(Query(u"EmptyNarrow"), RegStatus::NotFound);
  struct Expected {
    std::u16string_view name;
    RegType type;
    std::vector<uint8_t> data;
  };
  const Expected table[] = {
      {u"Bool", RegType::Dword, Dword(1)},
      {u"Short", RegType::Dword, Dword(0xFFFFFFFEu)},
      {u"Int", RegType::Dword, Dword(0xFFFFFFFBu)},
      {u"Float", RegType::Sz, Utf16Bytes(u"1.10000002")},
      {u"Double", RegType::Sz, Utf16Bytes(u"0.5")},
      {u"Narrow", RegType::Sz, Utf16Bytes(u"abc")},
      {u"EmptyWide", RegType::Dword, Dword(0)},
      {u"EmptyArray", RegType::Dword, Dword(0)},
      {u"Array", RegType::Binary, {1, 2}},
  };
  for (const Expected& expected : table) {
    const auto stored = ReadStored(key, expected.name);
    EXPECT_EQ(stored.type, expected.type) << std::string(expected.name.begin(), expected.name.end());
    EXPECT_EQ(stored.data, expected.data) << std::string(expected.name.begin(), expected.name.end());
  }
  ZORPropertySetThreadsafe loaded;
  registry.SetPropertySet(&loaded);
  ASSERT_TRUE(registry.LoadValues());
  EXPECT_EQ(LongOf(loaded, u"Short"), -2);
  EXPECT_EQ(LongOf(loaded, u"EmptyArray"), 0);
  VELAnyValPtr value;
  ASSERT_TRUE(loaded.GetProperty(u"Float", value));
  ASSERT_EQ(value->GetType(), VEL_ANYVAL_WSTRING);
  EXPECT_EQ(static_cast<const VELAnyValWString&>(*value).GetValue(), u"1.10000002");
  ASSERT_TRUE(loaded.GetProperty(u"Array", value));
  EXPECT_EQ(value->GetType(), VEL_ANYVAL_BINARYC);
  EXPECT_EQ(value->GetSize(), 2u);
}

// What LoadValues makes of values another program wrote: "" = not loaded.
TEST_F(PropertySetRegistry, LoadValuesReadsWhatItCanAndReportsTheRest) {
  std::vector<uint8_t> odd = Utf16Bytes(u"abc");
  odd.push_back('x');
  struct Row {
    std::u16string_view name;
    RegType type;
    std::vector<uint8_t> data;
    std::u16string_view text;
  };
  const Row rows[] = {
      {u"Multi", RegType::MultiSz, Utf16Bytes(u"one\0two"sv, 2), u"one"},
      {u"Expand", RegType::ExpandSz, Utf16Bytes(u"%PATH%"), u"%PATH%"},
      {u"Cut", RegType::Sz, Utf16Bytes(u"ab\0cd"sv), u"ab"},
      {u"Unterminated", RegType::Sz, Utf16Bytes(u"abc", 0), u""},
      {u"Odd", RegType::Sz, odd, u""},
      {u"Qword", RegType::Qword, std::vector<uint8_t>(8, 1), u""},
      {u"ShortDword", RegType::Dword, {1, 2}, u""},
      {u"MultiOneNul", RegType::MultiSz, Utf16Bytes(u"x"), u""},
  };
  for (const Row& row : rows) ASSERT_EQ(key.WriteValue(row.name, row.type, row.data), RegStatus::Ok);
  ASSERT_EQ(key.WriteDword(u"Gain", 0xFFFFFFFFu), RegStatus::Ok);
  set.SetPropertyLong(u"Stale", 1);
  EXPECT_FALSE(registry.LoadValues());
  ZORPropertyList list;
  set.GetAllProperties(list);
  EXPECT_EQ(list.size(), 4u);  // Multi, Expand, Cut, Gain; "Stale" went with the clear
  for (const Row& row : rows) {
    std::u16string text;
    EXPECT_EQ(set.GetPropertyWString(row.name, text), !row.text.empty());
    EXPECT_EQ(text, row.text);
  }
  EXPECT_EQ(LongOf(set, u"Gain"), -1);
  EXPECT_EQ(ZORPropertySetRegistry::ValueFromRegistry(RegType::Sz, {}), nullptr);
  EXPECT_EQ(ZORPropertySetRegistry::ValueFromRegistry(RegType::MultiSz, Utf16Bytes(u"", 1)), nullptr);
  EXPECT_NE(ZORPropertySetRegistry::ValueFromRegistry(RegType::MultiSz, Utf16Bytes(u"", 2)), nullptr);
  EXPECT_EQ(ZORPropertySetRegistry::ValueFromRegistry(RegType::None, {}), nullptr);
}

TEST_F(PropertySetRegistry, AutoSaveFollowsTheSetAndKeepsItsFirstName) {
  set.SetPropertyLong(u"Gain", 1);
  ASSERT_TRUE(registry.SaveBinary(u"VelApoGlobal"));
  registry.SetAutoSave(true, u"Given");
  EXPECT_EQ(registry.AutoSaveName(), u"Given");
  registry.SetAutoSave(true, u"Other");  // no change: the name stays
  EXPECT_EQ(registry.AutoSaveName(), u"Given");

  const auto saved = [&] { return SavedGain(u"VelApoGlobal"); };
  set.SetPropertyLong(u"Gain", 2);  // saved under the remembered name, not "Given"
  EXPECT_EQ(saved(), 2);
  EXPECT_EQ(Query(u"Given"), RegStatus::NotFound);

  // The observer link moves with the set.
  ZORPropertySetThreadsafe next;
  next.SetPropertyLong(u"Gain", 7);
  registry.SetPropertySet(&next);
  set.SetPropertyLong(u"Gain", 3);
  EXPECT_EQ(saved(), 2);
  next.SetPropertyLong(u"Gain", 8);
  EXPECT_EQ(saved(), 8);

  registry.SetAutoSave(false, {});
  EXPECT_TRUE(registry.AutoSaveName().empty());
  next.SetPropertyLong(u"Gain", 9);
  EXPECT_EQ(saved(), 8);
  registry.SetPropertySet(&set);
}

TEST_F(PropertySetRegistry, SetKeyKeepsAPrivateDuplicateAndOpenKeyAsksOnlyToReadAndWatch) {
  RegKey own;
  ASSERT_EQ(key.Duplicate(own), RegStatus::Ok);
  ASSERT_TRUE(registry.SetKey(&own));
  own.Close();
  set.SetPropertyLong(u"Gain", 1);
  EXPECT_TRUE(registry.SaveBinary(u"Value"));

  EXPECT_FALSE(registry.SetKey(nullptr));
  EXPECT_FALSE(registry.GetKey().IsOpen());
  EXPECT_FALSE(registry.SaveBinary(u"Value"));

  ASSERT_TRUE(registry.OpenKey(key));
  EXPECT_EQ(registry.GetKey().Access(), 0x111u);
  EXPECT_TRUE(registry.LoadBinary(u"Value", false, false, false));
  EXPECT_FALSE(registry.SaveBinary(u"Value"));  // no right to write
}

// A helper process saves, this one watches: its observers hear only names it knew,
// and the helper's auto-save echo ends quietly.
TEST_F(PropertySetRegistry, ASaveInAnotherProcessReachesThisProcesssObservers) {
  Observer observer;
  SaveAndMonitor(observer);

  velapo::test::ChildProcess processA;
  ASSERT_TRUE(processA.Start(velapo::test::HelperBesideTest(VELAPO_PROPERTYSETREGISTRY_HELPER),
                             {area.Root(), area.NarrowPath(u"Settings"), "VelApoGlobal"}));
  while (LongOf(set, u"Gain") != 5) {
    ASSERT_TRUE(observer.changedEvent.Wait(kMustNotTimeOutMs * 3));
  }
  ASSERT_EQ(key.WriteDword(u"Ack", 1), RegStatus::Ok);
  EXPECT_EQ(processA.Wait(kMustNotTimeOutMs * 6), 0);

  // Stopping joins the watcher: a later save reaches nothing here.
  ASSERT_TRUE(registry.MonitorBinary(false, {}));
  ZORPropertySetThreadsafe other;
  other.SetPropertyLong(u"Gain", 6);
  SaveFromOutside(other, u"VelApoGlobal");
  set.RemoveNotify(&observer);
  EXPECT_EQ(observer.changed, 1);
  EXPECT_EQ(LongOf(set, u"Gain"), 5);
  EXPECT_EQ(LongOf(set, u"Extra"), -999);
}
