// The tech border: the header's static assertions pin every offset at build
// time; this pins that the host reads the records a module writes through the
// header's structs, the second of an array included.
#include <gtest/gtest.h>

#include "config/zorutscontrolinfo.h"
#include "veltech/veltech_abi.h"

TEST(AbiLayout, HostReadsControlRecordsAsTheModuleWroteThem) {
  static const char* const names[] = {"Peak", "Notch", "Low Pass"};
  const ZORTechControl records[2] = {
      {"PEQ-Band1 Type", 0, 2, 1, 0, 3, 0, names, VELTECH_UNIT_PLAIN, 0},
      {"PEQ-Band1 Gain", -2400, 2400, 0, 0, 0, 0, nullptr, VELTECH_UNIT_HUNDREDTHS, 0xA5A5A5A5u}};
  ASSERT_EQ(sizeof records[0], ZORUTSControlInfo::kRecordSize);
  ZORUTSControlInfo type, gain;
  type.SetFromDescriptor(&records[0]);
  EXPECT_EQ(type.name, "PEQ-Band1 Type");
  EXPECT_EQ(type.enumNames, (ZORUTSNameList{"Peak", "Notch", "Low Pass"}));
  gain.SetFromDescriptor(reinterpret_cast<const unsigned char*>(records) + ZORUTSControlInfo::kRecordSize);
  EXPECT_EQ(gain.name, "PEQ-Band1 Gain");
  EXPECT_EQ(gain.first, -2400);
  EXPECT_EQ(gain.second, 2400);
  EXPECT_EQ(gain.GetScale(), 100.0f);
  gain.SetFromRawDescriptor(&records[1]);
  EXPECT_EQ(gain.scale, 0xA5A5A5A5u);
}
