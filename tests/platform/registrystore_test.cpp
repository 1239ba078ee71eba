// The POSIX store's own promises: format, safe names, damage, crashes, races.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "childprocess.h"
#include "platform/event.h"
#include "platform/posix/registrystore.h"
#include "platform/registry.h"
#include "platform/text.h"
#include "registrypattern.h"
#include "registrytestarea.h"

using zor::os::Event;
using zor::os::EventReset;
using zor::os::RegKey;
using zor::os::RegStatus;
using zor::os::RegType;
namespace store = zor::os::regstore;
namespace fs = std::filesystem;

namespace {

using velapo::test::kMustNotTimeOutMs;
using velapo::test::ReadStored;
using velapo::test::ValueNames;

class RegistryStore : public ::testing::Test {
 protected:
  RegKey Create(std::u16string_view relative) {
    RegKey key;
    EXPECT_EQ(RegKey::Create(area.Path(relative), zor::os::kKeyAllAccess, key), RegStatus::Ok);
    return key;
  }
  // The directory the store keeps HKLM\<area>\relative in.
  fs::path DirOf(std::u16string_view relative) const {
    fs::path dir = area.Root();
    std::u16string path = area.Path(relative);
    for (size_t start = 0; start <= path.size();) {
      const size_t end = std::min(path.find(u'\\', start), path.size());
      dir /= store::EscapeName(store::FoldName(std::u16string_view(path).substr(start, end - start)));
      start = end + 1;
    }
    return dir;
  }

