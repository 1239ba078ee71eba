#pragma once
// The engine emulator's driver: one effect object through the audio engine's
// life cycle, in the engine's order,
//
//   create by class id -> Initialize with the system-effects block ->
//   format talks -> LockForProcess -> APOProcess per buffer, with flags ->
//   GetLatency, GetEffectsList -> UnlockForProcess -> release,
//
// each step callable on its own so that a test can call them out of order.
// The endpoint side (FX property store, device collection) and the media
// types are the emulator's test objects, so a caller can spoil any of them.
// velapo-host runs streams on it. One thread drives an emulator; APOProcess
// may come from another thread than the rest, as with the engine.

#include <cstdint>
#include <string>
#include <vector>

#include "engine/zortestendpoint.h"
#include "engine/zortestmediatype.h"
#include "platform/apotypes.h"

class ZOREngineEmulator {
 public:
  struct Stream {
    // Put in the FX store as PKEY_AudioEndpoint_GUID; empty leaves it out.
    std::u16string endpointGuid;
    bool renderEndpoint = true;
    // The newer 88-byte block with mode and discovery, else the older 56.
    bool newerBlock = true;
    GUID processingMode = kDefaultMode;
    bool discoveryOnly = false;
    uint32_t inputChannels = 2;
    uint32_t outputChannels = 2;
    float rate = 48000.0f;
    uint32_t maxFrames = 480;
  };
  static constexpr GUID kDefaultMode = {
      0xC18E2F7E, 0x933D, 0x4965, {0xB7, 0xD1, 0x1E, 0xEF, 0x22, 0x8D, 0x2A, 0xF3}};

  explicit ZOREngineEmulator(const Stream& stream);
  // Unlocks a locked object and releases it.
  ~ZOREngineEmulator();
  ZOREngineEmulator(const ZOREngineEmulator&) = delete;
  ZOREngineEmulator& operator=(const ZOREngineEmulator&) = delete;

  // The format of the next format talks and lock, as after a device format
  // change; the buffers follow.
  void SetFormat(uint32_t inputChannels, uint32_t outputChannels, float rate);

  // Each step answers the object's result.
  HRESULT Create(REFCLSID clsid);
  // Takes an object made elsewhere (a module's class factory) in place of
  // Create, adding a reference of its own.
  HRESULT Adopt(IUnknown* object);
  HRESULT Initialize();
  // Input against any output, then output against that input; S_OK only when
  // both take the stream's formats as they are.
  HRESULT NegotiateFormats();
  HRESULT Lock();
  // One buffer of input.size() / inputChannels frames, the output offered
  // with as many frames unless `outputFrames` says otherwise. The output
  // buffer keeps what it held before the call (stale samples stay visible).
  // The result is the output's flags; Output() reads its samples.
  static constexpr uint32_t kSameFrames = 0xFFFFFFFF;
  uint32_t Process(const std::vector<float>& input, uint32_t flags, uint32_t outputFrames = kSameFrames);
  HRESULT GetLatency(HNSTIME& latency);
  HRESULT GetEffectsList(std::vector<GUID>& effects, HANDLE event);
  HRESULT Unlock();
  void Release();

  // The whole cycle for a stream: create to lock, `buffers` valid buffers of
  // `input`, latency and effect list, unlock. The first failing step's
  // result, else S_OK.
  HRESULT RunLifeCycle(REFCLSID clsid, const std::vector<float>& input, uint32_t buffers);
  // The same from Initialize on, for an object made already (Adopt).
  HRESULT RunLifeCycle(const std::vector<float>& input, uint32_t buffers);

  IAudioProcessingObject* Object() const { return m_object; }
  ZORTestPropertyStore& FxProperties() { return *m_fxProperties; }
  ZORTestDeviceCollection& Devices() { return *m_devices; }
  std::vector<float>& Output() { return m_output; }
  uint32_t OutputFrames() const { return m_outputProperty.u32ValidFrameCount; }
  const Stream& GetStream() const { return m_stream; }

 private:
  Stream m_stream;
  ZORTestPropertyStore* m_fxProperties;
  ZORTestDeviceCollection* m_devices;
  IAudioProcessingObject* m_object = nullptr;
  IAudioProcessingObjectRT* m_rt = nullptr;
  IAudioProcessingObjectConfiguration* m_configuration = nullptr;
  bool m_locked = false;
  std::vector<float> m_input;
  std::vector<float> m_output;
  APO_CONNECTION_PROPERTY m_inputProperty{};
  APO_CONNECTION_PROPERTY m_outputProperty{};
};
