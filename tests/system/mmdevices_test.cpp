// The Linux device enumerator: endpoints written into the settings store, and their changes made by another process.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "endpointfixture.h"
#include "endpointrecorder.h"
#include "system/zorapoendpointtools.h"

namespace {

using velapo::test::EndpointRecorder;
using velapo::test::EndpointStore;
using zor::os::RegType;

class StoreEndpoints : public EndpointStore {
 protected:
  std::u16string Add(uint32_t state, bool render = true) {
    const std::u16string guid = velapo::test::FreshEndpointGuid();
    const std::u16string key = Endpoint(guid, render);
    WriteDword(key, u"DeviceState", state);
    WriteDword(key + u"\\FxProperties", zor::com::PropertyKeyText(PKEY_AudioEndpoint_Disable_SysFx), 0);
    return guid;
  }
  // The helper's arguments: the endpoint's key, and its device id.
  static std::string Key(const std::u16string& guid) { return Narrow(std::u16string(kAudio) + u"Render\\" + guid); }
  static std::string Id(const std::u16string& guid) { return Narrow(u"{0.0.0.00000000}." + guid); }
};

TEST_F(StoreEndpoints, OnlyActiveRenderEndpointsAreListedAndTheDefaultIsSetThroughThePolicyClient) {
  ZORAPOEndpointTools tools;
  std::vector<ZORAPOEndpointInfo> endpoints;
  EXPECT_FALSE(tools.GetEndpoints(endpoints));
  const std::u16string first = Add(DEVICE_STATE_ACTIVE);
  const std::u16string second = Add(DEVICE_STATE_ACTIVE);
  // The device's property store reads Properties: text as VT_LPWSTR, numbers passed over.
  WriteDword(Endpoint(second) + u"\\Properties", u"{a45c254e-df1c-4efd-8020-67d146a850e0},4", 5);
  WriteText(Endpoint(second) + u"\\Properties", u"{a45c254e-df1c-4efd-8020-67d146a850e0},3", u"PCI\\subsys_0badf00d");
  for (const uint32_t state : {DEVICE_STATE_DISABLED, DEVICE_STATE_NOTPRESENT, DEVICE_STATE_UNPLUGGED}) Add(state);
  Add(DEVICE_STATE_ACTIVE, false);
  Write(Endpoint(velapo::test::FreshEndpointGuid()), u"DeviceState", RegType::Sz, velapo::test::TextBytes(u"1"));
  WriteText(std::u16string(kAudio) + u"Render\\NotAGuid", u"x", u"y");
  Forget(std::u16string(kAudio) + u"Render\\NotAGuid");

  ASSERT_TRUE(tools.GetEndpoints(endpoints));
  ASSERT_EQ(endpoints.size(), 2u);
  EXPECT_EQ(endpoints[0].GetEndpointGuid().Text(), first);
  EXPECT_EQ(endpoints[1].GetEndpointGuid().Text(), second);
  EXPECT_EQ(endpoints[1].GetDeviceId(), u"{0.0.0.00000000}." + second);
  EXPECT_EQ(endpoints[1].GetSubsystemId(), u"0BADF00D");

  ZORAPOEndpointInfo chosen;
  ASSERT_TRUE(tools.GetDefaultEndpoint(chosen));
  EXPECT_EQ(chosen.GetEndpointGuid().Text(), first);  // none named: the first active one
  ASSERT_TRUE(tools.SetDefaultEndpoint(endpoints[1]));
  ASSERT_TRUE(tools.GetDefaultEndpoint(chosen));
  EXPECT_EQ(chosen.GetEndpointGuid().Text(), second);
}

TEST_F(StoreEndpoints, ChangesByAnotherProcessReachTheObserversAsCodes) {
  const std::u16string endpoint = Add(DEVICE_STATE_ACTIVE);
  const std::u16string other = Add(DEVICE_STATE_ACTIVE);
  WriteText(std::u16string(kAudio) + u"Render", u"DefaultEndpoint", endpoint);
  ZORAPOEndpointTools tools;
  EndpointRecorder recorder;
  tools.Register(&recorder);

  // The state changes go to the endpoint that is not the default, so that
  // the default stays where it is until it is moved on purpose.
  Helper({"set", Key(other), "DeviceState", "8"});
  EXPECT_EQ(recorder.WaitFor(1, true), (std::vector<int32_t>{1}));
  Helper({"set", Key(other), "DeviceState", "1"});
  EXPECT_EQ(recorder.WaitFor(2, true), (std::vector<int32_t>{1, 2}));
  Helper({"sysfx", Id(endpoint), "1"});
  EXPECT_EQ(recorder.WaitFor(3, true), (std::vector<int32_t>{1, 2, 3}));
  // Another property says nothing; the default change after it shows that.
  Helper({"set", Key(endpoint) + "\\FxProperties", Narrow(zor::com::PropertyKeyText(PKEY_Device_DeviceDesc)), "1"});
  Helper({"default", Id(other)});
  EXPECT_EQ(recorder.WaitFor(4, true), (std::vector<int32_t>{1, 2, 3, 0}));
}

// The settings key: written by the store's group, closed to users outside it.
TEST_F(StoreEndpoints, TheSettingsKeyIsSharedByTheStoresGroupAndClosedToOthers) {
  if (::geteuid() != 0) GTEST_SKIP() << "acting as other users needs root";
  const std::string group = "54321";
  ASSERT_EQ(::chown(m_area.Root().c_str(), 0, 54321), 0);
  ASSERT_EQ(::chmod(m_area.Root().c_str(), 02775), 0);
  const std::u16string guid = Add(DEVICE_STATE_ACTIVE), root(ZORAPOEndpointInfo::kDefaultSettingsRoot);
  const std::string settings = Narrow(root + u"\\" + guid);
  EXPECT_EQ(RunHelper({"as", "54001", group, "sysfx", Id(guid), "0"}), 0);  // the engine's account refreshes
  EXPECT_EQ(RunHelper({"as", "54002", group, "set", settings, "VelApoPanel", "1"}), 0);
  EXPECT_EQ(RunHelper({"as", "54003", "54999", "peek", Narrow(root)}), 0);
  EXPECT_EQ(RunHelper({"as", "54003", "54999", "set", settings, "VelApoPanel", "1"}), 3);
}

}  // namespace
