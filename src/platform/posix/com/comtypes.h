#pragma once
// The COM and Core Audio vocabulary on Linux: the types, codes and
// interfaces that the engine uses under their Windows names, so that engine
// code is written once. Only what the engine needs is here; layouts follow
// the Windows headers where a value crosses a process or a file, and are
// otherwise plain C++ (no calling conventions, no binary COM compatibility).
//
// Device enumeration is velapo's own: endpoints are keys of the settings
// store under the paths Windows keeps them at (see docs/endpoints.md), and
// CoCreateInstance makes the enumerator and the policy client from it.

#include <cstddef>
#include <cstdint>

// ---- Basic types -----------------------------------------------------------

using BYTE = uint8_t;
using WORD = uint16_t;
using USHORT = uint16_t;
using SHORT = int16_t;
using DWORD = uint32_t;
using ULONG = uint32_t;
using LONG = int32_t;
using UINT = uint32_t;
using INT = int32_t;
using BOOL = int32_t;
using LONGLONG = int64_t;
using ULONGLONG = uint64_t;
using INT64 = int64_t;
using PINT64 = int64_t*;
using CHAR = char;
using UCHAR = unsigned char;
using HRESULT = int32_t;
using VARTYPE = uint16_t;
using VARIANT_BOOL = int16_t;
// Wide text is UTF-16 everywhere in velapo; on Linux the COM text type is
// char16_t itself (Windows: wchar_t, also UTF-16).
using WCHAR = char16_t;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using PCWSTR = const WCHAR*;
using LPOLESTR = WCHAR*;
using LPCOLESTR = const WCHAR*;
using LPSTR = char*;
using LPVOID = void*;
using UINT32 = uint32_t;
using UINT64 = uint64_t;
using UINT_PTR = uintptr_t;
// An opaque handle of a system object (events, threads); what it points at
// belongs to the platform layer.
using HANDLE = void*;

#define STDMETHODCALLTYPE
#define STDAPI extern "C" HRESULT

union ULARGE_INTEGER {
  ULONGLONG QuadPart;
};
union LARGE_INTEGER {
  LONGLONG QuadPart;
};

// ---- GUID ------------------------------------------------------------------

struct GUID {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];
};
using IID = GUID;
using CLSID = GUID;
using REFGUID = const GUID&;
using REFIID = const IID&;
using REFCLSID = const CLSID&;
using LPGUID = GUID*;

inline constexpr bool IsEqualGUID(REFGUID a, REFGUID b) {
  if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
  for (int i = 0; i < 8; ++i) {
    if (a.Data4[i] != b.Data4[i]) return false;
  }
  return true;
}
inline constexpr bool IsEqualIID(REFIID a, REFIID b) { return IsEqualGUID(a, b); }
inline constexpr bool operator==(REFGUID a, REFGUID b) { return IsEqualGUID(a, b); }

inline constexpr GUID GUID_NULL = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};

// ---- HRESULT ---------------------------------------------------------------

inline constexpr bool SUCCEEDED(HRESULT hr) { return hr >= 0; }
inline constexpr bool FAILED(HRESULT hr) { return hr < 0; }
inline constexpr HRESULT MakeHresult(uint32_t code) { return static_cast<HRESULT>(code); }

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT NOERROR = 0;
inline constexpr HRESULT E_NOTIMPL = MakeHresult(0x80004001u);
inline constexpr HRESULT E_NOINTERFACE = MakeHresult(0x80004002u);
inline constexpr HRESULT E_POINTER = MakeHresult(0x80004003u);
inline constexpr HRESULT E_ABORT = MakeHresult(0x80004004u);
inline constexpr HRESULT E_FAIL = MakeHresult(0x80004005u);
inline constexpr HRESULT E_UNEXPECTED = MakeHresult(0x8000FFFFu);
inline constexpr HRESULT E_ACCESSDENIED = MakeHresult(0x80070005u);
inline constexpr HRESULT E_OUTOFMEMORY = MakeHresult(0x8007000Eu);
inline constexpr HRESULT E_INVALIDARG = MakeHresult(0x80070057u);
inline constexpr HRESULT E_NOTFOUND = MakeHresult(0x80070490u);  // HRESULT_FROM_WIN32(ERROR_NOT_FOUND)
inline constexpr HRESULT CLASS_E_NOAGGREGATION = MakeHresult(0x80040110u);
inline constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = MakeHresult(0x80040111u);
inline constexpr HRESULT REGDB_E_CLASSNOTREG = MakeHresult(0x80040154u);
inline constexpr HRESULT CO_E_CLASSSTRING = MakeHresult(0x800401F3u);
inline constexpr HRESULT RPC_E_CHANGED_MODE = MakeHresult(0x80010106u);
inline constexpr HRESULT STG_E_ACCESSDENIED = MakeHresult(0x80030005u);

