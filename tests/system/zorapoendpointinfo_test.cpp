#include "system/zorapoendpointinfo.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "config/zorapomodulepaths.h"
#include "endpointfixture.h"

namespace {

using velapo::test::EndpointStore;
using velapo::test::FakeDevice;
using zor::os::RegType;

const std::u16string kRow(std::u16string_view pid) {
  return u"{7A8B74C8-FA66-4460-8542-D6119C59E9D4}," + std::u16string(pid);
}
constexpr char16_t kSysFx[] = u"{1da5d803-d492-4edd-8c23-e0c0ffee7f0e},5";
constexpr char16_t kStream[] = u"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},5";
constexpr char16_t kMode[] = u"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},6";
constexpr char16_t kCompositeStream[] = u"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},13";
constexpr char16_t kClsidA[] = u"{11111111-2222-3333-4444-555555555555}";
constexpr char16_t kClsidB[] = u"{AAAAAAAA-BBBB-CCCC-DDDD-EEEEEEEEEEEE}";
const PROPERTYKEY kHardwareIds = {{0xa45c254e, 0xdf1c, 0x4efd, {0x80, 0x20, 0x67, 0xd1, 0x46, 0xa8, 0x50, 0xe0}}, 3};

std::u16string Beside(std::u16string_view name) {
  return GetModuleDirectory(kZORModuleHost) +
         static_cast<char16_t>(std::filesystem::path::preferred_separator) + std::u16string(name);
}

class EndpointInfo : public EndpointStore {
 protected:
  // Writes the endpoint's keys by `write`, then gives a fresh info on a device of that endpoint its Refresh.
  bool RefreshWith(const std::function<void(const std::u16string& endpoint)>& write, bool render = true,
                   std::vector<std::pair<PROPERTYKEY, std::u16string>> texts = {}) {
    m_guid = velapo::test::FreshEndpointGuid();
    const std::u16string endpoint = Endpoint(m_guid, render);
    write(endpoint);
    m_info.reset();
    m_device = std::make_unique<FakeDevice>(
        (render ? u"{0.0.0.00000000}." : u"{0.0.1.00000000}.") + m_guid, std::move(texts));
    m_info = std::make_unique<ZORAPOEndpointInfo>();
    return m_info->SetDevice(m_device.get(), render);
  }

