#pragma once
// The audio engine's vocabulary for effect objects, declared once for both
// platforms from the engine's public documentation. MinGW's headers give only
// the buffer record (APO_CONNECTION_PROPERTY) and its flags, and the Linux
// COM layer declares the same; everything else an effect object meets is
// here: the media type, the uncompressed format, the connection, registration
// and initialisation records, the interfaces and their ids, the result codes.

#include "platform/com.h"

// ---- Result codes --------------------------------------------------------------

inline constexpr HRESULT APOERR_ALREADY_INITIALIZED = static_cast<HRESULT>(0x887D0001u);
inline constexpr HRESULT APOERR_NOT_INITIALIZED = static_cast<HRESULT>(0x887D0002u);
inline constexpr HRESULT APOERR_FORMAT_NOT_SUPPORTED = static_cast<HRESULT>(0x887D0003u);
inline constexpr HRESULT APOERR_INVALID_APO_CLSID = static_cast<HRESULT>(0x887D0004u);
inline constexpr HRESULT APOERR_BUFFERS_OVERLAP = static_cast<HRESULT>(0x887D0005u);
inline constexpr HRESULT APOERR_ALREADY_UNLOCKED = static_cast<HRESULT>(0x887D0006u);
inline constexpr HRESULT APOERR_NUM_CONNECTIONS_INVALID = static_cast<HRESULT>(0x887D0007u);
inline constexpr HRESULT APOERR_INVALID_OUTPUT_MAXFRAMECOUNT = static_cast<HRESULT>(0x887D0008u);
inline constexpr HRESULT APOERR_INVALID_CONNECTION_FORMAT = static_cast<HRESULT>(0x887D0009u);
inline constexpr HRESULT APOERR_APO_LOCKED = static_cast<HRESULT>(0x887D000Au);

// ---- Formats ---------------------------------------------------------------------

// 32-bit float samples, the one sample type effect objects exchange.
inline constexpr GUID kSubtypeIeeeFloat = {
    0x00000003, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
inline constexpr GUID kSubtypePcm = {
    0x00000001, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};

struct UNCOMPRESSEDAUDIOFORMAT {
  GUID guidFormatType;
  DWORD dwSamplesPerFrame;
  DWORD dwBytesPerSampleContainer;
  DWORD dwValidBitsPerSample;
  FLOAT32 fFramesPerSecond;
  DWORD dwChannelMask;
};
static_assert(sizeof(UNCOMPRESSEDAUDIOFORMAT) == 36);
static_assert(sizeof(WAVEFORMATEXTENSIBLE) == 40);

inline constexpr DWORD AUDIOMEDIATYPE_EQUAL_FORMAT_TYPES = 0x2;
inline constexpr DWORD AUDIOMEDIATYPE_EQUAL_FORMAT_DATA = 0x4;
inline constexpr DWORD AUDIOMEDIATYPE_EQUAL_FORMAT_USER_DATA = 0x8;

inline constexpr IID IID_IAudioMediaType = {
    0x4E997F73, 0xB71F, 0x4798, {0x87, 0x3B, 0xED, 0x7D, 0xFC, 0xF1, 0x5B, 0x4D}};

class IAudioMediaType : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE IsCompressedFormat(BOOL* pfCompressed) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsEqual(IAudioMediaType* pIAudioType, DWORD* pdwFlags) = 0;
  virtual const WAVEFORMATEX* STDMETHODCALLTYPE GetAudioFormat() = 0;
  virtual HRESULT STDMETHODCALLTYPE GetUncompressedAudioFormat(
      UNCOMPRESSEDAUDIOFORMAT* pUncompressedAudioFormat) = 0;

 protected:
  ~IAudioMediaType() = default;
};

// ---- Connections -------------------------------------------------------------------

// Every connection record the engine hands over carries this mark.
inline constexpr UINT32 APO_CONNECTION_PROPERTY_SIGNATURE = 0x41434453;  // "ACDS"
inline constexpr UINT32 APO_CONNECTION_DESCRIPTOR_SIGNATURE = 0x41434453;

enum APO_CONNECTION_BUFFER_TYPE {
  APO_CONNECTION_BUFFER_TYPE_ALLOCATED = 0,
  APO_CONNECTION_BUFFER_TYPE_EXTERNAL = 1,
  APO_CONNECTION_BUFFER_TYPE_DEPENDANT = 2,
};

struct APO_CONNECTION_DESCRIPTOR {
  APO_CONNECTION_BUFFER_TYPE Type;
  UINT_PTR pBuffer;
  UINT32 u32MaxFrameCount;
  IAudioMediaType* pFormat;
  UINT32 u32Signature;
};

// ---- Registration ------------------------------------------------------------------

enum APO_FLAG : UINT32 {
  APO_FLAG_NONE = 0x0,
  APO_FLAG_INPLACE = 0x1,
  APO_FLAG_SAMPLESPERFRAME_MUST_MATCH = 0x2,
  APO_FLAG_FRAMESPERSECOND_MUST_MATCH = 0x4,
  APO_FLAG_BITSPERSAMPLE_MUST_MATCH = 0x8,
  APO_FLAG_MIXER = 0x10,
  APO_FLAG_DEFAULT = 0xE,
};

