// The property blob: its bytes pinned in one table, a seeded round trip of
// random values, random cuts and corruptions, and the reader's rules.
#include "values/zorpropertyblob.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <initializer_list>
#include <random>

#include "values/zorpropertyset.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Names = std::vector<std::u16string>;

// A record assembled by hand from its fields, independent of the writer.
Bytes Record(std::u16string_view name, std::initializer_list<uint8_t> kind, std::initializer_list<uint8_t> value) {
  Bytes bytes;
  for (const size_t size : {name.size() * 2, kind.size(), value.size()}) {
    for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<uint8_t>(size >> (8 * i)));
  }
  for (char16_t unit : name) bytes.insert(bytes.end(), {static_cast<uint8_t>(unit), static_cast<uint8_t>(unit >> 8)});
  bytes.insert(bytes.end(), kind);
  bytes.insert(bytes.end(), value);
  return bytes;
}

Bytes Concat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// "Ab" = Long 7, byte by byte.
const Bytes kLongAb7 = {0x04, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x04, 0x00, 0x00,
                        0x00, 0x41, 0x00, 0x62, 0x00, 0x00, 0x07, 0x00, 0x00, 0x00};

Names NamesOf(const ZORPropertyList& list) {
  Names names;
  for (const ZORProperty& entry : list) names.push_back(entry.name);
  return names;
}
Names NamesOf(const ZORPropertySet& set) {
  ZORPropertyList list;
  set.GetAllProperties(list);
  return NamesOf(list);
}

// A random value of a random kind, extremes and non-ASCII text included.
VELAnyValPtr RandomValue(std::mt19937& random) {
  const auto bits = static_cast<uint32_t>(random());
  std::string bytes(1 + random() % 6, '\0');
  for (char& byte : bytes) byte = static_cast<char>(1 + random() % 255);  // text ends at a NUL
  switch (random() % 10) {
    case 0: return std::make_shared<VELAnyValLong>(static_cast<int32_t>(bits));
    case 1: return std::make_shared<VELAnyValInt>(static_cast<int32_t>(bits));
    case 2: return std::make_shared<VELAnyValShort>(static_cast<int16_t>(bits));
    case 3: return std::make_shared<VELAnyValFloat>(std::bit_cast<float>(bits));
    case 4: return std::make_shared<VELAnyValDouble>(std::bit_cast<double>(uint64_t{bits} << 32 | random()));
    case 5: return std::make_shared<VELAnyValBool>(static_cast<uint8_t>(bits));
    case 6: return std::make_shared<VELAnyValAString>(std::string(bytes));
    case 7: return std::make_shared<VELAnyValWString>(std::u16string(1 + bits % 5, static_cast<char16_t>(1 + bits % 0xFFFE)));
    case 8: return std::make_shared<VELAnyValBinaryC>(bytes.data(), static_cast<uint32_t>(bytes.size()));
    default:
      return std::make_shared<VELAnyValBinaryUC>(reinterpret_cast<const unsigned char*>(bytes.data()),
                                                 static_cast<uint32_t>(bytes.size()));
  }
}

ZORPropertyList RandomList(std::mt19937& random) {
  ZORPropertyList list;
  for (size_t i = 0, count = 1 + random() % 12; i < count; ++i) {
    std::u16string name = u"p" + std::u16string(1, static_cast<char16_t>(u'A' + i)) + u"\u00e9\U0001F600";
    name.resize(3 + random() % 200, u'n');
    list.push_back({name, RandomValue(random)});
  }
  return list;
}

}  // namespace

