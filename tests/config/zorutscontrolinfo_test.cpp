// Control descriptors read from the tech module's 48-byte records.
#include "config/zorutscontrolinfo.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstring>

namespace {

// A record laid out by hand at its documented offsets, filled with a marker where the host must not read.
std::array<unsigned char, 48> MakeRecord(const char* name, int32_t first, int32_t second,
                                         uint32_t enumCount, const char* const* enumNames,
                                         int32_t type, uint32_t lastWord) {
  std::array<unsigned char, 48> record;
  record.fill(0xA5);
  auto put = [&record](size_t offset, const auto& field) {
    std::memcpy(record.data() + offset, &field, sizeof(field));
  };
  put(0, name);
  put(8, first);
  put(12, second);
  put(24, enumCount);
  put(32, enumNames);
  put(40, type);
  put(44, lastWord);
  return record;
}

TEST(ZORUTSControlInfo, ReadsEveryFieldAtItsOffset) {
  const char* const names[] = {"Off", "Low", nullptr};
  const auto record = MakeRecord("Corvo-BEQ Enable", -5, 9, 3, names, 2, 0xDEADBEEF);
  ZORUTSControlInfo info;
  info.SetFromDescriptor(record.data());
  EXPECT_EQ(info.name, "Corvo-BEQ Enable");
  EXPECT_EQ(info.first, -5);
  EXPECT_EQ(info.second, 9);
  EXPECT_EQ(info.type, 2);
  EXPECT_EQ(info.enumNames, (ZORUTSNameList{"Off", "Low", ""}));
  EXPECT_EQ(info.GetScale(), 100.0f);

  info.SetFromRawDescriptor(record.data());
  EXPECT_EQ(info.scale, 0xDEADBEEFu);
}

TEST(ZORUTSNameList, ContainsAndRemoveFirst) {
  ZORUTSNameList names{"a", "b", "a", "c"};
  EXPECT_TRUE(names.Contains("a"));
  EXPECT_FALSE(names.Contains("A"));
  names.Remove("a");
  EXPECT_EQ(names, (ZORUTSNameList{"b", "a", "c"}));
  names.Remove("missing");
  EXPECT_EQ(names.size(), 3u);
}

}  // namespace
