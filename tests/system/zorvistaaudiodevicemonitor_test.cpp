// The capture-device monitor: its codes, its COM identity, the first report
// of the devices present and changes made by another process, and a slow
// callback racing the monitor's end.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "endpointfixture.h"
#include "monitor/zorvistaaudiodevicemonitor.h"

namespace {

using Monitor = ZORVistaAudioDeviceMonitor;
using Heard = std::vector<std::pair<std::u16string, uint32_t>>;

// Records (id, code) pairs; optionally lingers in every call.
struct Recorder {
  std::mutex mutex;
  std::condition_variable changed;
  Heard heard;
  std::chrono::milliseconds linger{0};
  std::atomic<int> inFlight{0}, calls{0};

  static void Callback(LPCWSTR id, uint32_t code, void* context) {
    auto* self = static_cast<Recorder*>(context);
    ++self->inFlight, ++self->calls;
    {
      const std::lock_guard<std::mutex> lock(self->mutex);
      self->heard.emplace_back(zor::com::FromComText(id), code);
    }
    self->changed.notify_all();
    std::this_thread::sleep_for(self->linger);
    --self->inFlight;
  }
  // The codes heard for `id` other than `ignored`, once `count` came (or 10 s passed).
  std::vector<uint32_t> CodesOf(const std::u16string& id, size_t count, uint32_t ignored = UINT32_MAX) {
    std::unique_lock<std::mutex> lock(mutex);
    std::vector<uint32_t> codes;
    changed.wait_for(lock, std::chrono::seconds(10), [&] {
      codes.clear();
      for (const auto& [heardId, code] : heard) {
        if (heardId == id && code != ignored) codes.push_back(code);
      }
      return codes.size() >= count;
    });
    return codes;
  }
};

TEST(ZORVistaAudioDeviceMonitor, StatesHaveTheirCodesAndTheObjectIsNotCounted) {
  const std::pair<DWORD, uint32_t> codes[] = {
      {DEVICE_STATE_ACTIVE, Monitor::kActive},         {DEVICE_STATE_DISABLED, Monitor::kDisabled},
      {DEVICE_STATE_NOTPRESENT, Monitor::kNotPresent}, {DEVICE_STATE_UNPLUGGED, Monitor::kUnplugged},
      {0, Monitor::kOtherState},                       {3, Monitor::kOtherState},
      {16, Monitor::kOtherState},                      {0xFFFFFFFF, Monitor::kOtherState},
  };
  for (const auto& [state, code] : codes) EXPECT_EQ(Monitor::CodeOfState(state), code) << state;
  Monitor monitor;
  EXPECT_EQ(monitor.AddRef(), 2u);
  EXPECT_EQ(monitor.Release(), 1u);
  void* answer = nullptr;
  EXPECT_EQ(monitor.QueryInterface(IID_IUnknown, &answer), S_OK);
  EXPECT_EQ(answer, static_cast<IMMNotificationClient*>(&monitor));
  EXPECT_EQ(monitor.QueryInterface(IID_IMMNotificationClient, &answer), S_OK);
  EXPECT_EQ(monitor.QueryInterface(IID_IMMDevice, &answer), E_NOINTERFACE);
  EXPECT_EQ(answer, nullptr);
  EXPECT_EQ(monitor.QueryInterface(IID_IUnknown, nullptr), E_POINTER);
  // Without a callback a notification is answered and does nothing.
  EXPECT_EQ(monitor.OnDeviceAdded(zor::com::ToComText(u"x")), S_OK);
  EXPECT_EQ(monitor.OnDefaultDeviceChanged(eCapture, eConsole, nullptr), S_OK);
}

#if !defined(_WIN32)  // Wine delivers no notifications for endpoints written to its registry
class DeviceMonitorStore : public velapo::test::EndpointStore {
 protected:
  std::u16string AddCapture(uint32_t state) {
    const std::u16string guid = velapo::test::FreshEndpointGuid();
    WriteDword(Endpoint(guid, false), u"DeviceState", state);
    return CaptureId(guid);
  }
  static std::u16string CaptureId(const std::u16string& guid) { return u"{0.0.1.00000000}." + guid; }
};

// The first report, before SetDeviceCallback returns, is every capture endpoint
// present (render ones are not). Then each change waits for its report; the
// "active" that may follow an addition is not counted.
TEST_F(DeviceMonitorStore, TheDevicesPresentThenAnotherProcessesChangesArriveInOrder) {
  Heard present;
  for (const uint32_t state : {DEVICE_STATE_ACTIVE, DEVICE_STATE_DISABLED, DEVICE_STATE_UNPLUGGED, DEVICE_STATE_NOTPRESENT}) {
    present.emplace_back(AddCapture(state), Monitor::CodeOfState(state));
  }
  WriteDword(Endpoint(velapo::test::FreshEndpointGuid()), u"DeviceState", DEVICE_STATE_ACTIVE);
  Recorder recorder;
  Monitor monitor;
  ASSERT_TRUE(monitor.SetDeviceCallback(&Recorder::Callback, &recorder));
  {
    const std::lock_guard<std::mutex> lock(recorder.mutex);
    EXPECT_EQ(recorder.heard, present);
  }
  const std::u16string guid = velapo::test::FreshEndpointGuid();
  const std::string key = Narrow(Endpoint(guid, false));  // removed after the test, whatever happens
  const std::pair<std::vector<std::string>, uint32_t> steps[] = {
      {{"create", key, "DeviceState", "1"}, Monitor::kAdded},
      {{"set", key, "DeviceState", "2"}, Monitor::kDisabled},
      {{"set", key, "DeviceState", "8"}, Monitor::kUnplugged},
      {{"remove", key}, Monitor::kRemoved}};
  std::vector<uint32_t> expected;
  for (const auto& [change, code] : steps) {
    Helper(change);
    expected.push_back(code);
    EXPECT_EQ(recorder.CodesOf(CaptureId(guid), expected.size(), Monitor::kActive), expected) << change[0];
  }
}

// A callback still running when the monitor dies: the destructor waits for
// it, and nothing is called after. ASan and TSan watch the race.
TEST_F(DeviceMonitorStore, ASlowCallbackFinishesBeforeTheMonitorIsGone) {
  const std::u16string guid = velapo::test::FreshEndpointGuid();
  const std::u16string key = Endpoint(guid, false);
  WriteDword(key, u"DeviceState", DEVICE_STATE_ACTIVE);
  for (int round = 0; round < 4; ++round) {
    Recorder recorder;
    recorder.linger = std::chrono::milliseconds(150);
    auto monitor = std::make_unique<Monitor>();
    ASSERT_TRUE(monitor->SetDeviceCallback(&Recorder::Callback, &recorder));
    WriteDword(key, u"DeviceState", round % 2 == 0 ? DEVICE_STATE_DISABLED : DEVICE_STATE_ACTIVE);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (recorder.inFlight == 0 && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    ASSERT_EQ(recorder.inFlight, 1) << "the change was not reported";
    monitor.reset();
    EXPECT_EQ(recorder.inFlight, 0);
    const int after = recorder.calls;
    WriteDword(key, u"DeviceState", DEVICE_STATE_UNPLUGGED);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(recorder.calls, after);
  }
}
#endif

}  // namespace