// ---- IUnknown --------------------------------------------------------------

inline constexpr IID IID_IUnknown = {
    0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

// Interfaces are pure tables of operations; an object's life is its reference
// count, so their destructors are not for callers.
class IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) = 0;
  virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
  virtual ULONG STDMETHODCALLTYPE Release() = 0;

 protected:
  ~IUnknown() = default;
};

// ---- Class factory -----------------------------------------------------------

// What a module hands out for each class it serves (DllGetClassObject), so
// that hosts make objects the same way on both platforms.
inline constexpr IID IID_IClassFactory = {
    0x00000001, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

class IClassFactory : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppvObject) = 0;
  virtual HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) = 0;

 protected:
  ~IClassFactory() = default;
};

// ---- Memory and apartments ----------------------------------------------------

void* CoTaskMemAlloc(std::size_t bytes);
void CoTaskMemFree(void* memory);

inline constexpr DWORD COINIT_MULTITHREADED = 0x0;
inline constexpr DWORD COINIT_APARTMENTTHREADED = 0x2;
// Counts per thread as COM does: the first call S_OK, later ones S_FALSE,
// each to be paired with CoUninitialize. Linux has no apartments, so the
// model is only remembered, and a call with another model than the first
// answers RPC_E_CHANGED_MODE as on Windows.
HRESULT CoInitializeEx(void* reserved, DWORD coInit);
void CoUninitialize();

inline constexpr DWORD CLSCTX_INPROC_SERVER = 0x1;
inline constexpr DWORD CLSCTX_ALL = 0x17;
// Makes the classes the Linux platform layer knows: the device enumerator
// and the policy client. Anything else is REGDB_E_CLASSNOTREG.
HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID riid, void** ppv);

// Parses "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" (hex digits of either case,
// nothing before or after). Null text gives GUID_NULL and S_OK, as on
// Windows; anything else that is not such a text gives CO_E_CLASSSTRING and
// a zero GUID.
HRESULT CLSIDFromString(LPCOLESTR text, CLSID* clsid);

// ---- Property keys and values ------------------------------------------------

struct PROPERTYKEY {
  GUID fmtid;
  DWORD pid;
};
using REFPROPERTYKEY = const PROPERTYKEY&;

enum VARENUM : VARTYPE {
  VT_EMPTY = 0,
  VT_NULL = 1,
  VT_I2 = 2,
  VT_I4 = 3,
  VT_BOOL = 11,
  VT_I1 = 16,
  VT_UI1 = 17,
  VT_UI2 = 18,
  VT_UI4 = 19,
  VT_I8 = 20,
  VT_UI8 = 21,
  VT_INT = 22,
  VT_UINT = 23,
  VT_LPSTR = 30,
  VT_LPWSTR = 31,
  VT_BLOB = 65,
  VT_CLSID = 72,
  VT_VECTOR = 0x1000,
};

struct BLOB {
  ULONG cbSize;
  BYTE* pBlobData;
};
struct CALPWSTR {
  ULONG cElems;
  LPWSTR* pElems;
};

