#include "monitor/zorvistainputmonitorbase.h"

#include <string_view>

#include "core/zorlog.h"
#include "monitor/zoraudiodevicehelpers.h"

namespace {

char16_t Folded(char16_t c) { return c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - u'a' + u'A') : c; }

bool EqualsIgnoringCase(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (Folded(a[i]) != Folded(b[i])) return false;
  }
  return true;
}

}  // namespace

ZORVistaInputMonitorBase::~ZORVistaInputMonitorBase() {
  // The derived destructor has closed; this only guards a thread left over.
  if (m_thread.Holds()) StopThread();
}

bool ZORVistaInputMonitorBase::EnumDevices(DeviceCallback callback, void* context) {
  m_devices.clear();
  ZORComPtr<IMMDeviceEnumerator> enumerator;
  if (FAILED(CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                              enumerator.PutVoid()))) {
    return false;
  }
  ZORComPtr<IMMDeviceCollection> collection;
  UINT count = 0;
  if (FAILED(enumerator->EnumAudioEndpoints(eCapture, DEVICE_STATE_ACTIVE, collection.Put())) ||
      FAILED(collection->GetCount(&count))) {
    return false;
  }
  for (UINT index = 0; index < count; ++index) {
    ZORComPtr<IMMDevice> device;
    if (FAILED(collection->Item(index, device.Put())) || !device) break;
    m_devices.push_back(device);
    if (!callback) continue;
    LPWSTR id = nullptr;
    if (FAILED(device->GetId(&id)) || !id) break;
    callback(id, context);
    CoTaskMemFree(id);
  }
  return !m_devices.empty();
}

IMMDevice* ZORVistaInputMonitorBase::FindDevice(const char16_t* name) {
  Close();
  EnumDevices(nullptr, nullptr);
  if (!name) return nullptr;
  for (const ZORComPtr<IMMDevice>& device : m_devices) {
    if (EqualsIgnoringCase(ZORAudioDeviceFriendlyName(device.Get()), name)) return device.Get();
    LPWSTR id = nullptr;
    if (FAILED(device->GetId(&id)) || !id) continue;
    const bool matches = EqualsIgnoringCase(zor::com::FromComText(id), name);
    CoTaskMemFree(id);
    if (matches) return device.Get();
  }
  return nullptr;
}

bool ZORVistaInputMonitorBase::ChangeState(uint32_t to) {
  if (!CanChangeState(m_state, to)) return false;
  m_state = to;
  return true;
}

bool ZORVistaInputMonitorBase::StartThread(zor::os::ThreadEntry entry) {
  if (m_thread.Holds()) return true;
  m_stopEvent.Reset();
  return m_thread.Start(entry, this);
}

bool ZORVistaInputMonitorBase::StopThread() {
  if (!m_thread.Holds()) return true;
  m_stopEvent.Set();
  if (m_thread.Join(kStopWaitMs)) {
    m_stopEvent.Reset();
    return true;
  }
  ZOR_LOG("Reading thread ignored its stop for %u ms\n", static_cast<unsigned>(kStopWaitMs));
  if (!m_thread.Terminate(0xFFFFFFFFu)) m_thread.Join(zor::os::kInfinite);
  m_stopEvent.Reset();
  return false;
}
