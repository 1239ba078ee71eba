// Running scripts against the store: types, the modifiers' rules on
// registering again and on removal, and a store failure as a Win32 result.
#include "module/zorregistrar.h"

#include <gtest/gtest.h>

#include "moduletesting.h"

namespace {

using zor::os::RegKey;

TEST(ZORRegistrarTest, RegistersAgainAndRemovesByTheModifiersRules) {
  velapo::test::ClassesRoot root;
  const auto run = [&](std::u16string_view text, bool doRegister) {
    ZORRegistrarScript script;
    EXPECT_TRUE(script.Parse(text, {})) << script.Error();
    const ZORRegistrar registrar(root.Path(), root.Path(u"Machine"));
    return doRegister ? registrar.Register(script) : registrar.Unregister(script);
  };
  const auto foreign = [&](std::u16string_view relative) {
    RegKey key;
    ASSERT_EQ(RegKey::Create(root.Path(relative), zor::os::kKeyAllAccess, key), zor::os::RegStatus::Ok);
    ASSERT_EQ(key.WriteDword(u"Foreign", 7), zor::os::RegStatus::Ok);
  };
  constexpr char16_t kScript[] =
      u"HKCR { NoRemove Shared { val Ours = s 'o' Plain = s 'p' { val N = d '5' } ForceRemove Forced = s 'f' } }"
      u"HKLM { Machine2 = d '3' }";
  ASSERT_EQ(run(kScript, true), S_OK);
  EXPECT_EQ(root.Text(u"Shared", u"Ours"), u"o");
  EXPECT_EQ(root.Text(u"Shared\\Plain", u""), u"p");
  EXPECT_EQ(root.Dword(u"Shared\\Plain", u"N"), 5u);
  EXPECT_EQ(root.Dword(u"Machine\\Machine2", u""), 3u);
  // ForceRemove clears what an older version left; a plain key is merged into.
  for (const char16_t* key : {u"Shared", u"Shared\\Plain", u"Shared\\Forced"}) foreign(key);
  ASSERT_EQ(run(kScript, true), S_OK);
  EXPECT_EQ(root.Text(u"Shared\\Forced", u"Foreign"), u"<missing>");
  EXPECT_EQ(root.Text(u"Shared\\Forced", u""), u"f");
  EXPECT_EQ(root.Dword(u"Shared\\Plain", u"Foreign"), 7u);
  // Removal takes our keys whole, and of a NoRemove key only our values.
  ASSERT_EQ(run(kScript, false), S_OK);
  EXPECT_EQ(root.Text(u"Shared", u"Ours"), u"<missing>");
  EXPECT_EQ(root.Dword(u"Shared", u"Foreign"), 7u);
  EXPECT_FALSE(root.Exists(u"Shared\\Plain") || root.Exists(u"Shared\\Forced") || root.Exists(u"Machine\\Machine2"));
  EXPECT_EQ(run(kScript, false), S_OK);  // what is gone counts as removed
  // Delete takes a key away on registration only, and makes nothing.
  foreign(u"Old\\Deeper");
  ASSERT_EQ(run(u"HKCR { Delete Old { New } }", true), S_OK);
  EXPECT_FALSE(root.Exists(u"Old"));
  foreign(u"Old");
  ASSERT_EQ(run(u"HKCR { Delete Old }", false), S_OK);
  EXPECT_TRUE(root.Exists(u"Old"));

  // A root name longer than any key name: the store refuses to make it.
  ZORRegistrarScript script;
  ASSERT_TRUE(script.Parse(u"HKCR { A { B } C }", {}));
  const HRESULT hr = ZORRegistrar(root.Path() + u"\\" + std::u16string(300, u'x'), u"").Register(script);
  EXPECT_EQ(static_cast<uint32_t>(hr) & 0xFFFF0000u, 0x80070000u);
  EXPECT_FALSE(root.Exists(u"C"));
}

}  // namespace
