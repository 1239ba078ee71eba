#include "platform/posix/mmdevices.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/comobject.h"
#include "platform/event.h"
#include "platform/littleendian.h"
#include "platform/posix/alsacapture.h"
#include "platform/threadpriority.h"

namespace zor::os {
namespace {

constexpr std::u16string_view kAudioPath = u"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio";
constexpr std::u16string_view kFlowNames[2] = {u"Render", u"Capture"};
constexpr std::u16string_view kIdPrefixes[2] = {u"{0.0.0.00000000}.", u"{0.0.1.00000000}."};
constexpr std::u16string_view kDeviceStateName = u"DeviceState";
constexpr std::u16string_view kDefaultName = u"DefaultEndpoint";
// The capture key's own default for communications, which the voice helpers
// read; where it names no active endpoint the common default stands.
constexpr std::u16string_view kCommunicationsDefaultName = u"DefaultCommunicationsEndpoint";
constexpr std::u16string_view kPropertyKeys[2] = {u"Properties", u"FxProperties"};
constexpr uint32_t kReadAccess = kKeyQueryValue | kKeyEnumerateSubKeys;

std::u16string FlowPath(int flow) { return std::u16string(kAudioPath) + u"\\" + std::u16string(kFlowNames[flow]); }

std::u16string Folded(std::u16string_view text) {
  std::u16string folded(text);
  for (char16_t& c : folded) {
    if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - u'a' + u'A');
  }
  return folded;
}

// The endpoint GUID behind the last '.' of an id (all of it without one).
std::u16string_view GuidPartOf(std::u16string_view id) {
  const size_t dot = id.rfind(u'.');
  return dot == std::u16string_view::npos ? id : id.substr(dot + 1);
}

bool IsGuidText(std::u16string_view text) {
  GUID ignored;
  return com::ParseGuidText(text, ignored);
}

// The state a device key says; a missing or mistyped DeviceState reads as
// not present, so such an endpoint is never listed as active.
DWORD ReadState(const RegKey& device) {
  uint32_t state = 0;
  return device.ReadDword(kDeviceStateName, state) == RegStatus::Ok ? state : DEVICE_STATE_NOTPRESENT;
}


template <typename Object>
HRESULT Hand(Object* object, REFIID riid, void** ppv) {
  const HRESULT hr = object->QueryInterface(riid, ppv);
  object->Release();
  return hr;
}

// ---- Property store ------------------------------------------------------------

struct StoredProperty {
  PROPERTYKEY key;
  RegType type;
  std::vector<uint8_t> data;
};

// A read-only snapshot of a Properties key taken when it is opened, as the
// system's store reads its device's properties once.
class PropertyStore final : public ComObject<IPropertyStore> {
 public:
  explicit PropertyStore(std::vector<StoredProperty> properties)
      : ComObject(IID_IPropertyStore), m_properties(std::move(properties)) {}

  HRESULT STDMETHODCALLTYPE GetCount(DWORD* count) override {
    if (!count) return E_POINTER;
    *count = static_cast<DWORD>(m_properties.size());
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetAt(DWORD index, PROPERTYKEY* key) override {
    if (!key) return E_POINTER;
    if (index >= m_properties.size()) return E_INVALIDARG;
    *key = m_properties[index].key;
    return S_OK;
  }
  // A key the store does not hold reads as VT_EMPTY, as on Windows.
  HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT* value) override {
    if (!value) return E_POINTER;
    PropVariantInit(value);
    for (const StoredProperty& property : m_properties) {
      if (com::PropertyKeysEqual(property.key, key)) {
        return PropVariantFromRegistry(property.type, property.data, *value) ? S_OK : E_FAIL;
      }
    }
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetValue(REFPROPERTYKEY, REFPROPVARIANT) override { return STG_E_ACCESSDENIED; }
  HRESULT STDMETHODCALLTYPE Commit() override { return STG_E_ACCESSDENIED; }

 private:
  std::vector<StoredProperty> m_properties;
};

// Every value of the key that is named as a property key and reads as a
// variant; others are not properties and are passed over.
std::vector<StoredProperty> ReadProperties(const std::u16string& path) {
  std::vector<StoredProperty> properties;
  RegKey key;
  if (RegKey::Open(path, kKeyQueryValue, key) != RegStatus::Ok) return properties;
  std::u16string name;
  for (uint32_t index = 0; key.EnumValue(index, name) == RegStatus::Ok; ++index) {
    StoredProperty property{};
    if (!com::ParsePropertyKeyText(name, property.key)) continue;
    if (key.ReadValue(name, property.type, property.data) != RegStatus::Ok) continue;
    PROPVARIANT probe;
    if (!PropVariantFromRegistry(property.type, property.data, probe)) continue;
    PropVariantClear(&probe);
    properties.push_back(std::move(property));
  }
  return properties;
}

// ---- Devices -------------------------------------------------------------------

class Device final : public ComObject<IMMDevice> {
 public:
  Device(int flow, std::u16string keyName)
      : ComObject(IID_IMMDevice),
        m_flow(flow),
        m_path(FlowPath(flow) + u"\\" + keyName),
        m_id(std::u16string(kIdPrefixes[flow]) + keyName) {}

