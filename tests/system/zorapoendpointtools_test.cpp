#include "system/zorapoendpointtools.h"

#include <gtest/gtest.h>

#include "endpointfixture.h"
#include "endpointrecorder.h"

namespace {

using velapo::test::EndpointRecorder;
using velapo::test::EndpointStore;
using Tools = ZORAPOEndpointTools;

using EndpointTools = EndpointStore;

TEST_F(EndpointTools, UnregisteredObserversHearNothingAndComeBackWithoutASecondEntry) {
  Tools tools;
  EndpointRecorder kept;
  EndpointRecorder dropped;
  tools.Register(&kept);
  tools.Register(&dropped);
  tools.Unregister(&dropped);
  tools.Broadcast(Tools::kEventDeviceActive);
  EXPECT_EQ(kept.WaitFor(1), std::vector<int32_t>{2});
  EXPECT_TRUE(dropped.WaitFor(0).empty());
  tools.Register(&dropped);
  EXPECT_EQ(tools.ObserverEntries(), 2u);
  tools.Broadcast(Tools::kEventDefaultChanged);
  EXPECT_EQ(dropped.WaitFor(1), std::vector<int32_t>{0});
}

// Callbacks arriving while the worker is busy collapse into the later code; nothing else is pending.
TEST_F(EndpointTools, CallbacksBecomeCodesOnTheWorkerAndCollapseWhileItIsBusy) {
  Tools tools;
  EndpointRecorder recorder;
  recorder.HoldFirst();
  tools.Register(&recorder);
  const PROPERTYKEY otherFormat = {IID_IMMDevice, 5};
  const PROPERTYKEY otherId = {PKEY_AudioEndpoint_Disable_SysFx.fmtid, 4};
  const char16_t* id = u"{0.0.0.00000000}.{00000000-0000-0000-0000-000000000000}";

  tools.OnPropertyValueChanged(zor::com::ToComText(id), PKEY_AudioEndpoint_Disable_SysFx);
  ASSERT_TRUE(recorder.entered.Wait(10000));
  tools.OnDeviceStateChanged(zor::com::ToComText(id), 0x10);
  tools.OnDeviceStateChanged(zor::com::ToComText(id), DEVICE_STATE_UNPLUGGED);
  tools.OnDefaultDeviceChanged(eRender, eConsole, zor::com::ToComText(id));
  tools.OnPropertyValueChanged(zor::com::ToComText(id), otherFormat);
  tools.OnPropertyValueChanged(zor::com::ToComText(id), otherId);
  EXPECT_EQ(tools.OnDeviceAdded(zor::com::ToComText(id)), S_OK);
  EXPECT_EQ(tools.OnDeviceRemoved(zor::com::ToComText(id)), S_OK);
  recorder.release.Set();
  EXPECT_EQ(recorder.WaitFor(2), (std::vector<int32_t>{3, 0}));
  tools.OnDeviceStateChanged(zor::com::ToComText(id), DEVICE_STATE_ACTIVE);
  EXPECT_EQ(recorder.WaitFor(3), (std::vector<int32_t>{3, 0, 2}));
}

TEST_F(EndpointTools, InitFxPropertiesCreatesMissingKeysOnlyWhenSwitchedOn) {
  const std::u16string render = Endpoint(velapo::test::FreshEndpointGuid(), true);
  const std::u16string capture = Endpoint(velapo::test::FreshEndpointGuid(), false);
  WriteDword(render, u"DeviceState", DEVICE_STATE_ACTIVE);
  WriteDword(capture, u"DeviceState", DEVICE_STATE_ACTIVE);
  WriteText(render + u"\\FxProperties", u"Kept", u"yes");
  const auto exists = [](const std::u16string& path) {
    zor::os::RegKey key;
    return zor::os::RegKey::Open(path, zor::os::kKeyQueryValue, key) == zor::os::RegStatus::Ok;
  };
  const auto hasFx = [&](const std::u16string& endpoint) { return exists(endpoint + u"\\FxProperties"); };
  const std::u16string settings(ZORAPOEndpointInfo::kDefaultSettingsRoot);
  if (!exists(settings)) Forget(settings);

  EXPECT_TRUE(InitFxProperties());
  EXPECT_FALSE(hasFx(capture));
  WriteDword(settings, u"InitFxProperties", 0);
  EXPECT_TRUE(InitFxProperties());
  EXPECT_FALSE(hasFx(capture));
  WriteDword(settings, u"InitFxProperties", 1);
  EXPECT_TRUE(InitFxProperties());
  EXPECT_TRUE(hasFx(capture));
  zor::os::RegKey kept;
  ASSERT_EQ(zor::os::RegKey::Open(render + u"\\FxProperties", zor::os::kKeyQueryValue, kept), zor::os::RegStatus::Ok);
  uint32_t size = 0;
  zor::os::RegType type{};
  EXPECT_EQ(kept.QueryValue(u"Kept", type, size), zor::os::RegStatus::Ok);
  EXPECT_FALSE(InitFxProperties(u"SOFTWARE\\velapo-missing-key"));

  zor::os::RegKey open;
  if (zor::os::RegKey::Open(settings, zor::os::kKeyAllAccess, open) == zor::os::RegStatus::Ok) {
    open.DeleteValue(u"InitFxProperties");
  }
}

}  // namespace