  std::u16string m_guid;
  // Declared after the device, so that it goes first.
  std::unique_ptr<FakeDevice> m_device;
  std::unique_ptr<ZORAPOEndpointInfo> m_info;
};

TEST_F(EndpointInfo, WithoutKeysRefreshFailsYetTheDefaultsStand) {
  EXPECT_FALSE(RefreshWith([](const std::u16string&) {}));
  EXPECT_EQ(m_info->GetEndpointGuid().Text(), m_guid);
  EXPECT_EQ(m_info->GetSettingsKeyPath(), u"Software\\VEL\\APO\\" + m_guid);
  EXPECT_EQ(m_info->GetOemValue1(), GetModuleDirectory(kZORModuleHost));
  EXPECT_EQ(m_info->GetConfigPath(), GetDefaultConfigPath());
  EXPECT_TRUE(m_info->GetPresetsSwitch().empty());
  EXPECT_FALSE(m_info->IsSysFxDisabled());
  EXPECT_FALSE(ZORAPOEndpointInfo().Refresh());
}

TEST_F(EndpointInfo, RowsFollowTheirDefaultsAndTieBreaks) {
  struct Case {
    const char* what;
    std::function<void(EndpointStore&, const std::u16string&)> write;
    bool refreshed;
    std::function<bool(const ZORAPOEndpointInfo&)> holds;
  };
  const auto props = [](const std::u16string& e) { return e + u"\\Properties"; };
  const auto fx = [](const std::u16string& e) { return e + u"\\FxProperties"; };
  const Case cases[] = {
      {"FxProperties without the switch disables system effects",
       [&](EndpointStore&, const std::u16string& e) { WriteText(fx(e), kStream, kClsidA); }, true,
       [](const ZORAPOEndpointInfo& i) { return i.IsSysFxDisabled(); }},
      {"a switch of 0 enables them",
       [&](EndpointStore&, const std::u16string& e) { WriteDword(fx(e), kSysFx, 0); }, true,
       [](const ZORAPOEndpointInfo& i) { return !i.IsSysFxDisabled(); }},
      {"a REG_QWORD in Properties fails at once, before any default",
       [&](EndpointStore&, const std::u16string& e) {
         Write(props(e), kRow(u"3"), RegType::Qword, std::vector<uint8_t>(8, 1));
       },
       false, [](const ZORAPOEndpointInfo& i) { return i.GetSettingsKeyPath().empty(); }},
      {"an unreadable FxProperties leaves the switch off and keeps what Properties gave",
       [&](EndpointStore&, const std::u16string& e) {
         WriteText(props(e), kRow(u"0"), u"Software\\Mine");
         Write(fx(e), kSysFx, RegType::Sz, {0x31, 0x00, 0x00});
       },
       true, [](const ZORAPOEndpointInfo& i) { return !i.IsSysFxDisabled() && i.GetSettingsKeyPath() == u"Software\\Mine"; }},
      {"the device key beats the fallback key, which fills the rest",
       [&](EndpointStore&, const std::u16string& e) {
         WriteText(props(e), kRow(u"0"), u"Software\\Device");
         WriteText(props(e), kRow(u"5"), e + u"\\Fallback");
         WriteText(e + u"\\Fallback", kRow(u"0"), u"Software\\Fallback");
         WriteText(e + u"\\Fallback", kRow(u"3"), u"oem3");
       },
       true, [](const ZORAPOEndpointInfo& i) { return i.GetSettingsKeyPath() == u"Software\\Device" && i.GetOemValue3() == u"oem3"; }},
      {"a composite CLSID overrides the plain one, first of a list",
       [&](EndpointStore&, const std::u16string& e) {
         WriteText(fx(e), kStream, kClsidA);
         Write(fx(e), kCompositeStream, RegType::MultiSz,
               velapo::test::TextBytes(std::u16string(kClsidB) + u'\0' + kClsidA + u'\0'));
       },
       true, [](const ZORAPOEndpointInfo& i) { return i.GetEffectClsid(ZORAPOEndpointInfo::kStreamEffect).Text() == kClsidB; }},
      {"the display name is adapter, blank, description",
       [&](EndpointStore&, const std::u16string& e) {
         WriteText(props(e), u"{b3f8fa53-0004-438e-9003-51a46e139bfc},6", u"Card");
         WriteText(props(e), u"{a45c254e-df1c-4efd-8020-67d146a850e0},2", u"Speakers");
       },
       true, [](const ZORAPOEndpointInfo& i) { return i.GetDisplayName() == u"Card Speakers"; }},
      {"a named velconfig.xml that is missing falls back to velconfig_WIN10.xml",
       [&](EndpointStore&, const std::u16string& e) { WriteText(props(e), kRow(u"2"), Beside(u"velconfig.xml")); },
       true, [](const ZORAPOEndpointInfo& i) { return i.GetConfigPath() == Beside(u"velconfig_WIN10.xml"); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(RefreshWith([&](const std::u16string& e) { c.write(*this, e); }), c.refreshed);
    EXPECT_TRUE(c.holds(*m_info));
  }
}

TEST_F(EndpointInfo, PresetsFileReplacesOnlyTheDefaultConfigurationOfARenderEndpoint) {
  const std::u16string subsystem = u"1A2B" + velapo::test::FreshEndpointGuid().substr(1, 4);
  const std::u16string hardwareId = u"HDAUDIO\\FUNC_01&VEN_10EC&DEV_0257&subsys_" + subsystem + u"&REV_1000";
  for (const std::u16string_view suffix : {u"", u"_81"}) {
    std::ofstream(std::filesystem::path(Beside(u"presets_" + subsystem + std::u16string(suffix) + u".xml"))) << "<x/>";
  }
  struct Case {
    bool render;
    bool explicitConfig;
    bool modeEffect;
    bool switchSet;
    const char16_t* expectedSuffix;  // null: the configuration is not a presets file
  };
  const Case cases[] = {
      {true, false, false, true, u""},     {true, false, true, true, u"_81"}, {false, false, false, true, nullptr},
      {true, true, false, true, nullptr}, {true, false, false, false, nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.render << c.explicitConfig << c.modeEffect << c.switchSet);
    RefreshWith(
        [&](const std::u16string& e) {
          WriteText(e + u"\\Properties", kRow(u"4"), c.switchSet ? u"on" : u"");
          if (c.explicitConfig) WriteText(e + u"\\Properties", kRow(u"2"), u"/elsewhere.xml");
          if (c.modeEffect) WriteText(e + u"\\FxProperties", kMode, kClsidA);
        },
        c.render, {{kHardwareIds, hardwareId}});
    const std::u16string presets = Beside(u"presets_" + subsystem + (c.expectedSuffix ? c.expectedSuffix : u"") + u".xml");
    EXPECT_EQ(m_info->GetConfigPath() == presets, c.expectedSuffix != nullptr);
  }
  for (const std::u16string_view suffix : {u"", u"_81"}) {
    std::filesystem::remove(std::filesystem::path(Beside(u"presets_" + subsystem + std::u16string(suffix) + u".xml")));
  }
  // Without SUBSYS_ among the device's texts there is no presets path.
  RefreshWith([](const std::u16string&) {}, true, {{kHardwareIds, u"USB\\VID_1234&PID_5678"}});
  EXPECT_TRUE(m_info->GetSubsystemId().empty());
  EXPECT_TRUE(m_info->GetPresetsPath().empty());
}

}  // namespace
