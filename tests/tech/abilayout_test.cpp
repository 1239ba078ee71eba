// The tech border byte by byte. The header's static assertions pin every
// offset at build time; these tests pin that the host reads what a module
// writes through the header's structs, and the C compile of the header is
// the minimal module of the guide (testmodule/minimalmodule.c).
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include "config/zorutscontrolinfo.h"
#include "veltech/veltech_abi.h"

TEST(AbiLayout, HostReadsControlRecordsAsTheModuleWroteThem) {
  static const char* const names[] = {"Peak", "Notch", "Low Pass"};
  ZORTechControl records[2]{};
  records[0] = {"PEQ-Band1 Type", 0, 2, 1, 0, 3, 0, names, VELTECH_UNIT_PLAIN, 0};
  records[1] = {"PEQ-Band1 Gain", -2400, 2400, 0, 0, 0, 0, nullptr, VELTECH_UNIT_HUNDREDTHS, 0xA5A5A5A5u};
  ASSERT_EQ(sizeof records[0], ZORUTSControlInfo::kRecordSize);
  ZORUTSControlInfo type;
  type.SetFromDescriptor(&records[0]);
  EXPECT_EQ(type.name, "PEQ-Band1 Type");
  EXPECT_EQ(type.first, 0);
  EXPECT_EQ(type.second, 2);
  EXPECT_EQ(type.enumNames, (ZORUTSNameList{"Peak", "Notch", "Low Pass"}));
  EXPECT_EQ(type.GetScale(), 1.0f);
  // The second record of the array starts 48 bytes on.
  ZORUTSControlInfo gain;
  gain.SetFromDescriptor(reinterpret_cast<const unsigned char*>(records) + ZORUTSControlInfo::kRecordSize);
  EXPECT_EQ(gain.name, "PEQ-Band1 Gain");
  EXPECT_EQ(gain.first, -2400);
  EXPECT_EQ(gain.second, 2400);
  EXPECT_EQ(gain.type, VELTECH_UNIT_HUNDREDTHS);
  EXPECT_EQ(gain.GetScale(), 100.0f);
  EXPECT_TRUE(gain.enumNames.empty());
  gain.SetFromRawDescriptor(&records[1]);
  EXPECT_EQ(gain.scale, 0xA5A5A5A5u);
}

TEST(AbiLayout, NodesHooksAndTheTableSitWhereTheBorderSays) {
  float samples[4] = {};
  ZORChannelNode last{samples, 3, 0, nullptr};
  const ZORChannelNode node{samples + 1, 7, 0, &last};
  unsigned char bytes[24];
  std::memcpy(bytes, &node, sizeof bytes);
  float* readSamples = nullptr;
  std::memcpy(&readSamples, bytes, 8);
  EXPECT_EQ(readSamples, samples + 1);
  uint32_t role = 0;
  std::memcpy(&role, bytes + 8, 4);
  EXPECT_EQ(role, 7u);
  ZORChannelNode* next = nullptr;
  std::memcpy(&next, bytes + 16, 8);
  EXPECT_EQ(next, &last);

  int context = 0;
  const ZORProcessHook hook{nullptr, &context};
  void* readContext = nullptr;
  std::memcpy(&readContext, reinterpret_cast<const unsigned char*>(&hook) + 8, 8);
  EXPECT_EQ(readContext, &context);

  // The table is 19 pointers; a process is a pointer to it.
  EXPECT_EQ(sizeof(ZORTechProcessTable), 19 * sizeof(void*));
  EXPECT_EQ(offsetof(ZORTechProcessTable, GetBlockSize), 4 * sizeof(void*));
  EXPECT_EQ(offsetof(ZORTechProcessTable, Process), 18 * sizeof(void*));
  EXPECT_EQ(sizeof(ZORTechProcess), sizeof(void*));
}
