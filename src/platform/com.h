#pragma once
// One COM vocabulary for both platforms. Engine code uses the Windows names
// (GUID, HRESULT, IUnknown, PROPVARIANT, IPropertyStore, IMMDevice, ...):
// on Windows they come from the system's headers, on Linux from velapo's own
// (posix/com/comtypes.h), chosen by the include path CMake gives.
//
// Added here for both: what the system's headers lack (the policy client),
// a counted pointer, and the text forms of GUIDs and property keys that the
// endpoint keys of the settings store are named by.

#include <comtypes.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

// The audio policy client, which sets the default endpoint. It has no
// published header; this is the layout documented publicly for its Vista
// form, whose class and interface ids follow.
inline constexpr CLSID CLSID_PolicyConfigVistaClient = {
    0x294935CE, 0xF637, 0x4E7C, {0xA4, 0x1B, 0xAB, 0x25, 0x54, 0x60, 0xB8, 0x62}};
inline constexpr IID IID_IPolicyConfigVista = {
    0x568B9108, 0x44BF, 0x40B4, {0x90, 0x06, 0x86, 0xAF, 0xE5, 0xB5, 0xA6, 0x20}};

class IPolicyConfigVista : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE GetMixFormat(PCWSTR deviceId, WAVEFORMATEX** format) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDeviceFormat(PCWSTR deviceId, INT useDefault,
                                                    WAVEFORMATEX** format) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetDeviceFormat(PCWSTR deviceId, WAVEFORMATEX* endpointFormat,
                                                    WAVEFORMATEX* mixFormat) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetProcessingPeriod(PCWSTR deviceId, INT useDefault,
                                                        PINT64 defaultPeriod, PINT64 minimumPeriod) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetProcessingPeriod(PCWSTR deviceId, PINT64 period) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetShareMode(PCWSTR deviceId, void* mode) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetShareMode(PCWSTR deviceId, void* mode) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetPropertyValue(PCWSTR deviceId, const PROPERTYKEY& key,
                                                     PROPVARIANT* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetPropertyValue(PCWSTR deviceId, const PROPERTYKEY& key,
                                                     PROPVARIANT* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetDefaultEndpoint(PCWSTR deviceId, ERole role) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetEndpointVisibility(PCWSTR deviceId, INT visible) = 0;

 protected:
  ~IPolicyConfigVista() = default;
};

// The endpoint's peak meter, which the system's headers here lack; layout and
// id as published for it.
inline constexpr IID IID_IAudioMeterInformation = {
    0xC02216F6, 0x8C67, 0x4B5B, {0x9D, 0x00, 0xD0, 0x08, 0xE7, 0x3E, 0x00, 0x64}};

class IAudioMeterInformation : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE GetPeakValue(float* pfPeak) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetMeteringChannelCount(UINT* pnChannelCount) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetChannelsPeakValues(UINT32 u32ChannelCount, float* afPeakValues) = 0;
  virtual HRESULT STDMETHODCALLTYPE QueryHardwareSupport(DWORD* pdwHardwareSupportMask) = 0;

 protected:
  ~IAudioMeterInformation() = default;
};

// The endpoint's form factor (a VT_UI4: 4 microphone, 5 headset, 6 handset,
// ...), absent from the system's headers here.
inline constexpr PROPERTYKEY kPKEY_AudioEndpoint_FormFactor = {
    {0x1da5d803, 0xd492, 0x4edd, {0x8c, 0x23, 0xe0, 0xc0, 0xff, 0xee, 0x7f, 0x0e}}, 0};

// The float sample sub-format of an extensible wave format.
inline constexpr GUID kKSDATAFORMAT_SUBTYPE_IEEE_FLOAT = {
    0x00000003, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71}};

// A counted reference to a COM object: AddRef on copy, Release on reset.
template <typename T>
class ZORComPtr {
 public:
  ZORComPtr() = default;
  // Takes a new reference to `p`.
  explicit ZORComPtr(T* p) : m_p(p) {
    if (m_p) m_p->AddRef();
  }
  ZORComPtr(const ZORComPtr& other) : ZORComPtr(other.m_p) {}
  ZORComPtr(ZORComPtr&& other) noexcept : m_p(std::exchange(other.m_p, nullptr)) {}
  ZORComPtr& operator=(const ZORComPtr& other) {
    if (this != &other) ZORComPtr(other).Swap(*this);
    return *this;
  }
  ZORComPtr& operator=(ZORComPtr&& other) noexcept {
    ZORComPtr(std::move(other)).Swap(*this);
    return *this;
  }
  ~ZORComPtr() { Reset(); }

  void Reset() {
    if (T* p = std::exchange(m_p, nullptr)) p->Release();
  }
  // Releases what is held and gives the slot for an output parameter, which
  // hands over a reference of its own.
  T** Put() {
    Reset();
    return &m_p;
  }
  void** PutVoid() { return reinterpret_cast<void**>(Put()); }
  T* Get() const { return m_p; }
  T* operator->() const { return m_p; }
  explicit operator bool() const { return m_p != nullptr; }
  void Swap(ZORComPtr& other) noexcept { std::swap(m_p, other.m_p); }

 private:
  T* m_p = nullptr;
};

// A PROPVARIANT that clears itself.
class ZORPropVariant {
 public:
  ZORPropVariant() { PropVariantInit(&m_value); }
  ~ZORPropVariant() { PropVariantClear(&m_value); }
  ZORPropVariant(const ZORPropVariant&) = delete;
  ZORPropVariant& operator=(const ZORPropVariant&) = delete;
  // For an output parameter; clears what was held first.
  PROPVARIANT* Put() {
    PropVariantClear(&m_value);
    return &m_value;
  }
  const PROPVARIANT& Get() const { return m_value; }

 private:
  PROPVARIANT m_value;
};

namespace zor::com {

// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}", upper case.
std::u16string GuidText(const GUID& guid);
// The strict form above, hex digits of either case; false for anything else.
bool ParseGuidText(std::u16string_view text, GUID& guid);

// The name a property key has in the registry: "{fmtid},pid", the GUID in
// lower case and the id in decimal, as Windows names endpoint properties.
std::u16string PropertyKeyText(const PROPERTYKEY& key);
// Reads that form (GUID of either case, decimal id up to 2^32-1, nothing
// after it); false for anything else.
bool ParsePropertyKeyText(std::u16string_view text, PROPERTYKEY& key);
bool PropertyKeysEqual(const PROPERTYKEY& a, const PROPERTYKEY& b);

// A copy of the text in memory from CoTaskMemAlloc, as COM hands out text;
// null when out of memory.
WCHAR* CoTaskMemText(std::u16string_view text);

}  // namespace zor::com
