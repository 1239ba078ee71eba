// The settings store's behaviour as both back ends must show it: the POSIX
// store natively, the real registry in the Windows build under Wine.
#include "platform/registry.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <tuple>
#include <string>
#include <vector>

#include "childprocess.h"
#include "platform/event.h"
#include "platform/text.h"
#include "registrytestarea.h"

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

// Against a model: names in any case keep their first spelling, values their bytes.
struct ModelKey {
  std::u16string spelling;
  std::map<std::u16string, std::tuple<std::u16string, RegType, std::vector<uint8_t>>> values;
};

std::u16string Case(std::u16string text, std::mt19937& random, bool fold = false) {
  for (char16_t& unit : text) {
    if (fold && unit >= u'A' && unit <= u'Z') unit = static_cast<char16_t>(unit + 32);
    if (!fold && unit >= u'a' && unit <= u'z' && random() % 2 == 0) unit = static_cast<char16_t>(unit - 32);
  }
  return text;
}

}  // namespace

TEST_F(Registry, BehavesAsAMapOfKeysAndValuesUnderRandomOperations) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  const std::u16string keyNames[] = {u"audio", u"render", u"fx"};
  const std::u16string valueNames[] = {u"", u"gain", u"mode", u"text \u00e9"};
  const RegType types[] = {RegType::Dword, RegType::Qword, RegType::Binary, RegType::Sz, RegType::MultiSz};
  const auto pick = [&](const auto& names) { return Case(names[random() % std::size(names)], random); };
  std::map<std::u16string, ModelKey> model;  // by folded path below the area
  RegKey base = Create({});
  for (int step = 0; step < 300; ++step) {
    const std::u16string path = pick(keyNames) + (random() % 2 == 0 ? u"\\" + pick(keyNames) : u"");
    const std::u16string folded = Case(path, random, true);
    const size_t cut = path.find(u'\\');
    RegKey key;
    const bool exists = RegKey::Open(area.Path(path), zor::os::kKeyAllAccess, key) == RegStatus::Ok;
    ASSERT_EQ(exists, model.count(folded) == 1) << zor::os::Utf16ToUtf8(path);
    const std::u16string name = pick(valueNames);
    const uint32_t operation = random() % 6;
    if (operation == 0) {  // create, with its parent
      bool created = false;
      ASSERT_EQ(RegKey::Create(area.Path(path), zor::os::kKeyAllAccess, key, &created), RegStatus::Ok);
      EXPECT_EQ(created, !exists);
      if (cut != std::u16string::npos) model.emplace(folded.substr(0, cut), ModelKey{path.substr(0, cut), {}});
      model.emplace(folded, ModelKey{path.substr(cut == std::u16string::npos ? 0 : cut + 1), {}});
    } else if (exists && operation < 4) {
      const RegType type = types[random() % std::size(types)];
      std::vector<uint8_t> data(type == RegType::Dword ? 4 : type == RegType::Qword ? 8 : random() % 9 * 2);
      for (uint8_t& byte : data) byte = static_cast<uint8_t>(random());
      ASSERT_EQ(key.WriteValue(name, type, data), RegStatus::Ok);
      auto& values = model.at(folded).values;
      const std::u16string spelling = values.count(Case(name, random, true)) ? std::get<0>(values[Case(name, random, true)]) : name;
      values[Case(name, random, true)] = {spelling, type, data};
    } else if (exists && operation == 4) {
      const bool held = model.at(folded).values.erase(Case(name, random, true)) == 1;
      EXPECT_EQ(key.DeleteValue(name), held ? RegStatus::Ok : RegStatus::NotFound);
    } else if (operation == 5 && random() % 4 == 0) {  // a handle still open on a deleted tree is told so
      EXPECT_EQ(base.DeleteSubKeyTree(path), exists ? RegStatus::Ok : RegStatus::NotFound);
      std::erase_if(model, [&](const auto& entry) {
        return entry.first == folded || entry.first.starts_with(folded + u"\\");
      });
      uint32_t number = 0;
      EXPECT_TRUE(!exists || key.ReadDword(u"gain", number) == RegStatus::KeyDeleted);
    }
  }
  // Every key read back in another case: its values, and the spellings its listings give.
  for (const auto& [folded, expected] : model) {
    RegKey key;
    ASSERT_EQ(RegKey::Open(area.Path(Case(folded, random)), zor::os::kKeyRead, key), RegStatus::Ok);
    std::set<std::u16string> names;
    for (const auto& [foldedName, value] : expected.values) {
      const auto& [spelling, type, data] = value;
      names.insert(spelling);
      const auto stored = ReadStored(key, Case(foldedName, random));
      EXPECT_EQ(stored.status, RegStatus::Ok);
      EXPECT_EQ(stored.type, type);
      EXPECT_EQ(stored.data, data);
      uint32_t number = 0;
      EXPECT_EQ(key.ReadDword(foldedName, number), type == RegType::Dword ? RegStatus::Ok : RegStatus::InvalidData);
    }
    EXPECT_EQ(velapo::test::ValueNames(key), names);
    std::set<std::u16string> subKeys, expectedSubKeys;
    std::u16string name;
    for (uint32_t index = 0; key.EnumSubKey(index, name) == RegStatus::Ok; ++index) subKeys.insert(name);
    for (const auto& [other, child] : model) {
      if (other.starts_with(folded + u"\\")) expectedSubKeys.insert(child.spelling);
    }
    EXPECT_EQ(subKeys, expectedSubKeys);
  }
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