TEST(ZORPropertyBlob, EachKindHasItsBytes) {
  const unsigned char array[] = {0xF7, 0x00, 0x02};
  ZORPropertySet set;
  set.SetPropertyLong(u"Ab", 7);
  set.SetProperty(u"i", VELAnyValInt(-2));
  set.SetProperty(u"s", VELAnyValShort(static_cast<int16_t>(0x1234)));
  set.SetProperty(u"f", VELAnyValFloat(1.0f));
  set.SetProperty(u"d", VELAnyValDouble(1.0));
  set.SetProperty(u"b", VELAnyValBool(uint8_t{2}));
  set.SetPropertyAString(u"a", "hi");
  set.SetPropertyWString(u"w", u"\u00e9");
  set.SetProperty(u"c", VELAnyValBinaryC(reinterpret_cast<const char*>(array), 3));
  set.SetProperty(u"u", VELAnyValBinaryUC(array, 3));
  Bytes blob;
  ASSERT_TRUE(set.GetAllPropertiesBinary(blob));
  EXPECT_EQ(blob, Concat({kLongAb7, Record(u"i", {1}, {0xFE, 0xFF, 0xFF, 0xFF}), Record(u"s", {2}, {0x34, 0x12}),
                          Record(u"f", {3}, {0x00, 0x00, 0x80, 0x3F}), Record(u"d", {4}, {0, 0, 0, 0, 0, 0, 0xF0, 0x3F}),
                          Record(u"b", {5}, {0x02}), Record(u"a", {6}, {'h', 'i'}), Record(u"w", {7}, {0xE9, 0x00}),
                          Record(u"c", {8}, {0xF7, 0x00, 0x02}), Record(u"u", {9}, {0xF7, 0x00, 0x02})}));
  // What a reader could not take gets no record: empty values, empty or
  // over-long names (they would end a read early), missing values.
  ZORPropertyList list = {{u"", std::make_shared<VELAnyValLong>(1)},
                          {std::u16string(1025, u'n'), std::make_shared<VELAnyValLong>(2)},
                          {u"empty", std::make_shared<VELAnyValWString>(u"")},
                          {u"Ab", std::make_shared<VELAnyValLong>(7)},
                          {u"null", nullptr}};
  EXPECT_FALSE(ZORPropertyBlob::Write(list, blob));
  EXPECT_EQ(blob, kLongAb7);
  ZORPropertySet empty;
  EXPECT_TRUE(empty.GetAllPropertiesBinary(blob));
  EXPECT_TRUE(blob.empty());
}

// Random lists -> set -> blob -> set -> blob: the same names, values and bytes.
TEST(ZORPropertyBlob, RandomValuesRoundTrip) {
  const uint32_t seed = 20261123;
  std::mt19937 random(seed);
  for (int round = 0; round < 200; ++round) {
    SCOPED_TRACE(testing::Message() << "seed " << seed << " round " << round);
    const ZORPropertyList list = RandomList(random);
    ZORPropertySet source, copy;
    source.SetAllProperties(list, false);
    Bytes blob, again;
    ASSERT_TRUE(source.GetAllPropertiesBinary(blob));
    ASSERT_TRUE(copy.SetAllPropertiesBinary(blob));
    ZORPropertyList read;
    copy.GetAllProperties(read);
    ASSERT_EQ(NamesOf(read), NamesOf(list));
    for (size_t i = 0; i < list.size(); ++i) {
      const auto* d = dynamic_cast<const VELAnyValDouble*>(list[i].value.get());
      const auto* f = dynamic_cast<const VELAnyValFloat*>(list[i].value.get());
      const bool nan = (d != nullptr && std::isnan(d->GetValue())) || (f != nullptr && std::isnan(f->GetValue()));
      EXPECT_TRUE(nan || read[i].value->IsEqual(list[i].value.get())) << i;
    }
    ASSERT_TRUE(copy.GetAllPropertiesBinary(again));
    EXPECT_EQ(again, blob);  // a NaN's bits too
  }
}

// Any cut and random corruption: a clean answer, the records before it kept,
// nothing outside the blob read (ASan watches the exact-size copies).
TEST(ZORPropertyBlob, RandomCutsAndCorruptionFailCleanly) {
  const uint32_t seed = 20261124;
  std::mt19937 random(seed);
  for (int round = 0; round < 60; ++round) {
    SCOPED_TRACE(testing::Message() << "seed " << seed << " round " << round);
    const ZORPropertyList list = RandomList(random);
    Bytes whole;
    ASSERT_TRUE(ZORPropertyBlob::Write(list, whole));
    std::vector<size_t> ends;  // where each record ends
    for (size_t offset = 0; offset < whole.size(); ends.push_back(offset)) {
      offset += ZORPropertyBlob::ReadRecord(whole, offset).consumed;
    }
    const size_t cutAt = random() % whole.size();
    Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(cutAt));
    cut.shrink_to_fit();
    ZORPropertyList read;
    const bool ok = ZORPropertyBlob::Read(cut, read);
    const auto complete = static_cast<size_t>(std::count_if(ends.begin(), ends.end(), [&](size_t end) { return end <= cutAt; }));
    ASSERT_EQ(read.size(), complete);
    const Names names = NamesOf(read), written = NamesOf(list);
    EXPECT_TRUE(std::equal(names.begin(), names.end(), written.begin()));
    // True only when the cut falls on a record's end, or one stray byte after it.
    const bool onAnEnd = complete > 0 && (ends[complete - 1] == cutAt || ends[complete - 1] + 1 == cutAt);
    EXPECT_EQ(ok, onAnEnd) << "cut at " << cutAt;
    Bytes corrupt = whole;
    for (int flips = 0; flips < 8; ++flips) corrupt[random() % corrupt.size()] = static_cast<uint8_t>(random());
    corrupt.shrink_to_fit();
    read.clear();
    ZORPropertyBlob::Read(corrupt, read);
    EXPECT_LE(read.size(), list.size());
  }
  // Every cut of one record short of its end fails with nothing read.
  const Bytes record = Record(u"Name", {0, 9, 9}, {1, 2, 3, 4});
  for (size_t size = 2; size < record.size(); ++size) {
    Bytes cut(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(size));
    cut.shrink_to_fit();
    ZORPropertyList read;
    EXPECT_FALSE(ZORPropertyBlob::Read(cut, read)) << size;
    EXPECT_TRUE(read.empty());
  }
}

