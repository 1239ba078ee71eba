// BypassCount as each process reads it once: a fresh child process per row.
#include "apo/zorapoinstancelimit.h"

#include <gtest/gtest.h>

#include "childprocess.h"
#include "registrytestarea.h"

namespace {

using namespace velapo::test;
using zor::os::RegType;

TEST(InstanceLimitTest, OnlyADwordLowersTheLimitOfAFreshProcess) {
  RegistryTestArea area;
  zor::os::RegKey key;
  ASSERT_EQ(zor::os::RegKey::Create(u"Software\\VEL\\VELX", zor::os::kKeyAllAccess, key), zor::os::RegStatus::Ok);
  const struct {
    RegType type;
    std::vector<uint8_t> data;
    int expected;
  } rows[] = {
      {RegType::None, {}, 19},          {RegType::Dword, {0, 0, 0, 0}, 0},     {RegType::Dword, {5, 0, 0, 0}, 5},
      {RegType::Dword, {100, 0, 0, 0}, 19}, {RegType::Sz, Utf16Bytes(u"5"), 19}, {RegType::Qword, {5, 0, 0, 0, 0, 0, 0, 0}, 19},
  };
  for (const auto& row : rows) {
    key.DeleteValue(u"BypassCount");
    EXPECT_TRUE(row.type == RegType::None || key.WriteValue(u"BypassCount", row.type, row.data) == zor::os::RegStatus::Ok);
    ChildProcess child;
    ASSERT_TRUE(child.Start(HelperBesideTest("velapo_apo_instancelimit_helper"), {area.Root()}));
    EXPECT_EQ(child.Wait(kMustNotTimeOutMs), row.expected) << static_cast<int>(row.type) << " " << row.expected;
  }
  key.DeleteValue(u"BypassCount");
}

}  // namespace
