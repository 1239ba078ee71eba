#pragma once
#include <cstdint>
#include <span>

#include "audio/izoraudiodata.h"
#include "audio/izoraudioprocess.h"
#include "audio/zoraudiodatafloat.h"
#include "audio/zoraudioprocessdelay.h"
#include "audio/zoraudioprocessresamplechain.h"

class ZORAPOProcessWrapper;

// Told when a tech process hands over a side-channel block.
class IZORAPOProcessWrapperHook {
 public:
  virtual ~IZORAPOProcessWrapperHook() = default;
  virtual void OnChannelData(ZORAPOProcessWrapper* wrapper, IZORAudioData<float>& data) = 0;
};

// Connects a chain to the capture pipe. isRender false: write the block to the
// pipe; true: fill the block from it.
class IZORAPOProcessChainPipeHook {
 public:
  virtual ~IZORAPOProcessChainPipeHook() = default;
  virtual void OnPipeData(bool isRender, IZORAudioData<float>& data) = 0;
};

// The whole signal path of one operating mode at one format. It has two audio
// paths: the tuned path through the tech processes, and a bypass path with
// fixed mixing that every chain falls back on, also when it could not be
// built. The manager runs three of these and rotates them; a chain is built
// only while it is not playing, so it needs no lock of its own.
class ZORAPOProcessChain : public IZORAPOProcessWrapperHook {
 public:
  ZORAPOProcessChain();
  ~ZORAPOProcessChain() override;
  ZORAPOProcessChain(const ZORAPOProcessChain&) = delete;
  ZORAPOProcessChain& operator=(const ZORAPOProcessChain&) = delete;

  // Forwards a tech process's side-channel block to the pipe hook of the
  // current Process call. Audio thread.
  void OnChannelData(ZORAPOProcessWrapper* wrapper, IZORAudioData<float>& data) override;

  // Runs one block from `input` into `output` (which may be the same object)
  // on the tuned path when the chain is built and not bypassed, else on the
  // bypass path. Audio thread.
  void Process(IZORAudioData<float>& input, IZORAudioData<float>& output,
               IZORAPOProcessChainPipeHook* hook);

  // Fixed mixing from the input's channels to the output's, the bypass
  // path's delay, then the capture side's pipe tap. Audio thread.
  void ProcessBypassed(IZORAudioData<float>& input, IZORAudioData<float>& output,
                       IZORAPOProcessChainPipeHook* hook);

  // Drops everything the last build made; the chain is unbuilt afterwards and
  // passes audio on its bypass path. Worker, or configuration thread while
  // the worker is stopped.
  void ResetChain();

  // Lets this chain, about to be faded in, continue from where `other`
  // stands, so both sound alike at the start of a fade. Audio thread.
  void TakeOverState(ZORAPOProcessChain& other);

  void SetChainBypass(bool bypass);
  bool GetChainBypass() const { return m_bBypass; }
  bool IsBuilt() const { return m_bBuilt; }

  // Raised while the stream hears this chain; only for tracing.
  void SetLive(bool live) { m_bLive = live; }
  bool IsLive() const { return m_bLive; }

  // Rate the tech processes run at.
  uint32_t GetRate() const { return m_internalRate != 0 ? m_internalRate : m_sampleRate; }
  // Latency of the tuned path in frames at GetRate(): the stages', plus the
  // resampler's cushion when the chain resamples.
  uint32_t GetTunedLatency() const { return m_resample.GetLatency(); }

  // Endpoint direction of the current build; capture chains feed the pipe.
  bool IsRenderEndpoint() const { return m_bRender; }

  // Builds the chain with `stages` (not owned; they must outlive the build)
  // as its tuned path at `chainChannels` channels: the stages run at
  // `internalRate`, with the stream converted there and back, or at the
  // stream's rate when it is 0. Every stage is initialised at the rate it
  // runs at. The chain stands built when all of that succeeded; otherwise
  // it is reset and passes audio on its bypass path. Chain construction ends
  // with this, and a host may run stages of its own through it. Worker, or
  // any thread while the chain is not playing.
  bool BuildFromStages(uint32_t chainChannels, uint32_t sampleRate, bool isRender,
                       std::span<IZORAudioProcess<float>* const> stages,
                       uint32_t internalRate = 0);

 private:
  IZORAPOProcessChainPipeHook* m_pPipeHook = nullptr;
  ZORAudioProcessResampleChain m_resample;  // the tuned path's stages, in order
  bool m_bBuilt = false;
  bool m_bLive = false;
  bool m_bRender = true;
  bool m_bBypass = false;
  uint32_t m_chainChannels = 0;
  uint32_t m_internalRate = 0;
  uint32_t m_sampleRate = 0;
  ZORAudioDataFloat m_widthBuffer;  // holds the tuned path's block when the host's width differs
  // The bypass path's delay. The chain never gives it channels, so it
  // carries a latency figure and leaves the audio as it is.
  ZORAudioProcessDelay m_delay;
};