// The variants the engine meets in endpoint property stores. Memory held by
// a variant comes from CoTaskMemAlloc and goes back by PropVariantClear.
struct PROPVARIANT {
  VARTYPE vt;
  WORD wReserved1;
  WORD wReserved2;
  WORD wReserved3;
  union {
    CHAR cVal;
    UCHAR bVal;
    SHORT iVal;
    USHORT uiVal;
    LONG lVal;
    ULONG ulVal;
    INT intVal;
    UINT uintVal;
    LARGE_INTEGER hVal;
    ULARGE_INTEGER uhVal;
    VARIANT_BOOL boolVal;
    LPSTR pszVal;
    LPWSTR pwszVal;
    CLSID* puuid;
    BLOB blob;
    CALPWSTR calpwstr;
  };
};
using REFPROPVARIANT = const PROPVARIANT&;

inline void PropVariantInit(PROPVARIANT* value) { *value = PROPVARIANT{}; }
// Frees what the variant holds and leaves it VT_EMPTY.
HRESULT PropVariantClear(PROPVARIANT* value);

// ---- Wave format (what the policy client's format calls name) ------------------

#pragma pack(push, 1)
struct WAVEFORMATEX {
  WORD wFormatTag;
  WORD nChannels;
  DWORD nSamplesPerSec;
  DWORD nAvgBytesPerSec;
  WORD nBlockAlign;
  WORD wBitsPerSample;
  WORD cbSize;
};
#pragma pack(pop)

inline constexpr WORD WAVE_FORMAT_PCM = 0x0001;
inline constexpr WORD WAVE_FORMAT_IEEE_FLOAT = 0x0003;
inline constexpr WORD WAVE_FORMAT_EXTENSIBLE = 0xFFFE;

// The extensible form, 40 bytes as on Windows (packed there by mmreg.h).
#pragma pack(push, 1)
struct WAVEFORMATEXTENSIBLE {
  WAVEFORMATEX Format;
  union {
    WORD wValidBitsPerSample;
    WORD wSamplesPerBlock;
    WORD wReserved;
  } Samples;
  DWORD dwChannelMask;
  GUID SubFormat;
};
#pragma pack(pop)

// ---- Audio engine buffers (the engine's own header on Windows) -----------------

using HNSTIME = LONGLONG;  // 100-nanosecond units
using FLOAT32 = float;

enum APO_BUFFER_FLAGS { BUFFER_INVALID = 0, BUFFER_VALID = 1, BUFFER_SILENT = 2 };

struct APO_CONNECTION_PROPERTY {
  UINT_PTR pBuffer;
  UINT32 u32ValidFrameCount;
  APO_BUFFER_FLAGS u32BufferFlags;
  UINT32 u32Signature;
};

// ---- Property store ------------------------------------------------------------

inline constexpr DWORD STGM_READ = 0x0;
inline constexpr DWORD STGM_WRITE = 0x1;
inline constexpr DWORD STGM_READWRITE = 0x2;

inline constexpr IID IID_IPropertyStore = {
    0x886d8eeb, 0x8cf2, 0x4446, {0x8d, 0x02, 0xcd, 0xba, 0x1d, 0xbd, 0xcf, 0x99}};

class IPropertyStore : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE GetCount(DWORD* cProps) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetAt(DWORD iProp, PROPERTYKEY* pkey) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT* pv) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetValue(REFPROPERTYKEY key, REFPROPVARIANT propvar) = 0;
  virtual HRESULT STDMETHODCALLTYPE Commit() = 0;

 protected:
  ~IPropertyStore() = default;
};

// ---- Core Audio devices ----------------------------------------------------------

enum EDataFlow { eRender = 0, eCapture = 1, eAll = 2, EDataFlow_enum_count = 3 };
enum ERole { eConsole = 0, eMultimedia = 1, eCommunications = 2, ERole_enum_count = 3 };

inline constexpr DWORD DEVICE_STATE_ACTIVE = 0x1;
inline constexpr DWORD DEVICE_STATE_DISABLED = 0x2;
inline constexpr DWORD DEVICE_STATE_NOTPRESENT = 0x4;
inline constexpr DWORD DEVICE_STATE_UNPLUGGED = 0x8;
inline constexpr DWORD DEVICE_STATEMASK_ALL = 0xF;

inline constexpr CLSID CLSID_MMDeviceEnumerator = {
    0xBCDE0395, 0xE52F, 0x467C, {0x8E, 0x3D, 0xC4, 0x57, 0x91, 0x69, 0x2E, 0x2E}};
