#include "system/zorguidtext.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(ZORGuidText, ParsesOnlyTheBracedFormAndKeepsItsTextInUpperCase) {
  struct Case {
    std::u16string text;
    const char16_t* expected;  // null: does not parse
  };
  const Case cases[] = {
      {u"{a95664d2-9614-4f35-a746-de8db63617e6}", u"{A95664D2-9614-4F35-A746-DE8DB63617E6}"},
      {u"{A95664D2-9614-4F35-A746-DE8DB63617E6}", u"{A95664D2-9614-4F35-A746-DE8DB63617E6}"},
      {u"a95664d2-9614-4f35-a746-de8db63617e6", nullptr},
      {u"{a95664d2-9614-4f35-a746-de8db63617e}", nullptr},
      {u"{a95664d2-9614-4f35-a746-de8db63617e6}x", nullptr},
      {u"{g95664d2-9614-4f35-a746-de8db63617e6}", nullptr},
      {u"{a95664d2+9614-4f35-a746-de8db63617e6}", nullptr},
      {std::u16string(u"{a95664d2-9614-4f35-a746-de8db63617e6}\0", 39), u"{A95664D2-9614-4F35-A746-DE8DB63617E6}"},
      {u"", nullptr},
      {u"{}", nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.text.begin(), c.text.end()));
    ZORGuidText guid(u"{00000000-0000-0000-0000-000000000001}");
    EXPECT_EQ(guid.Parse(c.text), c.expected != nullptr);
    EXPECT_EQ(guid.Text(), c.expected ? c.expected : u"");
    EXPECT_EQ(guid.IsNull(), c.expected == nullptr);
  }
  EXPECT_TRUE(IsEqualGUID(ZORGuidText(u"{a95664d2-9614-4f35-a746-de8db63617e6}").Guid(), IID_IMMDeviceEnumerator));
  EXPECT_EQ(ZORGuidText(IID_IMMDeviceEnumerator).Text(), u"{A95664D2-9614-4F35-A746-DE8DB63617E6}");
}

// The fuzz target checks that every key name that parses prints back.
TEST(ZORGuidText, PropertyKeyTextIsTheRegistrysNameAndNothingElseParses) {
  EXPECT_EQ(zor::com::PropertyKeyText(PKEY_AudioEndpoint_Disable_SysFx), u"{1da5d803-d492-4edd-8c23-e0c0ffee7f0e},5");
  PROPERTYKEY key{};
  ASSERT_TRUE(zor::com::ParsePropertyKeyText(u"{1DA5D803-D492-4EDD-8C23-E0C0FFEE7F0E},4294967295", key));
  EXPECT_EQ(key.pid, 4294967295u);
  for (const std::u16string_view bad :
       {u"{1da5d803-d492-4edd-8c23-e0c0ffee7f0e}", u"{1da5d803-d492-4edd-8c23-e0c0ffee7f0e},",
        u"{1da5d803-d492-4edd-8c23-e0c0ffee7f0e},4294967296", u"{1da5d803-d492-4edd-8c23-e0c0ffee7f0e},5x",
        u"{1da5d803-d492-4edd-8c23-e0c0ffee7f0e};5", u"DeviceState"}) {
    EXPECT_FALSE(zor::com::ParsePropertyKeyText(bad, key)) << std::string(bad.begin(), bad.end());
  }
}

}  // namespace
