// Value lists: the merge algebra, change detection and the property-set bridge.
#include "config/zorutsvaluelist.h"

#include <gtest/gtest.h>

#include <map>

#include "values/zorpropertyset.h"

namespace {

ZORUTSValueList ListOf(std::initializer_list<std::pair<const char*, const char*>> entries) {
  ZORUTSValueList list;
  for (const auto& [name, text] : entries) list.Insert(ZORUTSValue(name, text));
  return list;
}

// Name -> text, ordered, for comparisons that ignore the hash order.
using Texts = std::map<std::string, std::string>;

Texts Contents(const ZORUTSValueList& list) {
  Texts contents;
  for (const auto& [name, value] : list) {
    EXPECT_EQ(name, value.name);  // every key is its value's name
    contents[name] = value.GetText();
  }
  return contents;
}

TEST(ZORUTSValueList, MergeIntoItself) {
  for (int mode : {0, 1, 2, 3, 9}) {
    ZORUTSValueList list = ListOf({{"a", "1"}, {"b", "2"}});
    list.Merge(list, mode);
    EXPECT_EQ(Contents(list), (Texts{{"a", "1"}, {"b", "2"}})) << mode;
  }
  ZORUTSValueList list = ListOf({{"a", "1"}, {"b", "2"}});
  list.Merge(list, MergeRemove);
  EXPECT_TRUE(list.IsEmpty());
}

TEST(ZORUTSValueList, ReplaceIfChanged) {
  ZORUTSValueList list = ListOf({{"a", "1"}, {"b", "2"}});
  EXPECT_FALSE(list.ReplaceIfChanged(ListOf({{"a", "1"}, {"b", "2"}})));
  EXPECT_FALSE(list.ReplaceIfChanged(list));

  // A number and its text are the same value.
  ZORUTSValueList numbers;
  numbers.Insert(ZORUTSValue("a", 1));
  numbers.Insert(ZORUTSValue("b", 2));
  EXPECT_FALSE(list.ReplaceIfChanged(numbers));
  EXPECT_EQ(list.Find("a")->value->GetType(), VEL_ANYVAL_ASTRING);  // kept, not copied

  EXPECT_TRUE(list.ReplaceIfChanged(ListOf({{"a", "1"}, {"b", "9"}})));
  EXPECT_EQ(Contents(list), (Texts{{"a", "1"}, {"b", "9"}}));

  // Another size is a change, even if the common values are equal.
  EXPECT_TRUE(list.ReplaceIfChanged(ListOf({{"a", "1"}})));
  EXPECT_EQ(Contents(list), (Texts{{"a", "1"}}));

  // Same size, a source name missing here: no difference.
  EXPECT_FALSE(list.ReplaceIfChanged(ListOf({{"other", "1"}})));
  EXPECT_EQ(Contents(list), (Texts{{"a", "1"}}));
}

TEST(ZORUTSValueList, ReadFromSet) {
  ZORPropertySet set;
  set.SetPropertyLong(u"NUMBER", 5);
  set.SetPropertyWString(u"wide", u"w");
  set.SetProperty(u"int", VELAnyValInt(7));
  set.SetPropertyAString(u"added", "t");
  set.SetProperty(u"Skipped", VELAnyValDouble(1.5));

  // A list with entries refreshes only those, matching names without case.
  ZORUTSValueList list = ListOf({{"number", "old"}, {"wide", "old"}, {"int", "old"},
                                 {"absent", "kept"}});
  list.ReadFromSet(set);
  EXPECT_EQ(Contents(list), (Texts{{"number", "5"}, {"wide", "w"}, {"int", "old"},
                                        {"absent", "kept"}}));
  EXPECT_EQ(list.Find("number")->value->GetType(), VEL_ANYVAL_LONG);
  EXPECT_EQ(list.Find("wide")->value->GetType(), VEL_ANYVAL_ASTRING);

  // An empty list takes every property of the three kinds.
  ZORUTSValueList filled;
  filled.ReadFromSet(set);
  EXPECT_EQ(Contents(filled), (Texts{{"NUMBER", "5"}, {"wide", "w"}, {"added", "t"}}));

  // Written and read back, every value comes home as text.
  ZORPropertySet copy;
  filled.WriteToSet(copy);
  ZORUTSValueList again;
  again.ReadFromSet(copy);
  EXPECT_EQ(Contents(again), Contents(filled));
  EXPECT_EQ(again.Find("NUMBER")->value->GetType(), VEL_ANYVAL_ASTRING);
  EXPECT_EQ(again.Find("NUMBER")->GetLong(), 5);
}

}  // namespace
