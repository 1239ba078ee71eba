#pragma once

#include <atomic>
#include <cstdint>

#include "apo/cbaseaudioprocessingobject.h"
#include "manager/zorapoprocessmanager.h"
#include "platform/namedmutex.h"

// The capture effect object: a manager on a capture stream, bound to its
// endpoint at Initialize. It takes only the older init block, has no effect
// list, no instance limit, no copy path and no fade-in. While it is locked it
// holds the named mutex "Global\com.zorworks.captureapo3mutex", whose mere
// existence tells render streams on the machine that capture runs.
//
// Threads as the render objects: configuration thread for all but APOProcess.
class CZOR_LFX_Capture_APO_Universal : public CBaseAudioProcessingObject, public IAudioSystemEffects {
 public:
  static constexpr char16_t kMutexName[] = u"Global\\com.zorworks.captureapo3mutex";

  CZOR_LFX_Capture_APO_Universal();
  ~CZOR_LFX_Capture_APO_Universal() override;

  HRESULT FinalConstruct() { return S_OK; }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;

  // As the render objects: the manager's figure, E_POINTER for null.
  HRESULT STDMETHODCALLTYPE GetLatency(HNSTIME* pTime) override;
  // Exactly the 56-byte block; binds the manager to the endpoint now, and a
  // failed binding is no failure.
  HRESULT STDMETHODCALLTYPE Initialize(UINT32 cbDataSize, BYTE* pbyData) override;
  HRESULT STDMETHODCALLTYPE IsInputFormatSupported(IAudioMediaType* pOppositeFormat,
                                                   IAudioMediaType* pRequestedInputFormat,
                                                   IAudioMediaType** ppSupportedInputFormat) override;
  HRESULT STDMETHODCALLTYPE IsOutputFormatSupported(IAudioMediaType* pOppositeFormat,
                                                    IAudioMediaType* pRequestedOutputFormat,
                                                    IAudioMediaType** ppSupportedOutputFormat) override;
  HRESULT STDMETHODCALLTYPE LockForProcess(UINT32 u32NumInputConnections,
                                           APO_CONNECTION_DESCRIPTOR** ppInputConnections,
                                           UINT32 u32NumOutputConnections,
                                           APO_CONNECTION_DESCRIPTOR** ppOutputConnections) override;
  HRESULT STDMETHODCALLTYPE UnlockForProcess() override;
  // Valid buffers go through the manager; silent ones pass their flags and
  // count and leave the output untouched. In the section RT_CODE.
  void STDMETHODCALLTYPE APOProcess(UINT32 u32NumInputConnections, APO_CONNECTION_PROPERTY** ppInputConnections,
                                    UINT32 u32NumOutputConnections,
                                    APO_CONNECTION_PROPERTY** ppOutputConnections) override;

  HRESULT ValidateAndCacheConnectionInfo(UINT32 u32NumInputConnections,
                                         APO_CONNECTION_DESCRIPTOR** ppInputConnections,
                                         UINT32 u32NumOutputConnections,
                                         APO_CONNECTION_DESCRIPTOR** ppOutputConnections) override;

  ZORAPOProcessManager& Manager() { return m_manager; }
  bool HoldsMutex() const { return m_mutex.IsOpen(); }
  static uint32_t LiveObjects() { return s_liveObjects.load(); }

 private:
  std::atomic<ULONG> m_refCount{1};
  ZORAPOProcessManager m_manager;
  WAVEFORMATEXTENSIBLE m_inputFormat{};
  WAVEFORMATEXTENSIBLE m_outputFormat{};
  zor::os::NamedMutex m_mutex;

  static std::atomic<uint32_t> s_liveObjects;
};
