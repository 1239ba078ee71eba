// The ten kinds of typed value: sizes, raw bytes, clones, text and equality.
#include "values/velanyval.h"


#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <cmath>
#include <limits>
#include <memory>
#include <vector>

namespace {

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

const char kBytes[] = {'\xF7', '\x02', '\x00', '\x41'};

// One non-empty value of every kind, and the "no value" base.
std::vector<std::unique_ptr<VELAnyVal>> OneOfEachKind() {
  std::vector<std::unique_ptr<VELAnyVal>> values;
  values.push_back(std::make_unique<VELAnyValLong>(-123456));
  values.push_back(std::make_unique<VELAnyValInt>(122));
  values.push_back(std::make_unique<VELAnyValShort>(static_cast<int16_t>(-1)));
  values.push_back(std::make_unique<VELAnyValFloat>(1.1f));
  values.push_back(std::make_unique<VELAnyValDouble>(2.0 / 15.0));
  values.push_back(std::make_unique<VELAnyValBool>(uint8_t{2}));
  values.push_back(std::make_unique<VELAnyValAString>(std::string("text")));
  values.push_back(std::make_unique<VELAnyValWString>(std::u16string(u"w\u00e9de")));
  values.push_back(std::make_unique<VELAnyValBinaryC>(kBytes, 4));
  values.push_back(
      std::make_unique<VELAnyValBinaryUC>(reinterpret_cast<const unsigned char*>(kBytes), 4));
  values.push_back(std::make_unique<VELAnyVal>());
  return values;
}

TEST(VELAnyVal, GetDataNeedsRoomForTheWholePayload) {
  for (const auto& value : OneOfEachKind()) {
    SCOPED_TRACE(value->GetTypeName());
    const uint32_t size = value->GetSize();
    std::array<unsigned char, 16> buffer;
    buffer.fill(0xCC);
    if (size > 0) {
      EXPECT_EQ(value->GetData(buffer.data(), size - 1), 0u);
      for (unsigned char byte : buffer) EXPECT_EQ(byte, 0xCC);  // nothing written
    }
    EXPECT_EQ(value->GetData(buffer.data(), size), size);
    EXPECT_EQ(buffer[size], 0xCC);  // and nothing past the payload
  }
  // Empty payloads copy nothing, whatever the room.
  unsigned char byte = 0xCC;
  EXPECT_EQ(VELAnyValAString(std::string()).GetData(&byte, 1), 0u);
  EXPECT_EQ(VELAnyValBinaryC(nullptr, 5).GetData(&byte, 1), 0u);
  EXPECT_EQ(VELAnyVal().GetData(&byte, 1), 0u);
  EXPECT_EQ(byte, 0xCC);
}

TEST(VELAnyVal, CloneIsEqualToItsSourceExceptNaN) {
  const auto values = OneOfEachKind();
  for (size_t i = 0; i + 1 < values.size(); ++i) {
    const auto clone = values[i]->Clone();
    SCOPED_TRACE(values[i]->GetTypeName());
    EXPECT_EQ(typeid(*clone), typeid(*values[i]));
    EXPECT_TRUE(clone->IsEqual(values[i].get()));
    EXPECT_TRUE(values[i]->IsEqual(clone.get()));
  }
  // The base clones to a base of the same code, and is equal to nothing.
  const auto none = values.back()->Clone();
  EXPECT_EQ(none->GetType(), VEL_ANYVAL_NONE);
  EXPECT_FALSE(none->IsEqual(values.back().get()));

  const VELAnyValFloat nanFloat(std::numeric_limits<float>::quiet_NaN());
  const VELAnyValDouble nanDouble(std::numeric_limits<double>::quiet_NaN());
  EXPECT_FALSE(nanFloat.Clone()->IsEqual(&nanFloat));
  EXPECT_FALSE(nanDouble.Clone()->IsEqual(&nanDouble));
  EXPECT_TRUE(VELAnyValDouble(-0.0).IsEqual(std::make_unique<VELAnyValDouble>(0.0).get()));
}

// Equality needs the same kind and reads the other side as a C string.
TEST(VELAnyVal, EqualityNeedsTheSameKindAndReadsTheOtherAsACString) {
  const VELAnyValLong longFive(5);
  const VELAnyValInt intFive(5);
  EXPECT_FALSE(longFive.IsEqual(&intFive));
  EXPECT_FALSE(longFive.IsEqual(nullptr));
  const VELAnyValBool two(uint8_t{2});
  EXPECT_FALSE(VELAnyValBool(uint8_t{1}).IsEqual(&two)) << "bools compare their stored bytes";
  const VELAnyValAString plain(std::string("ab"));
  const VELAnyValAString withNul(std::string("ab\0cd", 5));
  EXPECT_TRUE(plain.IsEqual(&withNul));
  EXPECT_FALSE(withNul.IsEqual(&plain));
  const VELAnyValWString wide(std::u16string(u"ab"));
  const VELAnyValWString wideWithNul(std::u16string(u"ab\0cd", 5));
  EXPECT_TRUE(wide.IsEqual(&wideWithNul));
  EXPECT_FALSE(wideWithNul.IsEqual(&wide));
}

// Numbers in decimal, floating kinds at their own precision (the digits are
// pinned in the fixed-text tests), arrays in upper-case hex.
TEST(VELAnyVal, TextOfNumbersAndArrays) {
  const unsigned char unsignedBytes[] = {0x00, 0x0A, 0xFF};
  const std::pair<std::unique_ptr<VELAnyVal>, const char*> cases[] = {
      {std::make_unique<VELAnyValShort>(std::numeric_limits<int16_t>::min()), "-32768"},
      {std::make_unique<VELAnyValLong>(std::numeric_limits<int32_t>::min()), "-2147483648"},
      {std::make_unique<VELAnyValInt>(122), "122"},
      {std::make_unique<VELAnyValBool>(uint8_t{7}), "1"},
      {std::make_unique<VELAnyValFloat>(1.1f), "1.10000002"},
      {std::make_unique<VELAnyValFloat>(-0.5f), "-0.5"},
      {std::make_unique<VELAnyValDouble>(1.05), "1.05000000000000004"},
      {std::make_unique<VELAnyValDouble>(0.05), "0.5"},
      {std::make_unique<VELAnyValBinaryC>(kBytes, 4), "F7020041"},
      {std::make_unique<VELAnyValBinaryUC>(unsignedBytes, 3), "000AFF"},
      {std::make_unique<VELAnyValBinaryUC>(nullptr, 0), ""},
  };
  for (const auto& [value, text] : cases) {
    EXPECT_EQ(ATextOf(*value), text);
    if (*text != '\0') {
      EXPECT_EQ(WTextOf(*value), std::u16string(text, text + std::strlen(text)));
    }
  }
  // Non-finite numbers and no value have no text, and leave the output alone.
  std::string narrow = "kept";
  std::u16string wide = u"kept";
  EXPECT_FALSE(VELAnyValDouble(std::numeric_limits<double>::infinity()).GetAString(narrow));
  EXPECT_FALSE(VELAnyValFloat(std::numeric_limits<float>::quiet_NaN()).GetWString(wide));
  EXPECT_FALSE(VELAnyVal().GetAString(narrow));
  EXPECT_FALSE(VELAnyVal().GetWString(wide));
  EXPECT_EQ(narrow, "kept");
  EXPECT_EQ(wide, u"kept");
}

// Same-form text is the payload as it is; across forms, narrow text is UTF-8
// on every platform (never the ANSI code page), ill-formed bytes read as
// U+FFFD, an embedded NUL ends the text, and empty text has no other form.
TEST(VELAnyVal, StringText) {
  EXPECT_EQ(ATextOf(VELAnyValAString(std::string("ab\0cd", 5))), std::string("ab\0cd", 5));
  EXPECT_EQ(WTextOf(VELAnyValWString(std::u16string())), u"");
  EXPECT_EQ(ATextOf(VELAnyValWString(std::u16string(u"Caf\u00e9 \U0001F600"))), "Caf\xC3\xA9 \xF0\x9F\x98\x80");
  EXPECT_EQ(WTextOf(VELAnyValAString(std::string("Caf\xC3\xA9 \xF0\x9F\x98\x80"))), u"Caf\u00e9 \U0001F600");
  EXPECT_EQ(WTextOf(VELAnyValAString(std::string("a\xFFz"))), u"a\uFFFDz");
  EXPECT_EQ(WTextOf(VELAnyValAString(std::string("ab\0cd", 5))), u"ab");
  EXPECT_EQ(ATextOf(VELAnyValWString(std::u16string(u"ab\0cd", 5))), "ab");
  std::string narrow = "x";
  std::u16string wide = u"x";
  EXPECT_FALSE(VELAnyValAString(std::string()).GetWString(wide));
  EXPECT_FALSE(VELAnyValWString(std::u16string()).GetAString(narrow));
  EXPECT_EQ(narrow + std::string(wide.begin(), wide.end()), "");
}

}  // namespace
