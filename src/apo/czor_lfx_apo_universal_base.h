#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "apo/cbaseaudioprocessingobject.h"
#include "apo/zorapoeffectlistwatcher.h"
#include "manager/zorapoprocessmanager.h"
#include "platform/criticalsection.h"

// The render effect object the engine drives, for all six locations: it maps
// the engine's life cycle (Initialize, format talks, lock, APOProcess, unlock)
// onto one process manager, and answers the effect list. The six classes
// differ only in the location code they pass in.
//
// No failure of the manager reaches the engine: an endpoint that cannot be
// bound, or a manager that cannot be readied, leaves the object copying
// audio through. So does an object numbered above the instance limit.
//
// Threads: the configuration thread calls Initialize, the format talks, lock
// and unlock; the audio thread calls APOProcess between lock and unlock only;
// GetEffectsList may come on any thread, serialised by m_listLock, and its
// watcher thread only signals the client's event.
class CZOR_LFX_APO_Universal_Base : public CBaseAudioProcessingObject, public IAudioSystemEffects2 {
 public:
  // The fade-in after a silent stretch, in frames.
  static constexpr uint32_t kRampLength = 20;
  static constexpr uint32_t kRampUnarmed = 0xFFFFFFFF;

  // `location` 0 to 5; a code of 6 or more is logged and treated as 0's
  // record, with no effect table.
  explicit CZOR_LFX_APO_Universal_Base(uint32_t location);
  ~CZOR_LFX_APO_Universal_Base() override;

  HRESULT FinalConstruct();
  // Stops the effect list's watcher; called once, before destruction.
  void FinalRelease();

  // IUnknown: the APO interfaces, the system-effects pair and the class's own
  // interface id (which adds no operations).
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;

  // IAudioProcessingObject
  // The manager's latency; 0 before the first lock. A null pointer gives
  // E_POINTER: the engine ignores the code, a crash would take its process.
  HRESULT STDMETHODCALLTYPE GetLatency(HNSTIME* pTime) override;
  HRESULT STDMETHODCALLTYPE Initialize(UINT32 cbDataSize, BYTE* pbyData) override;
  HRESULT STDMETHODCALLTYPE IsInputFormatSupported(IAudioMediaType* pOppositeFormat,
                                                   IAudioMediaType* pRequestedInputFormat,
                                                   IAudioMediaType** ppSupportedInputFormat) override;
  HRESULT STDMETHODCALLTYPE IsOutputFormatSupported(IAudioMediaType* pOppositeFormat,
                                                    IAudioMediaType* pRequestedOutputFormat,
                                                    IAudioMediaType** ppSupportedOutputFormat) override;

  // IAudioProcessingObjectConfiguration: the lock numbers the object among
  // those locked at the moment, with the thread's priority raised meanwhile.
  HRESULT STDMETHODCALLTYPE LockForProcess(UINT32 u32NumInputConnections,
                                           APO_CONNECTION_DESCRIPTOR** ppInputConnections,
                                           UINT32 u32NumOutputConnections,
                                           APO_CONNECTION_DESCRIPTOR** ppOutputConnections) override;
  HRESULT STDMETHODCALLTYPE UnlockForProcess() override;

  // IAudioProcessingObjectRT. No lock, no allocation, no result: audio
  // always leaves, processed or copied. In the section RT_CODE.
  void STDMETHODCALLTYPE APOProcess(UINT32 u32NumInputConnections, APO_CONNECTION_PROPERTY** ppInputConnections,
                                    UINT32 u32NumOutputConnections,
                                    APO_CONNECTION_PROPERTY** ppOutputConnections) override;

  // IAudioSystemEffects2: the known effect types switched on for this
  // endpoint's current mode, read from its configuration and settings at the
  // moment of the call. Only a discovery-only object knows its endpoint; a
  // streaming object's list is empty. With an event, the event is set after
  // each settings change until the next call or release.
  HRESULT STDMETHODCALLTYPE GetEffectsList(LPGUID* ppEffectsIds, UINT* pcEffects, HANDLE Event) override;

  HRESULT ValidateAndCacheConnectionInfo(UINT32 u32NumInputConnections,
                                         APO_CONNECTION_DESCRIPTOR** ppInputConnections,
                                         UINT32 u32NumOutputConnections,
                                         APO_CONNECTION_DESCRIPTOR** ppOutputConnections) override;
  static bool ValidateDefaultAPOFormat(UNCOMPRESSEDAUDIOFORMAT& format);
  virtual uint32_t GetLocation() const { return m_location; }

  // For hosts, benchmarks and tests.
  ZORAPOProcessManager& Manager() { return m_manager; }
  int32_t InstanceNumber() const { return m_instanceNumber; }
  bool IsReady() const { return m_bReady; }
  uint32_t RampPosition() const { return m_rampPosition; }
  static uint32_t LiveObjects() { return s_liveObjects.load(); }
  static uint32_t LockedObjects() { return s_lockedObjects.load(); }
  // Buffers that took the copy path, and those of them that were in place.
  static uint64_t CopyPasses() { return s_copyPasses.load(std::memory_order_relaxed); }
  static uint64_t InPlaceCopyPasses() { return s_inPlaceCopyPasses.load(std::memory_order_relaxed); }
  // The silence scan: is any of `count` samples not exactly zero (NaN is
  // sound, -0.0 silence)? Public for the benchmarks.
  static bool HasSound(const float* samples, uint64_t count);

 private:
  void CopyPath(APO_CONNECTION_PROPERTY& input, APO_CONNECTION_PROPERTY& output) const;
  void FadeIn(float* output, uint32_t frames, uint32_t channels);
  HRESULT StartClientEvent(HANDLE event);
  void StopWatcher();
  void ListEffects(std::vector<GUID>& effects) const;

  std::atomic<ULONG> m_refCount{1};
  ZORAPOProcessManager m_manager;
  ZORComPtr<IMMDevice> m_spDevice;
  ZORComPtr<IPropertyStore> m_spFxProperties;
  int32_t m_connectorIndex = -1;
  GUID m_processingMode = GUID_NULL;
  uint32_t m_contentIndex = 0;
  bool m_bDiscoveryOnly = false;
  bool m_bEndpointBound = false;
  bool m_bReady = false;
  WAVEFORMATEXTENSIBLE m_inputFormat{};
  WAVEFORMATEXTENSIBLE m_outputFormat{};
  int32_t m_instanceNumber = -1;
  uint32_t m_rampLength = 0;
  uint32_t m_rampPosition = kRampUnarmed;
  zor::os::CriticalSection m_listLock;
  HANDLE m_hClientEvent = nullptr;
  std::u16string m_endpointGuid;
  ZORAPOEffectListWatcher m_watcher;
  uint32_t m_location;

  static std::atomic<uint32_t> s_liveObjects;
  static std::atomic<uint32_t> s_lockedObjects;
  static std::atomic<uint64_t> s_copyPasses;
  static std::atomic<uint64_t> s_inPlaceCopyPasses;
};