inline constexpr IID IID_IMMDeviceEnumerator = {
    0xA95664D2, 0x9614, 0x4F35, {0xA7, 0x46, 0xDE, 0x8D, 0xB6, 0x36, 0x17, 0xE6}};
inline constexpr IID IID_IMMDevice = {
    0xD666063F, 0x1587, 0x4E43, {0x81, 0xF1, 0xB9, 0x48, 0xE8, 0x07, 0x36, 0x3F}};
inline constexpr IID IID_IMMDeviceCollection = {
    0x0BD7A1BE, 0x7A1A, 0x44DB, {0x83, 0x97, 0xCC, 0x53, 0x92, 0x38, 0x7B, 0x5E}};
inline constexpr IID IID_IMMNotificationClient = {
    0x7991EEC9, 0x7E89, 0x4D85, {0x83, 0x90, 0x6C, 0x70, 0x3C, 0xEC, 0x60, 0xC0}};

inline constexpr PROPERTYKEY PKEY_AudioEndpoint_Disable_SysFx = {
    {0x1da5d803, 0xd492, 0x4edd, {0x8c, 0x23, 0xe0, 0xc0, 0xff, 0xee, 0x7f, 0x0e}}, 5};
inline constexpr PROPERTYKEY PKEY_AudioEndpoint_GUID = {
    {0x1da5d803, 0xd492, 0x4edd, {0x8c, 0x23, 0xe0, 0xc0, 0xff, 0xee, 0x7f, 0x0e}}, 4};
inline constexpr PROPERTYKEY PKEY_Device_DeviceDesc = {
    {0xa45c254e, 0xdf1c, 0x4efd, {0x80, 0x20, 0x67, 0xd1, 0x46, 0xa8, 0x50, 0xe0}}, 2};
inline constexpr PROPERTYKEY PKEY_Device_FriendlyName = {
    {0xa45c254e, 0xdf1c, 0x4efd, {0x80, 0x20, 0x67, 0xd1, 0x46, 0xa8, 0x50, 0xe0}}, 14};

class IMMDevice : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE Activate(REFIID iid, DWORD clsCtx, PROPVARIANT* activationParams,
                                             void** ppInterface) = 0;
  virtual HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD stgmAccess,
                                                      IPropertyStore** ppProperties) = 0;
  // The id in memory from CoTaskMemAlloc, freed by the caller with CoTaskMemFree.
  virtual HRESULT STDMETHODCALLTYPE GetId(LPWSTR* ppstrId) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetState(DWORD* pdwState) = 0;

 protected:
  ~IMMDevice() = default;
};

class IMMDeviceCollection : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE GetCount(UINT* pcDevices) = 0;
  virtual HRESULT STDMETHODCALLTYPE Item(UINT nDevice, IMMDevice** ppDevice) = 0;

 protected:
  ~IMMDeviceCollection() = default;
};

class IMMNotificationClient : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR pwstrDeviceId, DWORD dwNewState) = 0;
  virtual HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR pwstrDeviceId) = 0;
  virtual HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR pwstrDeviceId) = 0;
  virtual HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role,
                                                           LPCWSTR pwstrDefaultDeviceId) = 0;
  virtual HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR pwstrDeviceId,
                                                           const PROPERTYKEY key) = 0;

 protected:
  ~IMMNotificationClient() = default;
};

class IMMDeviceEnumerator : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow dataFlow, DWORD dwStateMask,
                                                       IMMDeviceCollection** ppDevices) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow dataFlow, ERole role,
                                                            IMMDevice** ppEndpoint) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR pwstrId, IMMDevice** ppDevice) = 0;
  virtual HRESULT STDMETHODCALLTYPE RegisterEndpointNotificationCallback(
      IMMNotificationClient* pClient) = 0;
  virtual HRESULT STDMETHODCALLTYPE UnregisterEndpointNotificationCallback(
      IMMNotificationClient* pClient) = 0;

 protected:
  ~IMMDeviceEnumerator() = default;
};

// ---- Audio streams -------------------------------------------------------------

using REFERENCE_TIME = LONGLONG;  // 100-nanosecond units
using LPCGUID = const GUID*;