  // Capture endpoints hand out ALSA clients and meters on the device their
  // properties name; render endpoints nothing, since Linux hosts bring their
  // own audio.
  HRESULT STDMETHODCALLTYPE Activate(REFIID riid, DWORD, PROPVARIANT*, void** ppInterface) override {
    if (!ppInterface) return E_POINTER;
    *ppInterface = nullptr;
    if (m_flow != eCapture) return E_NOINTERFACE;
    if (!IsEqualIID(riid, IID_IAudioClient) && !IsEqualIID(riid, IID_IAudioMeterInformation)) return E_NOINTERFACE;
    DWORD state = 0;
    if (FAILED(GetState(&state)) || state != DEVICE_STATE_ACTIVE) return AUDCLNT_E_DEVICE_INVALIDATED;
    ZORComPtr<IPropertyStore> properties;
    OpenPropertyStore(STGM_READ, properties.Put());
    return CreateAlsaCaptureObject(AlsaCaptureEndpointOf(properties.Get()), riid, ppInterface);
  }
  HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD, IPropertyStore** store) override {
    if (!store) return E_POINTER;
    *store = new PropertyStore(ReadProperties(m_path + u"\\Properties"));
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetId(LPWSTR* id) override {
    if (!id) return E_POINTER;
    *id = com::CoTaskMemText(m_id);
    return *id ? S_OK : E_OUTOFMEMORY;
  }
  HRESULT STDMETHODCALLTYPE GetState(DWORD* state) override {
    if (!state) return E_POINTER;
    RegKey key;
    if (RegKey::Open(m_path, kKeyQueryValue, key) != RegStatus::Ok) return E_NOTFOUND;
    *state = ReadState(key);
    return S_OK;
  }

 private:
  int m_flow;
  std::u16string m_path;
  std::u16string m_id;
};

class DeviceCollection final : public ComObject<IMMDeviceCollection> {
 public:
  DeviceCollection() : ComObject(IID_IMMDeviceCollection) {}
  void Add(IMMDevice* device) { m_devices.emplace_back(device); }

