#include "hostendpoint.h"

#include <atomic>
#include <filesystem>
#include <random>

#include "config/zorapoconfigurationfile.h"
#include "engine/zorengineendpoint.h"
#include "platform/registry.h"
#include "platform/text.h"

// The device the engine would hand over: an id in the Windows form and
// nothing else. The endpoint's facts come from its keys in the store.
class HostDevice final : public IMMDevice {
 public:
  explicit HostDevice(std::u16string id) : m_id(std::move(id)) {}
  virtual ~HostDevice() = default;
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    *ppv = IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IMMDevice) ? this : nullptr;
    if (*ppv == nullptr) return E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --m_refs;
    if (left == 0) delete this;
    return left;
  }
  HRESULT STDMETHODCALLTYPE Activate(REFIID, DWORD, PROPVARIANT*, void**) override { return E_NOINTERFACE; }
  HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD, IPropertyStore**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetId(LPWSTR* id) override {
    if (id == nullptr) return E_POINTER;
    *id = zor::com::CoTaskMemText(m_id);
    return *id != nullptr ? S_OK : E_OUTOFMEMORY;
  }
  HRESULT STDMETHODCALLTYPE GetState(DWORD* state) override {
    if (state == nullptr) return E_POINTER;
    *state = DEVICE_STATE_ACTIVE;
    return S_OK;
  }

 private:
  std::u16string m_id;
  std::atomic<ULONG> m_refs{1};
};

namespace {

std::u16string RenderKeyPath(const std::u16string& guid) {
  return std::u16string(ZORAPOEndpointInfo::kMMDevicesAudioPath) + u"Render\\" + guid;
}

const char* StatusMeaning(uint32_t status) {
  switch (status) {
    case ZORAPOConfigurationFile::kStatusEmptyProperties:
      return "the last <properties> is empty";
    case ZORAPOConfigurationFile::kStatusModeFailed:
      return "an <operating_mode> lacks its APO4-Operating Mode or APO4-Speaker Type";
    case ZORAPOConfigurationFile::kStatusUnreadable:
      return "missing or not XML, another root than <zor_configuration>, or no <properties>";
    default:
      return "unknown status";
  }
}

}  // namespace

HostEndpoint::HostEndpoint() { m_comInit = CoInitializeEx(nullptr, COINIT_MULTITHREADED); }

HostEndpoint::~HostEndpoint() {
  m_info.Reset();
  m_listing.reset();
  if (m_pDevice != nullptr) m_pDevice->Release();
  RemovePrivate();
  if (SUCCEEDED(m_comInit)) CoUninitialize();
}

IMMDevice* HostEndpoint::Device() const { return m_pDevice; }

std::string HostEndpoint::GuidText() const { return zor::os::Utf16ToUtf8(m_guid); }

std::string HostEndpoint::ConfigPath() const { return zor::os::Utf16ToUtf8(m_info.GetConfigPath()); }

bool HostEndpoint::MakePrivate(const std::string& configPath, std::string& error) {
  std::error_code fileError;
  const std::filesystem::path config = std::filesystem::absolute(configPath, fileError);
  if (fileError || !std::filesystem::is_regular_file(config, fileError)) {
    error = "cannot read the configuration '" + configPath + "': no such file";
    return false;
  }
  if (!MakePrivateStoreRoot(m_storeRoot)) {
    error = "cannot make a private settings store in the temporary directory";
    return false;
  }
  m_bPrivate = true;
  GUID guid{};
  std::random_device random;
  guid.Data1 = random();
  guid.Data2 = static_cast<uint16_t>(random());
  guid.Data3 = static_cast<uint16_t>(0x4000 | (random() & 0x0FFF));
  for (uint8_t& part : guid.Data4) part = static_cast<uint8_t>(random());
  m_guid = zor::com::GuidText(guid);

  m_private = std::make_unique<ZOREngineEndpoint>(m_guid, config);
  zor::os::RegKey fx;
  const bool written =
      m_private->IsValid() &&
      zor::os::RegKey::Create(RenderKeyPath(m_guid) + u"\\FxProperties", zor::os::kKeyAllAccess, fx) ==
          zor::os::RegStatus::Ok &&
      // System effects on, and a switch a control panel can flip.
      fx.WriteDword(zor::com::PropertyKeyText(PKEY_AudioEndpoint_Disable_SysFx), 0) == zor::os::RegStatus::Ok;
  if (!written) {
    error = "cannot write the private endpoint's keys to the settings store";
    return false;
  }
  return Bind(m_guid, error);
}

bool HostEndpoint::Open(const std::string& storeDir, const std::string& guidText, const std::string& configPath,
                        uint32_t location, ZORAPOConfigurationFile& config, std::string& error) {
  if (!(guidText.empty() ? MakePrivate(configPath, error) : Join(storeDir, guidText, error))) return false;
  const uint32_t status = config.Load(m_info.GetConfigPath(), 0, location);
  if (status == ZORAPOConfigurationFile::kStatusOk) return true;
  error = "the configuration '" + ConfigPath() + "' does not load: status " + std::to_string(status) + " (" +
          StatusMeaning(status) + ")";
  return false;
}

bool HostEndpoint::Join(const std::string& storeDir, const std::string& guidText, std::string& error) {
  if (!UseStoreRoot(storeDir)) {
    error = storeDir.empty() ? "--store names no directory"
                             : "cannot use the settings store '" + storeDir + "' (not a directory, or not on this platform)";
    return false;
  }
  GUID guid{};
  if (!zor::com::ParseGuidText(zor::os::Utf8ToUtf16(guidText), guid)) {
    error = "'" + guidText + "' is not an endpoint GUID ({XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX})";
    return false;
  }
  m_guid = zor::com::GuidText(guid);
  zor::os::RegKey endpoint;
  if (zor::os::RegKey::Open(RenderKeyPath(m_guid), zor::os::kKeyRead, endpoint) != zor::os::RegStatus::Ok) {
    error = "the store has no render endpoint " + GuidText() + " (velapo-ctl endpoints add makes one)";
    return false;
  }
  return Bind(m_guid, error);
}

bool HostEndpoint::Bind(const std::u16string& guid, std::string& error) {
  m_pDevice = new HostDevice(u"{0.0.0.00000000}." + guid);
  if (!m_info.SetDevice(m_pDevice, true)) {
    error = "the endpoint " + GuidText() + " cannot be read from the settings store";
    return false;
  }
  // The effect objects look their endpoint up in the device list.
  m_listing = std::make_unique<HostDeviceList>(m_pDevice);
  return true;
}

void HostEndpoint::RemovePrivate() {
  if (!m_bPrivate) return;
  m_private.reset();  // its keys go before the store that holds them
  RemovePrivateStoreRoot(m_storeRoot);
}
