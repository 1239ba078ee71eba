// The tech border byte by byte: the records as the header lays them out, as
// a C compiler lays them out, and as the host reads them.
#include <gtest/gtest.h>

#include <bit>
#include <cstddef>
#include <cstring>

#include "config/zorutscontrolinfo.h"
#include "veltech/veltech_abi.h"

extern "C" size_t VelAbiLayoutSeenFromC(int index);

namespace {

template <typename T>
T ReadAt(const void* record, size_t offset) {
  T value;
  std::memcpy(&value, static_cast<const unsigned char*>(record) + offset, sizeof(T));
  return value;
}

}  // namespace

TEST(AbiLayout, RecordsSitAtTheirDocumentedOffsets) {
  static const char* const names[] = {"Off", "On"};
  ZORTechControl control{};
  control.name = "Kind-Name";
  control.first = -7;
  control.second = 9;
  control.defaultValue = 3;
  control.enumCount = 2;
  control.enumNames = names;
  control.unit = VELTECH_UNIT_HUNDREDTHS;
  control.scaleWord = 0xA5A5A5A5u;
  EXPECT_EQ(sizeof control, 48u);
  EXPECT_EQ(ReadAt<const char*>(&control, 0), control.name);
  EXPECT_EQ(ReadAt<int32_t>(&control, 8), -7);
  EXPECT_EQ(ReadAt<int32_t>(&control, 12), 9);
  EXPECT_EQ(ReadAt<int32_t>(&control, 16), 3);
  EXPECT_EQ(ReadAt<uint32_t>(&control, 24), 2u);
  EXPECT_EQ(ReadAt<const char* const*>(&control, 32), names);
  EXPECT_EQ(ReadAt<int32_t>(&control, 40), 2);
  EXPECT_EQ(ReadAt<uint32_t>(&control, 44), 0xA5A5A5A5u);

  float samples[4] = {};
  ZORChannelNode last{samples, 3, 0, nullptr};
  ZORChannelNode node{samples, 7, 0, &last};
  EXPECT_EQ(sizeof node, 24u);
  EXPECT_EQ(ReadAt<float*>(&node, 0), samples);
  EXPECT_EQ(ReadAt<uint32_t>(&node, 8), 7u);
  EXPECT_EQ(ReadAt<ZORChannelNode*>(&node, 16), &last);

  int context = 0;
  ZORProcessHook hook{nullptr, &context};
  EXPECT_EQ(sizeof hook, 16u);
  EXPECT_EQ(ReadAt<void*>(&hook, 8), &context);

  // 19 slots of one pointer each, the object first of all a table pointer.
  EXPECT_EQ(sizeof(ZORTechProcessTable), 19 * sizeof(void*));
  EXPECT_EQ(offsetof(ZORTechProcessTable, GetBlockSize), 4 * sizeof(void*));
  EXPECT_EQ(offsetof(ZORTechProcessTable, GetControls), 7 * sizeof(void*));
  EXPECT_EQ(offsetof(ZORTechProcessTable, PassThroughFirst), 12 * sizeof(void*));
  EXPECT_EQ(offsetof(ZORTechProcessTable, CopyState), 16 * sizeof(void*));
  EXPECT_EQ(offsetof(ZORTechProcessTable, Process), 18 * sizeof(void*));
  EXPECT_EQ(sizeof(ZORTechProcess), sizeof(void*));
}

TEST(AbiLayout, CAndCppCompilersAgree) {
  const size_t fromCpp[] = {
      sizeof(ZORTechControl),
      offsetof(ZORTechControl, enumCount),
      offsetof(ZORTechControl, enumNames),
      offsetof(ZORTechControl, unit),
      sizeof(ZORChannelNode),
      offsetof(ZORChannelNode, role),
      offsetof(ZORChannelNode, next),
      sizeof(ZORProcessHook),
      sizeof(ZORTechProcessTable),
      offsetof(ZORTechProcessTable, GetBlockSize),
      offsetof(ZORTechProcessTable, CopyState),
      offsetof(ZORTechProcessTable, Process),
  };
  for (int i = 0; i < static_cast<int>(std::size(fromCpp)); ++i) {
    EXPECT_EQ(VelAbiLayoutSeenFromC(i), fromCpp[i]) << "entry " << i;
  }
  EXPECT_EQ(VelAbiLayoutSeenFromC(static_cast<int>(std::size(fromCpp))), 0u);
}

TEST(AbiLayout, HostReadsAModuleRecordAsTheModuleWroteIt) {
  static const char* const names[] = {"Peak", "Notch", "Low Pass"};
  ZORTechControl records[2]{};
  records[0] = {"PEQ-Band1 Type", 0, 2, 0, 0, 3, 0, names, VELTECH_UNIT_PLAIN, 0};
  records[1] = {"PEQ-Band1 Gain", -2400, 2400, 0, 0, 0, 0, nullptr, VELTECH_UNIT_HUNDREDTHS,
                std::bit_cast<uint32_t>(100.0f)};
  ZORUTSControlInfo type;
  type.SetFromDescriptor(&records[0]);
  EXPECT_EQ(type.name, "PEQ-Band1 Type");
  EXPECT_EQ(type.first, 0);
  EXPECT_EQ(type.second, 2);
  EXPECT_EQ(type.enumNames, (ZORUTSNameList{"Peak", "Notch", "Low Pass"}));
  EXPECT_EQ(type.GetScale(), 1.0f);
  // The second record of an array starts 48 bytes on.
  ZORUTSControlInfo gain;
  gain.SetFromDescriptor(reinterpret_cast<const unsigned char*>(records) + ZORUTSControlInfo::kRecordSize);
  EXPECT_EQ(gain.name, "PEQ-Band1 Gain");
  EXPECT_EQ(gain.first, -2400);
  EXPECT_EQ(gain.type, VELTECH_UNIT_HUNDREDTHS);
  EXPECT_EQ(gain.GetScale(), 100.0f);
  EXPECT_TRUE(gain.enumNames.empty());
  gain.SetFromRawDescriptor(&records[1]);
  EXPECT_EQ(gain.GetScale(), 100.0f);
}