  HRESULT STDMETHODCALLTYPE GetCount(UINT* count) override {
    if (!count) return E_POINTER;
    *count = static_cast<UINT>(m_devices.size());
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Item(UINT index, IMMDevice** device) override {
    if (!device) return E_POINTER;
    *device = nullptr;
    if (index >= m_devices.size()) return E_INVALIDARG;
    *device = m_devices[index].Get();
    (*device)->AddRef();
    return S_OK;
  }

 private:
  std::vector<ZORComPtr<IMMDevice>> m_devices;
};

// The endpoint keys of one flow, in the store's order, with their states.
struct EndpointKey {
  std::u16string name;
  DWORD state;
};
std::vector<EndpointKey> ListEndpoints(int flow) {
  std::vector<EndpointKey> endpoints;
  RegKey flowKey;
  if (RegKey::Open(FlowPath(flow), kReadAccess, flowKey) != RegStatus::Ok) return endpoints;
  std::u16string name;
  for (uint32_t index = 0; flowKey.EnumSubKey(index, name) == RegStatus::Ok; ++index) {
    if (!IsGuidText(name)) continue;
    RegKey device;
    if (flowKey.OpenSubKey(name, kKeyQueryValue, device) != RegStatus::Ok) continue;
    endpoints.push_back({name, ReadState(device)});
  }
  return endpoints;
}

// The folded GUID text a flow key's default value names; empty without one.
std::u16string NamedDefault(int flow, std::u16string_view valueName) {
  std::u16string named;
  RegKey flowKey;
  if (RegKey::Open(FlowPath(flow), kKeyQueryValue, flowKey) == RegStatus::Ok) {
    RegType type = RegType::None;
    std::vector<uint8_t> data;
    PROPVARIANT value;
    if (flowKey.ReadValue(valueName, type, data) == RegStatus::Ok &&
        (type == RegType::Sz || type == RegType::ExpandSz) && PropVariantFromRegistry(type, data, value)) {
      named = Folded(GuidPartOf(value.pwszVal));
      PropVariantClear(&value);
    }
  }
  return named;
}

// The default endpoint of a flow: the one DefaultEndpoint names if it is
// active, else the first active one; empty when none is active.
std::u16string ResolveDefault(int flow, const std::vector<EndpointKey>& endpoints) {
  const std::u16string named = NamedDefault(flow, kDefaultName);
  const EndpointKey* first = nullptr;
  for (const EndpointKey& endpoint : endpoints) {
    if (endpoint.state != DEVICE_STATE_ACTIVE) continue;
    if (Folded(endpoint.name) == named) return endpoint.name;
    if (!first) first = &endpoint;
  }
  return first ? first->name : std::u16string();
}

// The active endpoint a flow key's value names; empty when it names none.
std::u16string ActiveNamedBy(int flow, const std::vector<EndpointKey>& endpoints, std::u16string_view valueName) {
  const std::u16string named = NamedDefault(flow, valueName);
  for (const EndpointKey& endpoint : endpoints) {
    if (endpoint.state == DEVICE_STATE_ACTIVE && !named.empty() && Folded(endpoint.name) == named) {
      return endpoint.name;
    }
  }
  return {};
}

// Flow and key name of a device id; false for an id of another form.
bool SplitId(std::u16string_view id, int& flow, std::u16string_view& keyName) {
  for (int f = 0; f < 2; ++f) {
    if (id.size() > kIdPrefixes[f].size() && Folded(id.substr(0, kIdPrefixes[f].size())) == Folded(kIdPrefixes[f])) {
      flow = f;
      keyName = id.substr(kIdPrefixes[f].size());
      return IsGuidText(keyName);
    }
  }
  return false;
}

// ---- Notifications ---------------------------------------------------------------

// What the watcher compares between two looks at the tree.
struct DeviceSnapshot {
  int flow = 0;
  std::u16string id;
  DWORD state = 0;
  std::map<std::u16string, std::pair<RegType, std::vector<uint8_t>>> values;  // folded key path\name
};
struct TreeSnapshot {
  std::map<std::u16string, DeviceSnapshot> devices;  // folded flow\name
  std::u16string defaults[2];
};

TreeSnapshot TakeSnapshot() {
  TreeSnapshot snapshot;
  for (int flow = 0; flow < 2; ++flow) {
    const std::vector<EndpointKey> endpoints = ListEndpoints(flow);
    const std::u16string resolved = ResolveDefault(flow, endpoints);
    if (!resolved.empty()) snapshot.defaults[flow] = std::u16string(kIdPrefixes[flow]) + resolved;
    for (const EndpointKey& endpoint : endpoints) {
      DeviceSnapshot device;
      device.flow = flow;
      device.id = std::u16string(kIdPrefixes[flow]) + endpoint.name;
      device.state = endpoint.state;
      for (const std::u16string_view sub : kPropertyKeys) {
        RegKey key;
        if (RegKey::Open(FlowPath(flow) + u"\\" + endpoint.name + u"\\" + std::u16string(sub), kKeyQueryValue,
                         key) != RegStatus::Ok) {
          continue;
        }
        std::u16string name;
        for (uint32_t index = 0; key.EnumValue(index, name) == RegStatus::Ok; ++index) {
          std::pair<RegType, std::vector<uint8_t>> value;
          if (key.ReadValue(name, value.first, value.second) != RegStatus::Ok) continue;
          device.values[Folded(std::u16string(sub) + u"\\" + name)] = std::move(value);
        }
      }
      snapshot.devices[Folded(std::u16string(kFlowNames[flow]) + u"\\" + endpoint.name)] = std::move(device);
    }
  }
  return snapshot;
}

// Tells `client` what differs from `before` to `after`.
void Report(IMMNotificationClient& client, const TreeSnapshot& before, const TreeSnapshot& after) {
  for (const auto& [name, device] : before.devices) {
    if (!after.devices.contains(name)) client.OnDeviceRemoved(device.id.c_str());
  }
  for (const auto& [name, device] : after.devices) {
    const auto old = before.devices.find(name);
    if (old == before.devices.end()) {
      client.OnDeviceAdded(device.id.c_str());
      continue;
    }
    if (old->second.state != device.state) client.OnDeviceStateChanged(device.id.c_str(), device.state);
    // Every property key whose value appeared, changed or went.
    std::vector<std::u16string> changed;
    for (const auto& [valueName, value] : device.values) {
      const auto was = old->second.values.find(valueName);
      if (was == old->second.values.end() || was->second != value) changed.push_back(valueName);
    }
    for (const auto& [valueName, value] : old->second.values) {
      if (!device.values.contains(valueName)) changed.push_back(valueName);
    }
    for (const std::u16string& valueName : changed) {
      PROPERTYKEY key{};
      const size_t slash = valueName.find(u'\\');
      if (com::ParsePropertyKeyText(std::u16string_view(valueName).substr(slash + 1), key)) {
        client.OnPropertyValueChanged(device.id.c_str(), key);
      }
    }
  }
  for (int flow = 0; flow < 2; ++flow) {
    if (Folded(before.defaults[flow]) == Folded(after.defaults[flow])) continue;
    // One default serves every role here, so it is reported once, for the
    // console role that the policy client sets.
    const WCHAR* id = after.defaults[flow].empty() ? nullptr : after.defaults[flow].c_str();
    client.OnDefaultDeviceChanged(static_cast<EDataFlow>(flow), eConsole, id);
  }
}

// One watcher per process, running while any client is registered: it arms
// a watch on the whole MMDevices\Audio tree, and after each signal compares
// the tree with its last look and calls every client on its own thread.
class NotificationHub {
 public:
  static NotificationHub& Instance() {
    // Never destroyed: clients may unregister from static destructors.
    static NotificationHub* hub = new NotificationHub;
    return *hub;
  }