// One record per class; the interface list runs on past the declared element
// when a class names more than one (allocated with room for them).
struct APO_REG_PROPERTIES {
  CLSID clsid;
  APO_FLAG Flags;
  WCHAR szFriendlyName[256];
  WCHAR szCopyrightInfo[256];
  UINT32 u32MajorVersion;
  UINT32 u32MinorVersion;
  UINT32 u32MinInputConnections;
  UINT32 u32MaxInputConnections;
  UINT32 u32MinOutputConnections;
  UINT32 u32MaxOutputConnections;
  UINT32 u32MaxInstances;
  UINT32 u32NumAPOInterfaces;
  IID iidAPOInterfaceList[1];
};

// ---- Initialisation blocks -----------------------------------------------------------

struct APOInitBaseStruct {
  UINT32 cbSize;
  CLSID clsid;
};

// The older block, given to every system-effects object.
struct APOInitSystemEffects {
  APOInitBaseStruct APOInit;
  IPropertyStore* pAPOEndpointProperties;
  IPropertyStore* pAPOSystemEffectsProperties;
  void* pReserved;
  IMMDeviceCollection* pDeviceCollection;
};

// The newer block: adds the software device and connector, the processing
// mode and whether the object is made only to list its effects.
struct APOInitSystemEffects2 {
  APOInitBaseStruct APOInit;
  IPropertyStore* pAPOEndpointProperties;
  IPropertyStore* pAPOSystemEffectsProperties;
  void* pReserved;
  IMMDeviceCollection* pDeviceCollection;
  UINT nSoftwareIoDeviceInCollection;
  UINT nSoftwareIoConnectorIndex;
  GUID AudioProcessingMode;
  BOOL InitializeForDiscoveryOnly;
};

// The engine tells the two blocks apart by size alone, so these are fixed.
static_assert(sizeof(APOInitSystemEffects) == 56);
static_assert(sizeof(APOInitSystemEffects2) == 88);
static_assert(sizeof(APO_CONNECTION_PROPERTY) == 24);

// ---- Interfaces ------------------------------------------------------------------------

inline constexpr IID IID_IAudioProcessingObject = {
    0xFD7F2B29, 0x24D0, 0x4B5C, {0xB1, 0x77, 0x59, 0x2C, 0x39, 0xF9, 0xCA, 0x10}};
inline constexpr IID IID_IAudioProcessingObjectRT = {
    0x9E1D6A6D, 0xDDBC, 0x4E95, {0xA4, 0xC7, 0xAD, 0x64, 0xBA, 0x37, 0x84, 0x6C}};
inline constexpr IID IID_IAudioProcessingObjectConfiguration = {
    0x0E5ED805, 0xABA6, 0x49C3, {0x8F, 0x9A, 0x2B, 0x8C, 0x88, 0x9C, 0x4F, 0xA8}};
inline constexpr IID IID_IAudioSystemEffects = {
    0x5FA00F27, 0xADD6, 0x499A, {0x8A, 0x9D, 0x6B, 0x98, 0x52, 0x1F, 0xA7, 0x5B}};
inline constexpr IID IID_IAudioSystemEffects2 = {
    0xBAFE99D2, 0x7436, 0x44CE, {0x9E, 0x0E, 0x4D, 0x89, 0xAF, 0xBF, 0xFF, 0x56}};

class IAudioProcessingObject : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
  virtual HRESULT STDMETHODCALLTYPE GetLatency(HNSTIME* pTime) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRegistrationProperties(APO_REG_PROPERTIES** ppRegProps) = 0;
  virtual HRESULT STDMETHODCALLTYPE Initialize(UINT32 cbDataSize, BYTE* pbyData) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsInputFormatSupported(
      IAudioMediaType* pOppositeFormat, IAudioMediaType* pRequestedInputFormat,
      IAudioMediaType** ppSupportedInputFormat) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsOutputFormatSupported(
      IAudioMediaType* pOppositeFormat, IAudioMediaType* pRequestedOutputFormat,
      IAudioMediaType** ppSupportedOutputFormat) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetInputChannelCount(UINT32* pu32ChannelCount) = 0;

 protected:
  ~IAudioProcessingObject() = default;
};

class IAudioProcessingObjectRT : public IUnknown {
 public:
  virtual void STDMETHODCALLTYPE APOProcess(UINT32 u32NumInputConnections,
                                            APO_CONNECTION_PROPERTY** ppInputConnections,
                                            UINT32 u32NumOutputConnections,
                                            APO_CONNECTION_PROPERTY** ppOutputConnections) = 0;
  virtual UINT32 STDMETHODCALLTYPE CalcInputFrames(UINT32 u32OutputFrameCount) = 0;
  virtual UINT32 STDMETHODCALLTYPE CalcOutputFrames(UINT32 u32InputFrameCount) = 0;

 protected:
  ~IAudioProcessingObjectRT() = default;
};

class IAudioProcessingObjectConfiguration : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE LockForProcess(UINT32 u32NumInputConnections,
                                                   APO_CONNECTION_DESCRIPTOR** ppInputConnections,
                                                   UINT32 u32NumOutputConnections,
                                                   APO_CONNECTION_DESCRIPTOR** ppOutputConnections) = 0;
  virtual HRESULT STDMETHODCALLTYPE UnlockForProcess() = 0;

 protected:
  ~IAudioProcessingObjectConfiguration() = default;
};

// No operations of its own: it marks a system-effects object.
class IAudioSystemEffects : public IUnknown {
 protected:
  ~IAudioSystemEffects() = default;
};

class IAudioSystemEffects2 : public IAudioSystemEffects {
 public:
  virtual HRESULT STDMETHODCALLTYPE GetEffectsList(LPGUID* ppEffectsIds, UINT* pcEffects,
                                                   HANDLE Event) = 0;

 protected:
  ~IAudioSystemEffects2() = default;
};
