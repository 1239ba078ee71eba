#include "module/zorregistrar.h"

#include <gtest/gtest.h>

#include "moduletesting.h"

namespace {

using velapo::test::ClassesRoot;
using zor::os::RegKey;

class ZORRegistrarTest : public ::testing::Test {
 protected:
  HRESULT Run(std::u16string_view text, bool doRegister) {
    ZORRegistrarScript script;
    EXPECT_TRUE(script.Parse(text, {})) << script.Error();
    const ZORRegistrar registrar(m_root.Path(), m_root.Path(u"Machine"));
    return doRegister ? registrar.Register(script) : registrar.Unregister(script);
  }
  void WriteForeign(std::u16string_view relative) {
    RegKey key;
    ASSERT_EQ(RegKey::Create(m_root.Path(relative), zor::os::kKeyAllAccess, key), zor::os::RegStatus::Ok);
    ASSERT_EQ(key.WriteDword(u"Foreign", 7), zor::os::RegStatus::Ok);
  }

  ClassesRoot m_root;
};

constexpr char16_t kScript[] =
    u"HKCR { NoRemove Shared { val Ours = s 'o' Plain = s 'p' { val N = d '5' }"
    u"                          ForceRemove Forced = s 'f' } }"
    u"HKLM { Machine2 = d '3' }";

TEST_F(ZORRegistrarTest, RegistersEveryKeyAndValueWithItsType) {
  ASSERT_EQ(Run(kScript, true), S_OK);
  EXPECT_EQ(m_root.Text(u"Shared", u"Ours"), u"o");
  EXPECT_EQ(m_root.Text(u"Shared\\Plain", u""), u"p");
  EXPECT_EQ(m_root.Text(u"Shared\\Forced", u""), u"f");
  RegKey key;
  ASSERT_EQ(RegKey::Open(m_root.Path(u"Shared\\Plain"), zor::os::kKeyRead, key), zor::os::RegStatus::Ok);
  uint32_t number = 0;
  EXPECT_EQ(key.ReadDword(u"N", number), zor::os::RegStatus::Ok);
  EXPECT_EQ(number, 5u);
  ASSERT_EQ(RegKey::Open(m_root.Path(u"Machine\\Machine2"), zor::os::kKeyRead, key), zor::os::RegStatus::Ok);
  EXPECT_EQ(key.ReadDword(u"", number), zor::os::RegStatus::Ok);
  EXPECT_EQ(number, 3u);
}

// ForceRemove clears what an older registration left; a plain key is
// merged into; removal takes our keys whole, leaves a NoRemove key and what
// others keep in it.
TEST_F(ZORRegistrarTest, ReRegistrationAndRemovalKeepTheModifiersRules) {
  ASSERT_EQ(Run(kScript, true), S_OK);
  WriteForeign(u"Shared");
  WriteForeign(u"Shared\\Plain");
  WriteForeign(u"Shared\\Forced");
  ASSERT_EQ(Run(kScript, true), S_OK);
  EXPECT_EQ(m_root.Text(u"Shared\\Forced", u"Foreign"), u"<missing>");
  EXPECT_EQ(m_root.Text(u"Shared\\Plain", u"Foreign"), u"<type>");
  RegKey key;
  ASSERT_EQ(RegKey::Open(m_root.Path(u"Shared\\Forced"), zor::os::kKeyRead, key), zor::os::RegStatus::Ok);
  EXPECT_EQ(velapo::test::ValueNames(key), std::set<std::u16string>{u""});

  ASSERT_EQ(Run(kScript, false), S_OK);
  EXPECT_TRUE(m_root.Exists(u"Shared"));
  EXPECT_EQ(m_root.Text(u"Shared", u"Ours"), u"<missing>");
  EXPECT_EQ(m_root.Text(u"Shared", u"Foreign"), u"<type>");
  EXPECT_FALSE(m_root.Exists(u"Shared\\Plain"));
  EXPECT_FALSE(m_root.Exists(u"Shared\\Forced"));
  EXPECT_FALSE(m_root.Exists(u"Machine\\Machine2"));
  // What is gone already counts as removed.
  EXPECT_EQ(Run(kScript, false), S_OK);
  // Delete takes a key away on registration only, and makes nothing.
  WriteForeign(u"Old\\Deeper");
  ASSERT_EQ(Run(u"HKCR { Delete Old { New } }", true), S_OK);
  EXPECT_FALSE(m_root.Exists(u"Old"));
  WriteForeign(u"Old");
  ASSERT_EQ(Run(u"HKCR { Delete Old }", false), S_OK);
  EXPECT_TRUE(m_root.Exists(u"Old"));
}

TEST_F(ZORRegistrarTest, AStoreFailureEndsRegistrationAsAWin32Result) {
  // A root name longer than any key name: the store refuses to make it.
  ZORRegistrarScript script;
  ASSERT_TRUE(script.Parse(u"HKCR { A { B } C }", {}));
  const ZORRegistrar registrar(m_root.Path() + u"\\" + std::u16string(300, u'x'), u"");
  const HRESULT hr = registrar.Register(script);
  EXPECT_TRUE(FAILED(hr));
  EXPECT_EQ(static_cast<uint32_t>(hr) & 0xFFFF0000u, 0x80070000u);
  EXPECT_FALSE(m_root.Exists(u"C"));
  EXPECT_EQ(ZORHresultFromRegStatus(zor::os::RegStatus::NotFound), static_cast<HRESULT>(0x80070002u));
  EXPECT_EQ(ZORHresultFromRegStatus(zor::os::RegStatus::Ok), S_OK);
}

}  // namespace