  HRESULT Register(IMMNotificationClient* client) {
    if (!client) return E_POINTER;
    const std::lock_guard<std::mutex> lifecycle(m_lifecycleLock);
    {
      const std::lock_guard<std::mutex> lock(m_clientLock);
      if (std::find(m_clients.begin(), m_clients.end(), client) != m_clients.end()) return S_OK;
      client->AddRef();
      m_clients.push_back(client);
    }
    if (m_thread.joinable()) return S_OK;
    if (!StartWatcher()) {
      RemoveClient(client);
      return E_FAIL;
    }
    return S_OK;
  }

  HRESULT Unregister(IMMNotificationClient* client) {
    if (!client) return E_POINTER;
    const std::lock_guard<std::mutex> lifecycle(m_lifecycleLock);
    // Once the client is out of the list under the lock that every call to
    // it holds, no call reaches it any more.
    if (!RemoveClient(client)) return E_NOTFOUND;
    bool empty = false;
    {
      const std::lock_guard<std::mutex> lock(m_clientLock);
      empty = m_clients.empty();
    }
    if (empty && m_thread.joinable()) {
      m_stop.Set();
      m_thread.join();
    }
    return S_OK;
  }

 private:
  NotificationHub() = default;

  bool RemoveClient(IMMNotificationClient* client) {
    const std::lock_guard<std::mutex> lock(m_clientLock);
    const auto it = std::find(m_clients.begin(), m_clients.end(), client);
    if (it == m_clients.end()) return false;
    m_clients.erase(it);
    client->Release();
    return true;
  }

  // Starts the thread and waits for its first look, so that every change
  // after Register returns is reported.
  bool StartWatcher() {
    RegKey audio;
    if (RegKey::Create(kAudioPath, kKeyQueryValue | kKeyNotify | kKeyEnumerateSubKeys, audio) != RegStatus::Ok) {
      return false;
    }
    m_stop.Reset();
    m_ready.Reset();
    m_thread = std::thread([this, key = std::make_shared<RegKey>(std::move(audio))] {
      ThreadPriorityBoost::StartAtNormalPriority();
      Watch(*key);
    });
    m_ready.Wait(kInfinite);
    return true;
  }