// The reader's rules: which records end a read (keeping what came before),
// which are skipped, and how names and text are taken.
TEST(ZORPropertyBlob, ReaderRules) {
  const Bytes good = Record(u"Good", {0}, {5, 0, 0, 0});
  const Bytes after = Record(u"After", {0}, {6, 0, 0, 0});
  Bytes hugeValue = Record(u"Huge", {6}, {'a'});
  hugeValue[8] = hugeValue[9] = hugeValue[10] = hugeValue[11] = 0xFF;  // V = 2^32 - 1
  Bytes wideKind = Record(u"Kind", {0}, {1, 0, 0, 0});
  wideKind[5] = 0x04;  // K = 1025
  Bytes oddName = Record(u"AB", {0}, {1, 0, 0, 0});
  oddName[0] = 3;  // N = 3: the third byte is the low half of the second unit
  oddName.erase(oddName.begin() + 15);
  struct Row {
    const char* what;
    Bytes blob;
    bool ok;
    Names names;
  };
  const Row rows[] = {
      {"name size 0", Concat({good, Record(u"", {0}, {1, 0, 0, 0}), after}), false, {u"Good"}},
      {"kind size 0", Concat({good, Record(u"K", {}, {1, 0, 0, 0}), after}), false, {u"Good"}},
      {"name of 2050 bytes", Concat({good, Record(std::u16string(1025, u'x'), {0}, {1, 0, 0, 0}), after}), false, {u"Good"}},
      {"kind of 1025 bytes", Concat({good, wideKind, after}), false, {u"Good"}},
      {"value size 0", Concat({good, Record(u"V", {6}, {}), after}), false, {u"Good"}},
      {"value past the end", Concat({good, hugeValue, after}), false, {u"Good"}},
      {"long of two bytes", Concat({good, Record(u"Short", {0}, {1, 0}), after}), false, {u"Good"}},
      {"double of four bytes", Concat({good, Record(u"D", {4}, {0, 0, 0, 0}), after}), false, {u"Good"}},
      {"header cut short", Concat({good, Bytes{4, 0, 0, 0, 1}}), false, {u"Good"}},
      {"empty", {}, false, {}},
      {"one byte", {1}, false, {}},
      {"unknown kinds and NUL-led names skipped",
       Concat({Record(u"Twelve", {12}, {1, 2, 3, 4}), Record(u"Minus", {0xFF}, {1}),
               Record(std::u16string(u"\0x", 2), {0}, {1, 0, 0, 0}), after}),
       true, {u"After"}},
      {"names as C strings, odd sizes and wide kinds",
       Concat({oddName, Record(std::u16string(u"Cut\0Off", 7), {0}, {2, 0, 0, 0}),
               Record(u"Wider", {0, 0x55, 0x66}, {3, 0, 0, 0, 0xEE})}),
       true, {u"AB", u"Cut", u"Wider"}},
      {"duplicates kept, one stray byte ignored", Concat({good, Record(u"GOOD", {0}, {2, 0, 0, 0}), Bytes{0xAB}}), true,
       {u"Good", u"GOOD"}},
      {"two stray bytes start a cut record", Concat({good, Bytes{0xAB, 0xCD}}), false, {u"Good"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    ZORPropertySet set;
    EXPECT_EQ(set.SetAllPropertiesBinary(row.blob), row.ok);
    EXPECT_EQ(NamesOf(set), row.names);
    int32_t number = 0;
    if (!row.names.empty()) {
      EXPECT_TRUE(set.GetPropertyLong(row.names[0], number));
    }
  }
  ZORPropertySet set;
  ASSERT_TRUE(set.SetAllPropertiesBinary(Concat({Record(u"Text", {6}, {'a', 'b', 0, 'c'}),
                                                 Record(u"Wide", {7}, {'x', 0, 0, 0, 'y', 0}),
                                                 Record(u"Bytes", {8}, {'a', 0, 'c'})})));
  std::string text;
  std::u16string wide;
  VELAnyValPtr bytes;
  ASSERT_TRUE(set.GetPropertyAString(u"Text", text) && set.GetPropertyWString(u"Wide", wide));
  EXPECT_EQ(text + std::string(wide.begin(), wide.end()), "abx");
  ASSERT_TRUE(set.GetProperty(u"Bytes", bytes));
  EXPECT_EQ(bytes->GetSize(), 3u);  // arrays keep every byte
}
