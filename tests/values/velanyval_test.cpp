// The ten kinds of typed value: payload copies, clones, equality and text.
#include "values/velanyval.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

namespace {

const char kBytes[] = {'\xF7', '\x02', '\x00', '\x41'};
const unsigned char kUnsigned[] = {0x00, 0x0A, 0xFF};

std::string ATextOf(const VELAnyVal& value) {
  std::string text = "untouched";
  EXPECT_TRUE(value.GetAString(text)) << value.GetTypeName();
  return text;
}

std::u16string WTextOf(const VELAnyVal& value) {
  std::u16string text = u"untouched";
  EXPECT_TRUE(value.GetWString(text)) << value.GetTypeName();
  return text;
}

// One value of every kind with its text; floating kinds at their own
// precision (the digits are pinned in the fixed-text tests), arrays in hex.
struct Row {
  std::shared_ptr<VELAnyVal> value;
  const char* text;
};
std::vector<Row> OneOfEachKind() {
  return {{std::make_shared<VELAnyValLong>(std::numeric_limits<int32_t>::min()), "-2147483648"},
          {std::make_shared<VELAnyValInt>(122), "122"},
          {std::make_shared<VELAnyValShort>(std::numeric_limits<int16_t>::min()), "-32768"},
          {std::make_shared<VELAnyValFloat>(1.1f), "1.10000002"},
          {std::make_shared<VELAnyValDouble>(1.05), "1.05000000000000004"},
          {std::make_shared<VELAnyValBool>(uint8_t{7}), "1"},
          {std::make_shared<VELAnyValAString>(std::string("text")), "text"},
          {std::make_shared<VELAnyValWString>(std::u16string(u"w\u00e9de")), nullptr},
          {std::make_shared<VELAnyValBinaryC>(kBytes, 4), "F7020041"},
          {std::make_shared<VELAnyValBinaryUC>(kUnsigned, 3), "000AFF"}};
}

}  // namespace

// Copies need room for the whole payload and write nothing past it; clones
// equal their source; numbers and arrays have their text in both forms.
TEST(VELAnyVal, PayloadCloneAndTextOfEveryKind) {
  for (const Row& row : OneOfEachKind()) {
    const VELAnyVal& value = *row.value;
    SCOPED_TRACE(value.GetTypeName());
    const uint32_t size = value.GetSize();
    std::array<unsigned char, 16> buffer;
    buffer.fill(0xCC);
    EXPECT_EQ(value.GetData(buffer.data(), size - 1), 0u);
    EXPECT_EQ(buffer[0], 0xCC);
    EXPECT_EQ(value.GetData(buffer.data(), size), size);
    EXPECT_EQ(buffer[size], 0xCC);
    const auto clone = value.Clone();
    EXPECT_EQ(typeid(*clone), typeid(value));
    EXPECT_TRUE(clone->IsEqual(&value) && value.IsEqual(clone.get()));
    if (row.text == nullptr) continue;
    EXPECT_EQ(ATextOf(value), row.text);
    EXPECT_EQ(WTextOf(value), std::u16string(row.text, row.text + std::strlen(row.text)));
  }
  unsigned char byte = 0xCC;
  EXPECT_EQ(VELAnyValBinaryC(nullptr, 5).GetData(&byte, 1) + VELAnyVal().GetData(&byte, 1), 0u);
  EXPECT_EQ(byte, 0xCC);
  EXPECT_EQ(ATextOf(VELAnyValBinaryUC(nullptr, 0)), "");
  EXPECT_EQ(ATextOf(VELAnyValDouble(0.05)), "0.5");
  // The base clones to a base, equal to nothing; NaN equals nothing either.
  EXPECT_FALSE(VELAnyVal().Clone()->IsEqual(std::make_unique<VELAnyVal>().get()));
  const VELAnyValDouble nan(std::numeric_limits<double>::quiet_NaN());
  const VELAnyValFloat nanFloat(std::numeric_limits<float>::quiet_NaN());
  EXPECT_FALSE(nan.Clone()->IsEqual(&nan) || nanFloat.Clone()->IsEqual(&nanFloat));
  EXPECT_TRUE(VELAnyValDouble(-0.0).IsEqual(std::make_unique<VELAnyValDouble>(0.0).get()));
  // Non-finite numbers and no value have no text, and leave the output alone.
  std::string narrow = "kept";
  std::u16string wide = u"kept";
  EXPECT_FALSE(VELAnyValDouble(std::numeric_limits<double>::infinity()).GetAString(narrow));
  EXPECT_FALSE(nanFloat.GetWString(wide) || VELAnyVal().GetAString(narrow) || VELAnyVal().GetWString(wide));
  EXPECT_EQ(narrow + std::string(wide.begin(), wide.end()), "keptkept");
}
