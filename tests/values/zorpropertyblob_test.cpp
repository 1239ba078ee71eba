// The property blob byte by byte, and a reader that survives hostile bytes.
#include "values/zorpropertyblob.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <initializer_list>
#include <limits>

#include "values/zorpropertyset.h"

namespace {

using Bytes = std::vector<uint8_t>;

void AppendU32(Bytes& bytes, uint32_t value) {
  for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

// A record assembled by hand from its fields, independent of the writer.
Bytes Record(std::u16string_view name, std::initializer_list<uint8_t> kind,
             std::initializer_list<uint8_t> value) {
  Bytes bytes;
  AppendU32(bytes, static_cast<uint32_t>(name.size() * 2));
  AppendU32(bytes, static_cast<uint32_t>(kind.size()));
  AppendU32(bytes, static_cast<uint32_t>(value.size()));
  for (char16_t unit : name) {
    bytes.push_back(static_cast<uint8_t>(unit));
    bytes.push_back(static_cast<uint8_t>(unit >> 8));
  }
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

std::vector<std::u16string> Names(const ZORPropertySet& set) {
  ZORPropertyList list;
  set.GetAllProperties(list);
  std::vector<std::u16string> names;
  for (const ZORProperty& entry : list) names.push_back(entry.name);
  return names;
}

int32_t LongOf(const ZORPropertySet& set, std::u16string_view name) {
  int32_t number = -999;
  EXPECT_TRUE(set.GetPropertyLong(name, number)) << "missing property";
  return number;
}

TEST(ZORPropertyBlob, EachKindHasItsValueBytes) {
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
  const Bytes expected = Concat({
      kLongAb7,
      Record(u"i", {1}, {0xFE, 0xFF, 0xFF, 0xFF}),
      Record(u"s", {2}, {0x34, 0x12}),
      Record(u"f", {3}, {0x00, 0x00, 0x80, 0x3F}),
      Record(u"d", {4}, {0, 0, 0, 0, 0, 0, 0xF0, 0x3F}),
      Record(u"b", {5}, {0x02}),
      Record(u"a", {6}, {'h', 'i'}),
      Record(u"w", {7}, {0xE9, 0x00}),
      Record(u"c", {8}, {0xF7, 0x00, 0x02}),
      Record(u"u", {9}, {0xF7, 0x00, 0x02}),
  });
  EXPECT_EQ(blob, expected);
}

TEST(ZORPropertyBlob, EveryKindRoundTripsInOrder) {
  const char array[] = {'\x80', '\x00', '\x7F'};
  ZORPropertySet source;
  source.SetPropertyLong(u"Zeta", std::numeric_limits<int32_t>::min());
  source.SetProperty(u"int", VELAnyValInt(std::numeric_limits<int32_t>::max()));
  source.SetProperty(u"Short", VELAnyValShort(std::numeric_limits<int16_t>::min()));
  source.SetProperty(u"Float", VELAnyValFloat(-1.1f));
  source.SetProperty(u"Double", VELAnyValDouble(std::numeric_limits<double>::denorm_min()));
  source.SetProperty(u"NaN", VELAnyValDouble(std::numeric_limits<double>::quiet_NaN()));
  source.SetProperty(u"Bool", VELAnyValBool(uint8_t{255}));
  source.SetPropertyAString(u"Text", "APO4-Undefined");
  source.SetPropertyWString(u"Wide \u00e9\U0001F600", u"\u20AC\U0001F600");
  source.SetProperty(u"Signed", VELAnyValBinaryC(array, 3));
  source.SetProperty(u"Unsigned",
                     VELAnyValBinaryUC(reinterpret_cast<const unsigned char*>(array), 3));
  Bytes blob;
  ASSERT_TRUE(source.GetAllPropertiesBinary(blob));

  // Written again, the copy gives the same bytes: names, kinds, order and
  // values (a NaN's bits too, though it equals nothing) all came through.
  ZORPropertySet copy;
  ASSERT_TRUE(copy.SetAllPropertiesBinary(blob));
  EXPECT_EQ(Names(copy), Names(source));
  Bytes again;
  ASSERT_TRUE(copy.GetAllPropertiesBinary(again));
  EXPECT_EQ(again, blob);
}

TEST(ZORPropertyBlob, WriterLeavesOutWhatAReaderCouldNotTake) {
  ZORPropertySet set;
  set.SetPropertyWString(u"empty", u"");
  set.SetPropertyLong(u"Ab", 7);
  Bytes blob;
  EXPECT_FALSE(set.GetAllPropertiesBinary(blob));
  EXPECT_EQ(blob, kLongAb7);

  // An empty name or one past the reader's limit would end a read early and
  // lose every record after it.
  ZORPropertyList list = {
      {u"", std::make_shared<VELAnyValLong>(1)},
      {std::u16string(1025, u'n'), std::make_shared<VELAnyValLong>(2)},
      {u"Ab", std::make_shared<VELAnyValLong>(7)},
      {u"null", nullptr},
  };
  EXPECT_FALSE(ZORPropertyBlob::Write(list, blob));
  EXPECT_EQ(blob, kLongAb7);

  // The longest accepted name survives.
  list = {{std::u16string(1024, u'n'), std::make_shared<VELAnyValLong>(2)}};
  ASSERT_TRUE(ZORPropertyBlob::Write(list, blob));
  ZORPropertyList read;
  EXPECT_TRUE(ZORPropertyBlob::Read(blob, read));
  ASSERT_EQ(read.size(), 1u);
  EXPECT_EQ(read[0].name.size(), 1024u);

  ZORPropertySet empty;
  blob = {1, 2, 3};
  EXPECT_TRUE(empty.GetAllPropertiesBinary(blob));
  EXPECT_TRUE(blob.empty());
}

TEST(ZORPropertyBlob, MalformedRecordEndsTheReadAndKeepsWhatCameBefore) {
  const Bytes good = Record(u"Good", {0}, {5, 0, 0, 0});
  const Bytes after = Record(u"After", {0}, {6, 0, 0, 0});
  Bytes longName = Record(std::u16string(1025, u'x'), {0}, {1, 0, 0, 0});
  Bytes hugeValue = Record(u"Huge", {6}, {'a'});
  hugeValue[8] = hugeValue[9] = hugeValue[10] = hugeValue[11] = 0xFF;  // V = 2^32 - 1
  Bytes wideKind = Record(u"Kind", {0}, {1, 0, 0, 0});
  wideKind[4] = 0x01;
  wideKind[5] = 0x04;  // K = 1025

  const std::pair<const char*, Bytes> cases[] = {
      {"name size 0", Record(u"", {0}, {1, 0, 0, 0})},
      {"kind size 0", Record(u"K", {}, {1, 0, 0, 0})},
      {"name of 2050 bytes", longName},
      {"kind of 1025 bytes", wideKind},
      {"value size 0", Record(u"V", {6}, {})},
      {"value past the end", hugeValue},
      {"long of two bytes", Record(u"Short", {0}, {1, 0})},
      {"double of four bytes", Record(u"D", {4}, {0, 0, 0, 0})},
      {"header cut short", Bytes{4, 0, 0, 0, 1}},
  };
  for (const auto& [what, bad] : cases) {
    SCOPED_TRACE(what);
    ZORPropertySet set;
    EXPECT_FALSE(set.SetAllPropertiesBinary(Concat({good, bad, after})));
    EXPECT_EQ(Names(set), std::vector<std::u16string>{u"Good"});
    EXPECT_EQ(LongOf(set, u"Good"), 5);
    EXPECT_TRUE(set.IsDirty());
  }
}

TEST(ZORPropertyBlob, FieldsThatRunPastTheEndAreRefused) {
  const Bytes whole = Record(u"Name", {0, 9, 9}, {1, 2, 3, 4});
  // Every cut of the record short of its end, so name, kind and value each
  // end up past the last byte; ASan checks that nothing beyond is read.
  for (size_t size = 2; size < whole.size(); ++size) {
    SCOPED_TRACE(size);
    Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    cut.shrink_to_fit();
    ZORPropertyList list;
    EXPECT_FALSE(ZORPropertyBlob::Read(cut, list));
    EXPECT_TRUE(list.empty());
  }
  ZORPropertyList list;
  EXPECT_TRUE(ZORPropertyBlob::Read(whole, list));
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(dynamic_cast<const VELAnyValLong&>(*list[0].value).GetValue(), 0x04030201);
}

TEST(ZORPropertyBlob, UnknownKindsAndEmptyNamesAreSkipped) {
  ZORPropertySet set;
  EXPECT_TRUE(set.SetAllPropertiesBinary(Concat({
      Record(u"Twelve", {12}, {1, 2, 3, 4}),
      Record(u"Minus", {0xFF}, {1}),
      Record(std::u16string(u"\0x", 2), {0}, {1, 0, 0, 0}),
      Record(u"Next", {0}, {9, 0, 0, 0}),
  })));
  EXPECT_EQ(Names(set), std::vector<std::u16string>{u"Next"});
}

TEST(ZORPropertyBlob, ReaderTakesNamesAndTextAsCStrings) {
  Bytes oddName = Record(u"AB", {0}, {1, 0, 0, 0});
  // N = 3: the third byte is the low half of the second unit.
  oddName[0] = 3;
  oddName.erase(oddName.begin() + 15);
  ZORPropertySet set;
  EXPECT_TRUE(set.SetAllPropertiesBinary(Concat({
      oddName,
      Record(std::u16string(u"Cut\0Off", 7), {0}, {2, 0, 0, 0}),
      Record(u"Text", {6}, {'a', 'b', 0, 'c'}),
      Record(u"Wide", {7}, {'x', 0, 0, 0, 'y', 0}),
      Record(u"Bytes", {8}, {'a', 0, 'c'}),
      Record(u"Wider", {0, 0x55, 0x66}, {3, 0, 0, 0, 0xEE}),
  })));
  EXPECT_EQ(Names(set),
            (std::vector<std::u16string>{u"AB", u"Cut", u"Text", u"Wide", u"Bytes", u"Wider"}));
  std::string text;
  ASSERT_TRUE(set.GetPropertyAString(u"Text", text));
  EXPECT_EQ(text, "ab");
  std::u16string wide;
  ASSERT_TRUE(set.GetPropertyWString(u"Wide", wide));
  EXPECT_EQ(wide, u"x");
  VELAnyValPtr bytes;
  ASSERT_TRUE(set.GetProperty(u"Bytes", bytes));
  EXPECT_EQ(bytes->GetSize(), 3u);  // arrays keep every byte
  EXPECT_EQ(LongOf(set, u"Wider"), 3);
}

TEST(ZORPropertyBlob, DuplicatesAndTrailingBytes) {
  ZORPropertySet set;
  Bytes blob = Concat({Record(u"Twice", {0}, {1, 0, 0, 0}), Record(u"TWICE", {0}, {2, 0, 0, 0})});
  blob.push_back(0xAB);  // one stray byte is ignored
  EXPECT_TRUE(set.SetAllPropertiesBinary(blob));
  EXPECT_EQ(Names(set).size(), 2u);
  EXPECT_EQ(LongOf(set, u"twice"), 1);  // lookups find the first

  blob.push_back(0xCD);  // two are the start of a record that is cut short
  EXPECT_FALSE(set.SetAllPropertiesBinary(blob));
  EXPECT_EQ(Names(set).size(), 2u);

  EXPECT_FALSE(set.SetAllPropertiesBinary(Bytes{}));
  EXPECT_FALSE(set.SetAllPropertiesBinary(Bytes{0x01}));
  EXPECT_TRUE(Names(set).empty());
}

struct Recorder : IZORPropertySetNotify {
  void OnPropertyChanged(ZORPropertySet&, const ZORProperty& property) override {
    changed.push_back(property.name);
  }
  bool OnPropertyChanging(ZORPropertySet&, ZORProperty&) override { return false; }
  std::vector<std::u16string> changed;
};

TEST(ZORPropertyBlob, MergeGoesThroughObserversAndStopsQuietly) {
  ZORPropertySet set;
  set.SetPropertyLong(u"Known", 1);
  set.SetPropertyLong(u"Same", 2);
  Recorder recorder;
  set.AddNotify(&recorder);
  set.SetDirty(false);

  const Bytes blob = Concat({Record(u"KNOWN", {0}, {10, 0, 0, 0}),
                             Record(u"Same", {0}, {2, 0, 0, 0}),
                             Record(u"New", {0}, {3, 0, 0, 0}),
                             Record(u"", {0}, {1, 0, 0, 0}),
                             Record(u"Late", {0}, {4, 0, 0, 0})});
  set.MergePropertiesBinary(blob, true, false);
  EXPECT_EQ(recorder.changed, std::vector<std::u16string>{u"Known"});
  EXPECT_EQ(LongOf(set, u"Known"), 10);
  EXPECT_EQ(Names(set), (std::vector<std::u16string>{u"Known", u"Same"}));

  recorder.changed.clear();
  set.MergePropertiesBinary(blob, false, true);
  EXPECT_EQ(recorder.changed, std::vector<std::u16string>{u"New"});
  EXPECT_EQ(LongOf(set, u"Known"), 10);
  set.RemoveNotify(&recorder);
}

}  // namespace
