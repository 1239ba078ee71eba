// Property set semantics: names, ownership, observers, merges, typed access.
#include "values/zorpropertyset.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

struct Event {
  enum Kind { Changing, Changed } kind;
  std::u16string name;
  std::string text;
};

// Records every call; hooks let a test act from inside a callback.
class Observer : public IZORPropertySetNotify {
 public:
  void OnPropertyChanged(ZORPropertySet& set, const ZORProperty& property) override {
    events.push_back({Event::Changed, property.name, TextOf(property)});
    if (onChanged) onChanged(set, property);
  }
  bool OnPropertyChanging(ZORPropertySet& set, ZORProperty& property) override {
    events.push_back({Event::Changing, property.name, TextOf(property)});
    if (onChanging) onChanging(set, property);
    return answer;
  }
  int Count(Event::Kind kind) const {
    int count = 0;
    for (const Event& event : events) count += event.kind == kind;
    return count;
  }

  std::vector<Event> events;
  std::function<void(ZORPropertySet&, const ZORProperty&)> onChanged;
  std::function<void(ZORPropertySet&, ZORProperty&)> onChanging;
  bool answer = false;

 private:
  static std::string TextOf(const ZORProperty& property) {
    std::string text;
    if (property.value) property.value->GetAString(text);
    return text;
  }
};

std::vector<std::u16string> Names(const ZORPropertySet& set) {
  ZORPropertyList list;
  set.GetAllProperties(list);
  std::vector<std::u16string> names;
  for (const ZORProperty& entry : list) names.push_back(entry.name);
  return names;
}

TEST(ZORPropertySet, NamesFoldOnlyAsciiLettersAndKeepTheFirstSpelling) {
  ZORPropertySet set;
  set.SetPropertyLong(u"Mode", 1);
  set.SetPropertyLong(u"MODE", 2);
  set.SetPropertyLong(u"\u00c9t\u00e9", 3);
  set.SetPropertyLong(u"\u00e9t\u00e9", 4);  // not folded: a second property
  set.SetPropertyLong(u"", 5);                 // legal in memory
  EXPECT_EQ(Names(set), (std::vector<std::u16string>{u"Mode", u"\u00c9t\u00e9",
                                                     u"\u00e9t\u00e9", u""}));
  int32_t number = 0;
  ASSERT_TRUE(set.GetPropertyLong(u"mOdE", number));
  EXPECT_EQ(number, 2);
  // A name is read as a C string.
  ASSERT_TRUE(set.GetPropertyLong(std::u16string(u"mode\0junk", 9), number));
  EXPECT_EQ(number, 2);
  EXPECT_TRUE(ZORPropertySet::NamesEqual(u"[@Z]", u"[@z]"));
  EXPECT_FALSE(ZORPropertySet::NamesEqual(u"[", u"{"));  // only A-Z fold
}

TEST(ZORPropertySet, ObserversMayChangeTheTableAndTheSetFromACallback) {
  ZORPropertySet set;
  Observer first;
  Observer second;
  // Whichever runs first removes both: the other must not be called after.
  auto removeBoth = [&](ZORPropertySet& s, const ZORProperty&) {
    s.RemoveNotify(&first);
    s.RemoveNotify(&second);
  };
  first.onChanged = removeBoth;
  second.onChanged = removeBoth;
  set.AddNotify(&first);
  set.AddNotify(&second);
  set.SetPropertyLong(u"x", 1);
  EXPECT_EQ(first.Count(Event::Changed) + second.Count(Event::Changed), 1);

  // An observer that writes more names while being told of a new one.
  Observer writer;
  writer.onChanged = [](ZORPropertySet& s, const ZORProperty& p) {
    if (p.name.size() < 40) s.SetPropertyLong(p.name + u"+", 1);
  };
  set.AddNotify(&writer);
  set.SetPropertyLong(u"y", 1);
  EXPECT_EQ(Names(set).size(), 2u + 39u);
  set.RemoveNotify(&writer);
}

// Numbers of every integer kind and leading integers of text read as longs;
// floats, arrays and missing names do not, and leave the output alone.
TEST(ZORPropertySet, TypedGetters) {
  ZORPropertySet set;
  set.SetPropertyLong(u"long", -5);
  set.SetProperty(u"int", VELAnyValInt(6));
  set.SetProperty(u"short", VELAnyValShort(static_cast<int16_t>(-1)));
  set.SetProperty(u"bool", VELAnyValBool(uint8_t{2}));
  set.SetPropertyAString(u"text", " \t-42abc");
  set.SetPropertyAString(u"word", "abc");
  set.SetPropertyAString(u"big", "99999999999");
  set.SetPropertyAString(u"small", "-99999999999");
  set.SetPropertyWString(u"wide", u"+17");
  set.SetProperty(u"float", VELAnyValFloat(2.5f));
  set.SetProperty(u"bytes", VELAnyValBinaryUC(nullptr, 0));
  const std::pair<const char16_t*, int32_t> numbers[] = {
      {u"long", -5}, {u"int", 6},     {u"short", -1}, {u"bool", 2}, {u"text", -42},
      {u"word", 0},  {u"big", INT32_MAX}, {u"small", INT32_MIN}, {u"wide", 17}, {u"float", 12345}, {u"bytes", 12345}, {u"absent", 12345},
  };
  for (const auto& [name, expected] : numbers) {
    int32_t number = 12345;
    EXPECT_EQ(set.GetPropertyLong(name, number), expected != 12345) << std::string(name, name + 4);
    EXPECT_EQ(number, expected);
  }
  std::string text = "kept";
  EXPECT_FALSE(set.GetPropertyAString(u"absent", text));
  EXPECT_EQ(text, "kept");
  ASSERT_TRUE(set.GetPropertyAString(u"float", text));
  EXPECT_EQ(text, "2.5");
  std::u16string wide = u"kept";
  set.SetPropertyAString(u"empty", "");
  EXPECT_FALSE(set.GetPropertyWString(u"empty", wide));
  EXPECT_EQ(wide, u"");
  // A list taken in whole may hold a missing value; a merge passes over it.
  set.SetAllProperties({{u"null", nullptr}}, false);
  set.MergeProperties({{u"merged", nullptr}}, true, true);
  EXPECT_FALSE(set.GetPropertyAString(u"null", text) || set.GetPropertyAString(u"merged", text));
  EXPECT_EQ(text, "");
  std::vector<uint8_t> blob;
  EXPECT_FALSE(set.GetAllPropertiesBinary(blob));
}

}  // namespace