enum AUDCLNT_SHAREMODE { AUDCLNT_SHAREMODE_SHARED = 0, AUDCLNT_SHAREMODE_EXCLUSIVE = 1 };

inline constexpr DWORD AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY = 0x1;
inline constexpr DWORD AUDCLNT_BUFFERFLAGS_SILENT = 0x2;

inline constexpr HRESULT AUDCLNT_E_NOT_INITIALIZED = MakeHresult(0x88890001u);
inline constexpr HRESULT AUDCLNT_E_ALREADY_INITIALIZED = MakeHresult(0x88890002u);
inline constexpr HRESULT AUDCLNT_E_DEVICE_INVALIDATED = MakeHresult(0x88890004u);
inline constexpr HRESULT AUDCLNT_E_OUT_OF_ORDER = MakeHresult(0x88890007u);
inline constexpr HRESULT AUDCLNT_E_UNSUPPORTED_FORMAT = MakeHresult(0x88890008u);
inline constexpr HRESULT AUDCLNT_E_INVALID_SIZE = MakeHresult(0x88890009u);
inline constexpr HRESULT AUDCLNT_E_DEVICE_IN_USE = MakeHresult(0x8889000Au);
inline constexpr HRESULT AUDCLNT_E_WRONG_ENDPOINT_TYPE = MakeHresult(0x88890003u);
inline constexpr HRESULT AUDCLNT_S_BUFFER_EMPTY = MakeHresult(0x08890001u);

inline constexpr IID IID_IAudioClient = {
    0x1CB9AD4C, 0xDBFA, 0x4C32, {0xB1, 0x78, 0xC2, 0xF5, 0x68, 0xA7, 0x03, 0xB2}};
inline constexpr IID IID_IAudioCaptureClient = {
    0xC8ADBD64, 0xE71E, 0x48A0, {0xA4, 0xDE, 0x18, 0x5C, 0x39, 0x5C, 0xD3, 0x17}};

class IAudioClient : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE Initialize(AUDCLNT_SHAREMODE shareMode, DWORD streamFlags,
                                               REFERENCE_TIME hnsBufferDuration, REFERENCE_TIME hnsPeriodicity,
                                               const WAVEFORMATEX* pFormat, LPCGUID audioSessionGuid) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetBufferSize(UINT32* pNumBufferFrames) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetStreamLatency(REFERENCE_TIME* phnsLatency) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetCurrentPadding(UINT32* pNumPaddingFrames) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsFormatSupported(AUDCLNT_SHAREMODE shareMode, const WAVEFORMATEX* pFormat,
                                                      WAVEFORMATEX** ppClosestMatch) = 0;
  // The format in memory from CoTaskMemAlloc, freed by the caller.
  virtual HRESULT STDMETHODCALLTYPE GetMixFormat(WAVEFORMATEX** ppDeviceFormat) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDevicePeriod(REFERENCE_TIME* phnsDefaultDevicePeriod,
                                                    REFERENCE_TIME* phnsMinimumDevicePeriod) = 0;
  virtual HRESULT STDMETHODCALLTYPE Start() = 0;
  virtual HRESULT STDMETHODCALLTYPE Stop() = 0;
  virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
  virtual HRESULT STDMETHODCALLTYPE SetEventHandle(HANDLE eventHandle) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetService(REFIID riid, void** ppv) = 0;

 protected:
  ~IAudioClient() = default;
};

class IAudioCaptureClient : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE GetBuffer(BYTE** ppData, UINT32* pNumFramesToRead, DWORD* pdwFlags,
                                              UINT64* pu64DevicePosition, UINT64* pu64QPCPosition) = 0;
  virtual HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 numFramesRead) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetNextPacketSize(UINT32* pNumFramesInNextPacket) = 0;

 protected:
  ~IAudioCaptureClient() = default;
};

namespace zor::com {
// COM text and velapo's wide text are the same type here.
inline const char16_t* FromComText(const WCHAR* text) { return text; }
inline const WCHAR* ToComText(const char16_t* text) { return text; }
inline WCHAR* ToComText(char16_t* text) { return text; }
}  // namespace zor::com