  void Watch(RegKey& audio) {
    Event changed(EventReset::Auto);
    bool armed = audio.NotifyChange(true, kNotifyChangeName | kNotifyChangeLastSet, changed) == RegStatus::Ok;
    TreeSnapshot last = TakeSnapshot();
    m_ready.Set();
    Event* const events[] = {&m_stop, &changed};
    while (armed && WaitAny(events, 2, kInfinite) == 1) {
      armed = audio.NotifyChange(true, kNotifyChangeName | kNotifyChangeLastSet, changed) == RegStatus::Ok;
      TreeSnapshot now = TakeSnapshot();
      {
        const std::lock_guard<std::mutex> lock(m_clientLock);
        for (IMMNotificationClient* client : m_clients) Report(*client, last, now);
      }
      last = std::move(now);
    }
    // Closing the key ends an armed watch and signals `changed` on its way.
    audio.Close();
  }

  std::mutex m_lifecycleLock;
  std::mutex m_clientLock;
  std::vector<IMMNotificationClient*> m_clients;
  Event m_stop{EventReset::Manual};
  Event m_ready{EventReset::Manual};
  std::thread m_thread;
};

class DeviceEnumerator final : public ComObject<IMMDeviceEnumerator> {
 public:
  DeviceEnumerator() : ComObject(IID_IMMDeviceEnumerator) {}

  HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow dataFlow, DWORD stateMask,
                                               IMMDeviceCollection** devices) override {
    if (!devices) return E_POINTER;
    *devices = nullptr;
    if (dataFlow < eRender || dataFlow > eAll || (stateMask & ~DEVICE_STATEMASK_ALL) != 0) return E_INVALIDARG;
    auto* collection = new DeviceCollection;
    for (int flow = 0; flow < 2; ++flow) {
      if (dataFlow != eAll && dataFlow != flow) continue;
      for (const EndpointKey& endpoint : ListEndpoints(flow)) {
        if ((endpoint.state & stateMask) == 0) continue;
        auto* device = new Device(flow, endpoint.name);
        collection->Add(device);
        device->Release();
      }
    }
    *devices = collection;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow dataFlow, ERole role, IMMDevice** endpoint) override {
    if (!endpoint) return E_POINTER;
    *endpoint = nullptr;
    if ((dataFlow != eRender && dataFlow != eCapture) || role < eConsole || role > eCommunications) {
      return E_INVALIDARG;
    }
    const std::vector<EndpointKey> endpoints = ListEndpoints(dataFlow);
    std::u16string name;
    if (dataFlow == eCapture && role == eCommunications) {
      name = ActiveNamedBy(dataFlow, endpoints, kCommunicationsDefaultName);
    }
    if (name.empty()) name = ResolveDefault(dataFlow, endpoints);
    if (name.empty()) return E_NOTFOUND;
    *endpoint = new Device(dataFlow, name);
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR id, IMMDevice** device) override {
    if (!id || !device) return E_POINTER;
    *device = nullptr;
    int flow = 0;
    std::u16string_view keyName;
    if (!SplitId(id, flow, keyName)) return E_NOTFOUND;
    RegKey key;
    if (RegKey::Open(FlowPath(flow) + u"\\" + std::u16string(keyName), kKeyQueryValue, key) != RegStatus::Ok) {
      return E_NOTFOUND;
    }
    *device = new Device(flow, std::u16string(keyName));
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE RegisterEndpointNotificationCallback(IMMNotificationClient* client) override {
    return NotificationHub::Instance().Register(client);
  }
  HRESULT STDMETHODCALLTYPE UnregisterEndpointNotificationCallback(IMMNotificationClient* client) override {
    return NotificationHub::Instance().Unregister(client);
  }
};

// Sets the default endpoint by writing DefaultEndpoint; one default serves
// every role. The format and period calls have no meaning for the store.
class PolicyConfig final : public ComObject<IPolicyConfigVista> {
 public:
  PolicyConfig() : ComObject(IID_IPolicyConfigVista) {}
  HRESULT STDMETHODCALLTYPE GetMixFormat(PCWSTR, WAVEFORMATEX**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetDeviceFormat(PCWSTR, INT, WAVEFORMATEX**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetDeviceFormat(PCWSTR, WAVEFORMATEX*, WAVEFORMATEX*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetProcessingPeriod(PCWSTR, INT, PINT64, PINT64) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetProcessingPeriod(PCWSTR, PINT64) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetShareMode(PCWSTR, void*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetShareMode(PCWSTR, void*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetPropertyValue(PCWSTR, const PROPERTYKEY&, PROPVARIANT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetPropertyValue(PCWSTR, const PROPERTYKEY&, PROPVARIANT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetEndpointVisibility(PCWSTR, INT) override { return E_NOTIMPL; }

  HRESULT STDMETHODCALLTYPE SetDefaultEndpoint(PCWSTR id, ERole) override {
    if (!id) return E_POINTER;
    int flow = 0;
    std::u16string_view keyName;
    if (!SplitId(id, flow, keyName)) return E_INVALIDARG;
    RegKey endpoint;
    if (RegKey::Open(FlowPath(flow) + u"\\" + std::u16string(keyName), kKeyQueryValue, endpoint) != RegStatus::Ok) {
      return E_NOTFOUND;
    }
    RegKey flowKey;
    if (RegKey::Open(FlowPath(flow), kKeySetValue, flowKey) != RegStatus::Ok) return E_ACCESSDENIED;
    std::u16string text(keyName);
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.c_str());
    return flowKey.WriteValue(kDefaultName, RegType::Sz, {bytes, (text.size() + 1) * sizeof(char16_t)}) ==
                   RegStatus::Ok
               ? S_OK
               : E_ACCESSDENIED;
  }
};

}  // namespace

bool PropVariantFromRegistry(RegType type, std::span<const uint8_t> data, PROPVARIANT& value) {
  PropVariantInit(&value);
  const auto text = [&](std::span<const uint8_t> bytes) -> std::u16string {
    std::u16string out(bytes.size() / 2, u'\0');
    if (!out.empty()) std::memcpy(out.data(), bytes.data(), out.size() * 2);
    return out;
  };
  switch (type) {
    case RegType::Sz:
    case RegType::ExpandSz: {
      if (data.size() % 2 != 0) return false;
      std::u16string all = text(data);
      all.resize(std::u16string_view(all.c_str()).size());
      value.pwszVal = com::CoTaskMemText(all);
      if (!value.pwszVal) return false;
      value.vt = VT_LPWSTR;
      return true;
    }
    case RegType::Dword:
      if (data.size() != 4) return false;
      value.ulVal = static_cast<ULONG>(LoadLe32(data.data()));
      value.vt = VT_UI4;
      return true;
    case RegType::Qword: {
      if (data.size() != 8) return false;
      uint64_t number = 0;
      for (int i = 7; i >= 0; --i) number = number << 8 | data[static_cast<size_t>(i)];
      value.uhVal.QuadPart = number;
      value.vt = VT_UI8;
      return true;
    }
    case RegType::Binary:
      value.blob.pBlobData = static_cast<BYTE*>(CoTaskMemAlloc(data.size()));
      if (!value.blob.pBlobData) return false;
      if (!data.empty()) std::memcpy(value.blob.pBlobData, data.data(), data.size());
      value.blob.cbSize = static_cast<ULONG>(data.size());
      value.vt = VT_BLOB;
      return true;
    case RegType::MultiSz: {
      if (data.size() % 2 != 0) return false;
      const std::u16string all = text(data);
      std::vector<std::u16string_view> strings;
      for (size_t at = 0; at < all.size();) {
        const size_t end = std::min(all.find(u'\0', at), all.size());
        if (end == at) break;  // the empty string ends the list
        strings.push_back(std::u16string_view(all).substr(at, end - at));
        at = end + 1;
      }
      auto* elements = static_cast<LPWSTR*>(CoTaskMemAlloc(strings.size() * sizeof(LPWSTR)));
      if (!elements) return false;
      value.vt = VT_VECTOR | VT_LPWSTR;
      value.calpwstr.pElems = elements;
      for (const std::u16string_view s : strings) {
        elements[value.calpwstr.cElems] = com::CoTaskMemText(s);
        if (!elements[value.calpwstr.cElems]) {
          PropVariantClear(&value);
          return false;
        }
        ++value.calpwstr.cElems;
      }
      return true;
    }
    default:
      return false;
  }
}

HRESULT CreateDeviceEnumerator(REFIID riid, void** ppv) { return Hand(new DeviceEnumerator, riid, ppv); }

HRESULT CreatePolicyConfig(REFIID riid, void** ppv) { return Hand(new PolicyConfig, riid, ppv); }

}  // namespace zor::os