  velapo::test::RegistryTestArea area;
};

std::vector<uint8_t> FileBytes(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

void PutFileBytes(const fs::path& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

TEST(RegistryStoreFormat, RecordIsPinnedByteForByteAndEveryDamageIsRefused) {
  // "Ab" = REG_DWORD 7; the checksum is zlib's crc32 of the 28 bytes before it.
  const std::vector<uint8_t> expected = {
      'V', 'R', 'E', 'G', 1, 0, 0, 0, 4, 0, 0, 0, 4, 0,    0,    0,    4,   0,
      0,   0,   'A', 0,   'b', 0, 7, 0, 0, 0, 0xd3, 0x44, 0x2e, 0x8b};
  const uint8_t seven[] = {7, 0, 0, 0};
  const std::vector<uint8_t> record = store::EncodeRecord(4, u"Ab", seven);
  ASSERT_EQ(record, expected);

  store::Record decoded;
  ASSERT_EQ(store::DecodeRecord(record, decoded), RegStatus::Ok);
  EXPECT_EQ(decoded.type, 4u);
  EXPECT_EQ(decoded.name, u"Ab");
  EXPECT_EQ(decoded.data, std::vector<uint8_t>(seven, seven + 4));

  for (size_t length = 0; length < record.size(); ++length) {
    EXPECT_EQ(store::DecodeRecord(std::span(record).first(length), decoded), RegStatus::InvalidData)
        << "cut to " << length;
  }
  for (size_t at = 0; at < record.size(); ++at) {
    std::vector<uint8_t> damaged = record;
    damaged[at] ^= 0x10;
    EXPECT_EQ(store::DecodeRecord(damaged, decoded), RegStatus::InvalidData) << "byte " << at;
  }
  std::vector<uint8_t> longer = record;
  longer.push_back(0);
  EXPECT_EQ(store::DecodeRecord(longer, decoded), RegStatus::InvalidData);

  std::u16string name;
  EXPECT_EQ(store::DecodeRecordName(std::span(record).first(24), record.size(), name), RegStatus::Ok);
  EXPECT_EQ(name, u"Ab");
  EXPECT_EQ(store::DecodeRecordName(std::span(record).first(22), record.size(), name),
            RegStatus::InvalidData);
  EXPECT_EQ(store::DecodeRecordName(record, record.size() + 1, name), RegStatus::InvalidData);
}

TEST(RegistryStoreFormat, DescriptorsMapOntoPermissionBits) {
  struct Case {
    std::u16string_view text;
    uint32_t mode;
  };
  const Case cases[] = {
      {u"D:(D;OICI;GA;;;BG)(D;OICI;GA;;;AN)(A;OICI;GA;;;AU)(A;OICI;GA;;;BA)(A;OICI;GA;;;LS)"
       u"(A;OICI;GA;;;SY)",
       02770},
      {u"D:(A;;GR;;;WD)", 02755},
      {u"D:(A;;KR;;;BU)(A;;KA;;;BA)", 02750},
      {u"D:(A;;GA;;;AU)(D;;GW;;;AU)", 02750},
      {u"D:(A;;GA;;;BA)(A;;GA;;;SY)", 0700},
      {u"D:", 0700},
      {u"D:NO_ACCESS_CONTROL", 0777},
      {u"O:BAG:SYD:P(A;;GA;;;WD)S:(AU;SA;GA;;;WD)", 02777},
  };
  for (const Case& c : cases) {
    uint32_t mode = 0;
    ASSERT_TRUE(store::DescriptorToMode(c.text, mode)) << zor::os::Utf16ToUtf8(c.text);
    EXPECT_EQ(mode, c.mode) << zor::os::Utf16ToUtf8(c.text);
  }
  for (const std::u16string_view bad :
       {u"", u"(A;;GA;;;AU)", u"D:(A;;GA;;AU)", u"D:(X;;GA;;;AU)", u"D:(A;;ZZ;;;AU)",
        u"D:(A;;GA;;;AU", u"D:(A;;GA;;;AU)x", u"D:(A;;0x;;;AU)", u"D:(A;;GA;;;AU;x)"}) {
    uint32_t mode = 0;
    EXPECT_FALSE(store::DescriptorToMode(bad, mode)) << zor::os::Utf16ToUtf8(bad);
  }
}

TEST_F(RegistryStore, AnyNameStaysInsideItsKey) {
  RegKey key = Create(u"Odd");
  const std::vector<std::u16string> names = {
      u"..", u"../../escape", u"/etc/passwd", u"@", u".tmp.x", u".name", u"%", std::u16string(1, u'\xDC00'),
      std::u16string(400, u'\u00e9') + u"A", std::u16string(400, u'\u00e9') + u"B"};
  for (size_t i = 0; i < names.size(); ++i) {
    ASSERT_EQ(key.WriteDword(names[i], static_cast<uint32_t>(i)), RegStatus::Ok);
    RegKey sub;
    if (names[i].size() <= zor::os::kMaxKeyNameUnits) {
      ASSERT_EQ(key.CreateSubKey(names[i], zor::os::kKeyAllAccess, sub), RegStatus::Ok);
    }
  }
  for (size_t i = 0; i < names.size(); ++i) {
    uint32_t number = 99;
    ASSERT_EQ(key.ReadDword(names[i], number), RegStatus::Ok);
    EXPECT_EQ(number, i);
  }
  EXPECT_EQ(ValueNames(key), std::set<std::u16string>(names.begin(), names.end()));
  std::u16string name;
  size_t keys = 0;
  for (uint32_t index = 0; key.EnumSubKey(index, name) == RegStatus::Ok; ++index) ++keys;
  EXPECT_EQ(keys, names.size() - 2);
  // Every file stays inside the area's root.
  size_t outside = 0;
  for (const fs::directory_entry& entry : fs::directory_iterator(fs::path(area.Root()).parent_path())) {
    outside += entry.path().filename() == "escape" || entry.path().filename() == "passwd";
  }
  EXPECT_EQ(outside, 0u);
}

TEST_F(RegistryStore, BadPathsNamesAndSizesAreRefused) {
  RegKey key;
  for (const std::u16string_view bad : {u"A\\\\B", u"\\A"}) {
    EXPECT_EQ(RegKey::Create(area.Path(bad), zor::os::kKeyAllAccess, key), RegStatus::InvalidParameter);
  }
  EXPECT_EQ(RegKey::Create(area.Path(std::u16string(256, u'k')), zor::os::kKeyAllAccess, key),
            RegStatus::InvalidParameter);
  ASSERT_EQ(RegKey::Create(area.Path(std::u16string(255, u'k') + u"\\"), zor::os::kKeyAllAccess, key),
            RegStatus::Ok);
  EXPECT_EQ(key.WriteDword(std::u16string(zor::os::kMaxValueNameUnits + 1, u'v'), 1),
            RegStatus::InvalidParameter);
  EXPECT_EQ(key.WriteDword(std::u16string(zor::os::kMaxValueNameUnits, u'v'), 1), RegStatus::Ok);
  const std::vector<uint8_t> huge(zor::os::kMaxValueBytes + 1);
  EXPECT_EQ(key.WriteValue(u"Huge", RegType::Binary, huge), RegStatus::InvalidParameter);
  Event event(EventReset::Auto);
  EXPECT_EQ(key.NotifyChange(false, 0, event), RegStatus::InvalidParameter);
  EXPECT_EQ(key.NotifyChange(false, 0x100, event), RegStatus::InvalidParameter);
}

// Each damage to a value file is reported as bad data, a damaged file stays
// listed so a reader meets it, and the value can be written again.
TEST_F(RegistryStore, DamagedValueFilesFailCleanlyAndCanBeWrittenAgain) {
  RegKey key = Create(u"Damaged");
  const std::vector<uint8_t> data(1000, 0x5A);
  const fs::path file = DirOf(u"Damaged") / "@blob";
  using Damage = void (*)(const fs::path&);
  struct Row {
    const char* what;
    Damage damage;
    bool listed;  // a damaged file still names its value; a directory does not
  };
  const Row damages[] = {
      {"cut in half",
       [](const fs::path& f) {
         std::vector<uint8_t> bytes = FileBytes(f);
         PutFileBytes(f, std::vector<uint8_t>(bytes.begin(), bytes.begin() + bytes.size() / 2));
       },
       true},
      {"emptied", [](const fs::path& f) { PutFileBytes(f, {}); }, true},
      {"a directory", [](const fs::path& f) { fs::remove(f); fs::create_directory(f); }, false},
  };
  for (const auto& [what, damage, listed] : damages) {
    ASSERT_EQ(key.WriteValue(u"Blob", RegType::Binary, data), RegStatus::Ok) << what;
    damage(file);
    RegType type = RegType::None;
    uint32_t size = 0;
    EXPECT_EQ(ReadStored(key, u"Blob").status, RegStatus::InvalidData) << what;
    EXPECT_EQ(key.QueryValue(u"Blob", type, size), RegStatus::InvalidData) << what;
    EXPECT_EQ(ValueNames(key).size(), listed ? 1u : 0u) << what;
    fs::remove(file);
  }
  ASSERT_EQ(key.WriteValue(u"Blob", RegType::Binary, data), RegStatus::Ok);
  EXPECT_EQ(ReadStored(key, u"BLOB").data, data);
}

TEST_F(RegistryStore, DeletingAKeySignalsItsWatchersAndRewritingSignalsToo) {
  RegKey key = Create(u"Doomed\\Leaf");
  ASSERT_EQ(key.WriteDword(u"Value", 1), RegStatus::Ok);
  Event changed(EventReset::Auto);
  RegKey watch;
  ASSERT_EQ(key.Duplicate(watch), RegStatus::Ok);
  ASSERT_EQ(watch.NotifyChange(false, zor::os::kNotifyChangeLastSet, changed), RegStatus::Ok);
  ASSERT_EQ(key.WriteDword(u"Value", 1), RegStatus::Ok);  // the same data is still a write
  ASSERT_TRUE(changed.Wait(kMustNotTimeOutMs));

  ASSERT_EQ(watch.NotifyChange(true, zor::os::kNotifyChangeLastSet, changed), RegStatus::Ok);
  ASSERT_EQ(Create({}).DeleteSubKeyTree(u"Doomed"), RegStatus::Ok);
  EXPECT_TRUE(changed.Wait(kMustNotTimeOutMs));
  EXPECT_EQ(watch.NotifyChange(false, zor::os::kNotifyChangeLastSet, changed), RegStatus::KeyDeleted);
}

// A writer's close after its rename must not look like a new change to a re-armed watcher.
TEST_F(RegistryStore, AWritersLateCloseOfItsValueFileSignalsNothing) {
  Event watched(EventReset::Auto);
  Event control(EventReset::Auto);
  RegKey writer = Create(u"Rearm");
  RegKey other = Create(u"Control");
  ASSERT_EQ(writer.WriteDword(u"Value", 1), RegStatus::Ok);
  RegKey watch = Create(u"Rearm");
  RegKey controlWatch = Create(u"Control");
  ASSERT_EQ(watch.NotifyChange(false, zor::os::kNotifyChangeLastSet, watched), RegStatus::Ok);
  ASSERT_EQ(controlWatch.NotifyChange(false, zor::os::kNotifyChangeLastSet, control), RegStatus::Ok);

  const int late = ::open((DirOf(u"Rearm") / "@value").c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_GE(late, 0);
  ::close(late);
  // A change elsewhere marks the moment by which the close has been handled.
  ASSERT_EQ(other.WriteDword(u"Value", 1), RegStatus::Ok);
  ASSERT_TRUE(control.Wait(kMustNotTimeOutMs));
  EXPECT_FALSE(watched.Wait(0));
  ASSERT_EQ(writer.WriteDword(u"Value", 2), RegStatus::Ok);
  EXPECT_TRUE(watched.Wait(kMustNotTimeOutMs));
}

TEST_F(RegistryStore, SecuritySetsThePermissionBitsOfTheKeyAndWhatComesBelow) {
  RegKey key = Create(u"Perm");
  ASSERT_EQ(key.WriteDword(u"Before", 1), RegStatus::Ok);
  ASSERT_EQ(key.SetSecurity(u"D:(A;OICI;GA;;;AU)").status, RegStatus::Ok);
  const fs::path dir = DirOf(u"Perm");
  const auto modeOf = [](const fs::path& path) {
    struct stat info {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
    return info.st_mode & 07777;
  };
  EXPECT_EQ(modeOf(dir), 02770u);
  EXPECT_EQ(modeOf(dir / "@before"), 0660u);
  ASSERT_EQ(key.WriteDword(u"After", 1), RegStatus::Ok);
  EXPECT_EQ(modeOf(dir / "@after"), 0660u);
  RegKey sub = Create(u"Perm\\Sub");
  EXPECT_EQ(modeOf(dir / "sub"), 02770u);
  EXPECT_EQ(modeOf(dir / "sub" / ".name"), 0660u);

  ASSERT_EQ(key.SetSecurity(u"D:(A;;GA;;;SY)").status, RegStatus::Ok);
  EXPECT_EQ(modeOf(dir), 0700u);
  EXPECT_EQ(modeOf(dir / "@after"), 0600u);
}

// A writer killed with SIGKILL at random moments, many times over, never
// leaves a value that fails to read or mixes two writes.
TEST_F(RegistryStore, KilledWritersNeverLeaveATornValue) {
  Event written(EventReset::Auto);
  RegKey key = Create(u"Crash");
  std::mt19937 random(20240607);
  constexpr int kKills = 40;
  for (int kill = 0; kill < kKills; ++kill) {
    ASSERT_EQ(key.NotifyChange(false, zor::os::kNotifyChangeLastSet, written), RegStatus::Ok);
    velapo::test::ChildProcess writer;
    ASSERT_TRUE(writer.Start(velapo::test::HelperBesideTest(VELAPO_REGISTRY_HELPER),
                             {"churn", area.Root(), area.NarrowPath(u"Crash"),
                              std::to_string(kill % 4), "0"}));
    ASSERT_TRUE(written.Wait(kMustNotTimeOutMs));
    // Not a wait for anything: a random moment within the next writes, so the kills land in every phase of a write.
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 12000));
    writer.Kill();
    ASSERT_EQ(writer.Wait(kMustNotTimeOutMs), 128 + SIGKILL) << "the writer ended by itself";

    std::u16string name;
    for (uint32_t index = 0;; ++index) {
      const RegStatus listed = key.EnumValue(index, name);
      if (listed == RegStatus::NoMoreItems) break;
      ASSERT_EQ(listed, RegStatus::Ok);
      const auto stored = ReadStored(key, name);
      ASSERT_EQ(stored.status, RegStatus::Ok) << "kill " << kill;
      ASSERT_EQ(stored.type, RegType::Binary);
      ASSERT_TRUE(velapo::test::CheckPattern(stored.data).has_value()) << "torn value after kill " << kill;
    }
  }
  // What the killed writers left behind goes with the next open for writing.
  RegKey reopened;
  ASSERT_EQ(RegKey::Create(area.Path(u"Crash"), zor::os::kKeyAllAccess, reopened), RegStatus::Ok);
  for (const fs::directory_entry& entry : fs::directory_iterator(DirOf(u"Crash"))) {
    EXPECT_FALSE(entry.path().filename().string().starts_with(store::kTempPrefix)) << entry.path();
  }
}

// Processes creating one key in different spellings leave one key of written values.
TEST_F(RegistryStore, ConcurrentWritersLeaveOnlyValuesThatWereWritten) {
  constexpr uint32_t kWriters = 3;
  constexpr uint32_t kWrites = 15;
  const char16_t* spellings[kWriters] = {u"Race\\Deep\\Key", u"RACE\\deep\\KEY", u"race\\DEEP\\key"};
  std::vector<std::unique_ptr<velapo::test::ChildProcess>> writers;
  for (uint32_t writer = 0; writer < kWriters; ++writer) {
    writers.push_back(std::make_unique<velapo::test::ChildProcess>());
    ASSERT_TRUE(writers.back()->Start(
        velapo::test::HelperBesideTest(VELAPO_REGISTRY_HELPER),
        {"churn", area.Root(), area.NarrowPath(spellings[writer]), std::to_string(writer),
         std::to_string(kWrites)}));
  }
  for (auto& writer : writers) ASSERT_EQ(writer->Wait(kMustNotTimeOutMs * 6), 0);

  RegKey parent;
  ASSERT_EQ(RegKey::Open(area.Path(u"Race\\Deep"), zor::os::kKeyRead, parent), RegStatus::Ok);
  std::u16string name;
  ASSERT_EQ(parent.EnumSubKey(0, name), RegStatus::Ok);
  EXPECT_TRUE(name == u"Key" || name == u"KEY" || name == u"key");
  EXPECT_EQ(parent.EnumSubKey(1, name), RegStatus::NoMoreItems);

  RegKey key;
  ASSERT_EQ(RegKey::Open(area.Path(u"Race\\Deep\\Key"), zor::os::kKeyRead, key), RegStatus::Ok);
  for (uint32_t writer = 0; writer < kWriters; ++writer) {
    const auto stamp = velapo::test::CheckPattern(
        ReadStored(key, u"Own" + zor::os::NarrowToWide(std::to_string(writer))).data);
    ASSERT_TRUE(stamp.has_value());
    EXPECT_EQ(stamp->writer, writer);
    EXPECT_EQ(stamp->counter, kWrites - 1);  // its own last write
  }
  const auto shared = velapo::test::CheckPattern(ReadStored(key, u"Shared").data);
  ASSERT_TRUE(shared.has_value());
  EXPECT_LT(shared->writer, kWriters);
  EXPECT_EQ(shared->counter, kWrites - 1);  // someone's last write
}
