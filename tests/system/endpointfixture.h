#pragma once
// The endpoint tests' private store with endpoint keys as a control panel writes them, and
// a device answering with a chosen id. Linux: a temporary store root. Wine: the real
// MMDevices keys under a GUID of this process, removed afterwards.

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <string>
#include <utility>
#include <vector>

#if defined(VELAPO_ENDPOINT_HELPER)
#include "childprocess.h"
#endif
#include "platform/com.h"
#include "platform/registry.h"
#include "registrytestarea.h"
#include "system/zorapoendpointinfo.h"

namespace velapo::test {

inline std::vector<uint8_t> TextBytes(std::u16string_view text) {
  std::vector<uint8_t> bytes((text.size() + 1) * 2, 0);
  for (size_t i = 0; i < text.size(); ++i) {
    bytes[2 * i] = static_cast<uint8_t>(text[i] & 0xFF);
    bytes[2 * i + 1] = static_cast<uint8_t>(text[i] >> 8);
  }
  return bytes;
}

// An IMMDevice with a fixed id and text properties, counting its references.
class FakeDevice final : public IMMDevice, public IPropertyStore {
 public:
  explicit FakeDevice(std::u16string id, std::vector<std::pair<PROPERTYKEY, std::u16string>> texts = {})
      : m_id(std::move(id)), m_texts(std::move(texts)) {}
  virtual ~FakeDevice() = default;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppv) override {
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs; }
  HRESULT STDMETHODCALLTYPE Activate(REFIID, DWORD, PROPVARIANT*, void**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD, IPropertyStore** store) override {
    *store = this;
    AddRef();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetId(LPWSTR* id) override {
    *id = zor::com::CoTaskMemText(m_id);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetState(DWORD* state) override {
    *state = DEVICE_STATE_ACTIVE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetCount(DWORD* count) override {
    *count = static_cast<DWORD>(m_texts.size() + 1);
    return S_OK;
  }
  // Index 0 is a number, which the subsystem search must pass over.
  HRESULT STDMETHODCALLTYPE GetAt(DWORD index, PROPERTYKEY* key) override {
    *key = index == 0 ? PROPERTYKEY{GUID_NULL, 1} : m_texts.at(index - 1).first;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT* value) override {
    PropVariantInit(value);
    if (key.pid == 1 && IsEqualGUID(key.fmtid, GUID_NULL)) {
      value->vt = VT_UI4;
      value->ulVal = 7;
    }
    for (const auto& [k, text] : m_texts) {
      if (zor::com::PropertyKeysEqual(k, key)) {
        value->vt = VT_LPWSTR;
        value->pwszVal = zor::com::CoTaskMemText(text);
      }
    }
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetValue(REFPROPERTYKEY, REFPROPVARIANT) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Commit() override { return E_NOTIMPL; }

  std::atomic<ULONG> refs{1};

 private:
  std::u16string m_id;
  std::vector<std::pair<PROPERTYKEY, std::u16string>> m_texts;
};

// A fresh endpoint GUID per test, so that tests and processes never meet.
// The salt is drawn once per process: an address would do on Linux, but a
// Windows image loads at the same address in every process, and two test
// executables under Wine made the same GUIDs side by side.
inline std::u16string FreshEndpointGuid() {
  static std::atomic<uint32_t> counter{0};
  static const uint32_t salt = std::random_device{}();
  GUID guid{0x7E570000u + counter++, 0x1234, 0x5678, {0x9A, 0xBC, 0, 0, 0, 0, 0, 0}};
  for (int i = 0; i < 4; ++i) guid.Data4[4 + i] = static_cast<uint8_t>(salt >> (8 * i));
  return zor::com::GuidText(guid);
}

class EndpointStore : public ::testing::Test {
 protected:
  static constexpr std::u16string_view kAudio = ZORAPOEndpointInfo::kMMDevicesAudioPath;

  void SetUp() override { m_comInit = CoInitializeEx(nullptr, COINIT_MULTITHREADED); }
  void TearDown() override {
    for (const std::u16string& path : m_made) {
      const size_t slash = path.rfind(u'\\');
      zor::os::RegKey parent;
      if (zor::os::RegKey::Open(path.substr(0, slash), zor::os::kKeyAllAccess, parent) == zor::os::RegStatus::Ok) {
        parent.DeleteSubKeyTree(path.substr(slash + 1));
      }
    }
    if (SUCCEEDED(m_comInit)) CoUninitialize();
  }

  // Endpoint key of `guid`, removed after the test with the settings key.
  std::u16string Endpoint(const std::u16string& guid, bool render = true) {
    const std::u16string path = std::u16string(kAudio) + (render ? u"Render\\" : u"Capture\\") + guid;
    m_made.push_back(path);
    m_made.push_back(std::u16string(ZORAPOEndpointInfo::kDefaultSettingsRoot) + u"\\" + guid);
    return path;
  }
  // A key to remove after the test.
  void Forget(std::u16string path) { m_made.push_back(std::move(path)); }

  static void Write(const std::u16string& key, std::u16string_view name, zor::os::RegType type,
                    std::vector<uint8_t> data) {
    zor::os::RegKey k;
    ASSERT_EQ(zor::os::RegKey::Create(key, zor::os::kKeyAllAccess, k), zor::os::RegStatus::Ok);
    ASSERT_EQ(k.WriteValue(name, type, data), zor::os::RegStatus::Ok);
  }
  static void WriteText(const std::u16string& key, std::u16string_view name, std::u16string_view text) {
    Write(key, name, zor::os::RegType::Sz, TextBytes(text));
  }
  static void WriteDword(const std::u16string& key, std::u16string_view name, uint32_t number) {
    Write(key, name, zor::os::RegType::Dword,
          {uint8_t(number), uint8_t(number >> 8), uint8_t(number >> 16), uint8_t(number >> 24)});
  }

#if defined(VELAPO_ENDPOINT_HELPER)
  // The endpoint helper's exit code for `arguments`, run as another process on this store.
  int RunHelper(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), m_area.Root());
    ChildProcess child;
    if (!child.Start(HelperBesideTest(VELAPO_ENDPOINT_HELPER), arguments)) return -1;
    return child.Wait(20000);
  }
  void Helper(std::vector<std::string> arguments) { ASSERT_EQ(RunHelper(std::move(arguments)), 0); }
#endif
  static std::string Narrow(const std::u16string& text) { return std::string(text.begin(), text.end()); }

  RegistryTestArea m_area;  // Linux: the private store root

 private:
  HRESULT m_comInit = E_FAIL;
  std::vector<std::u16string> m_made;
};

}  // namespace velapo::test
