#pragma once

#include <cstdint>

#include "platform/apotypes.h"
#include "platform/criticalsection.h"

// The common part of every effect object (MinGW and Linux have no such base):
// the initialised and locked states, the connection checks of a lock, and the
// format the lock fixes. The class's registration flags name which parts of
// that format every connection must share: with flags 12 only rate, container
// bytes and valid bits are stored and compared, and the channel count stays
// as it was (0 until a class asks for it).
//
// Lock and unlock run on the engine's configuration thread and are kept apart
// by the base's lock; the real-time entry of a derived class runs only
// between them. IUnknown is left to the derived class.
class CBaseAudioProcessingObject : public IAudioProcessingObject,
                                   public IAudioProcessingObjectRT,
                                   public IAudioProcessingObjectConfiguration {
 public:
  explicit CBaseAudioProcessingObject(const APO_REG_PROPERTIES* regProperties);
  virtual ~CBaseAudioProcessingObject();
  CBaseAudioProcessingObject(const CBaseAudioProcessingObject&) = delete;
  CBaseAudioProcessingObject& operator=(const CBaseAudioProcessingObject&) = delete;

  // IAudioProcessingObject
  HRESULT STDMETHODCALLTYPE Reset() override;
  // 0: the base has no latency of its own. A null pointer gives E_POINTER
  // rather than a crash in the engine's process.
  HRESULT STDMETHODCALLTYPE GetLatency(HNSTIME* pTime) override;
  HRESULT STDMETHODCALLTYPE GetRegistrationProperties(APO_REG_PROPERTIES** ppRegProps) override;
  HRESULT STDMETHODCALLTYPE Initialize(UINT32 cbDataSize, BYTE* pbyData) override;
  HRESULT STDMETHODCALLTYPE GetInputChannelCount(UINT32* pu32ChannelCount) override;

  // IAudioProcessingObjectRT: frames in equal frames out.
  UINT32 STDMETHODCALLTYPE CalcInputFrames(UINT32 u32OutputFrameCount) override;
  UINT32 STDMETHODCALLTYPE CalcOutputFrames(UINT32 u32InputFrameCount) override;

  // IAudioProcessingObjectConfiguration
  HRESULT STDMETHODCALLTYPE LockForProcess(UINT32 u32NumInputConnections,
                                           APO_CONNECTION_DESCRIPTOR** ppInputConnections,
                                           UINT32 u32NumOutputConnections,
                                           APO_CONNECTION_DESCRIPTOR** ppOutputConnections) override;
  HRESULT STDMETHODCALLTYPE UnlockForProcess() override;

  // Called last by a lock that passed every check; the lock holds only if
  // it succeeds. The base accepts everything.
  virtual HRESULT ValidateAndCacheConnectionInfo(UINT32 u32NumInputConnections,
                                                 APO_CONNECTION_DESCRIPTOR** ppInputConnections,
                                                 UINT32 u32NumOutputConnections,
                                                 APO_CONNECTION_DESCRIPTOR** ppOutputConnections);

  bool IsLocked() const { return m_bIsLocked; }
  bool IsInitialized() const { return m_bIsInitialized; }

 protected:
  // The format a lock fixed, for derived classes.
  uint32_t LockedSamplesPerFrame() const { return m_u32SamplesPerFrame; }
  uint32_t LockedBytesPerSampleContainer() const { return m_u32BytesPerSampleContainer; }
  uint32_t LockedValidBitsPerSample() const { return m_u32ValidBitsPerSample; }
  float LockedFramesPerSecond() const { return m_f32FramesPerSecond; }

 private:
  HRESULT CheckConnections(UINT32 count, APO_CONNECTION_DESCRIPTOR** connections) const;
  HRESULT CheckFrameCountsAndOverlap(UINT32 u32NumInputConnections,
                                     APO_CONNECTION_DESCRIPTOR** ppInputConnections,
                                     UINT32 u32NumOutputConnections,
                                     APO_CONNECTION_DESCRIPTOR** ppOutputConnections) const;
  bool AgreesWithLockedFormat(const UNCOMPRESSEDAUDIOFORMAT& format) const;

  bool m_bIsLocked = false;
  bool m_bIsInitialized = false;
  const APO_REG_PROPERTIES* m_pRegProperties;
  zor::os::CriticalSection m_lock;
  uint32_t m_u32SamplesPerFrame = 0;
  uint32_t m_u32BytesPerSampleContainer = 0;
  uint32_t m_u32ValidBitsPerSample = 0;
  float m_f32FramesPerSecond = 0.0f;
};
