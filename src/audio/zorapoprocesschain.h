#pragma once
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "audio/izoraudiodata.h"
#include "audio/izoraudioprocess.h"
#include "audio/zoraudiodatafloat.h"
#include "audio/zoraudioprocessdelay.h"
#include "audio/zoraudioprocessresamplechain.h"
#include "audio/zorapoprocesslibrary.h"
#include "audio/zorapoworkspace.h"
#include "config/zorapopublicsettingsreader.h"
#include "config/zorutsvaluelist.h"
#include "system/zorapotunedsettings.h"

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
//
// Building (ConstructChain) may run on two threads at once for two different
// chains: the worker prepares one while the audio thread, after a stale gap,
// refreshes the one fading in. That is safe by construction rather than by
// locks: everything a build reads comes in by value (the workspace holds
// copies of the endpoint and the mode, never the configuration document),
// and everything it writes belongs to the chain (wrappers with their own
// module handles, its own settings reader and tuned block). The only things
// two builds reach together are the loader's module search path, set once
// before any chain is built, and the tech module itself. A chain pins the
// module from its first build to its end, so a rebuild never unloads it:
// one thread's reset can't run the module's teardown while another thread
// creates a process in it, and a rebuild doesn't pay for loading it again. The latency figure is handed in by SetMinLatency and never
// looked up here.
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

  // Builds the tuned path for `workspace` at APO `location`: the chain the
  // mode's definition gives for the two layouts, one wrapper per process in
  // document order, resampled to GetProcessingRate. A workspace equal to the
  // last one keeps the processes and only sends every value again. False,
  // with the chain unbuilt (audio then takes the bypass path), when the
  // layouts or rate are unusable, no chain fits, a process cannot be made or
  // a stage refuses Init. Never on a chain that plays.
  bool ConstructChain(const ZORAPOWorkspace& workspace, uint32_t location);

  // The rate the processes run at for a stream at `rate`: the nearest rate
  // the processes support (16 kHz alone for capture; for render 32000,
  // 44100, 48000, 88200, 96000, 176400, 192000, a tie taking the lower), or
  // 0 when `rate` is supported and no resampling is needed. Follows the
  // endpoint of the current build.
  virtual uint32_t GetProcessingRate(uint32_t rate) const;

  // Stacks the values the processes run with (the mode's controls, then the
  // public and tuned settings in the order the tuning mode asks, then the
  // chain's own controls) and sends them to every wrapper. `keepLatency`
  // skips the latency step when the settings source did not change. 1 when
  // values were sent, 0 when nothing had changed, 2 for an unbuilt chain.
  virtual uint32_t UpdateValues(bool keepLatency);
  // Sends the whole of `values` to every wrapper when any of them differs
  // from what was sent last; nothing otherwise. True when it sent.
  virtual bool ApplyValues(const ZORUTSValueList& values);
  // Whether a tuning tool changed this chain's tuned block since the values
  // were last stacked. False when no tool is tuning this mode.
  bool TuningChanged();
  bool IsWatchingTuning() const { return m_bWatchTuning; }

  // Works out the latency the chain reports: at least the minimum latency,
  // padded on the tuned path by the delay, and the minimum alone on the
  // bypass path.
  virtual void UpdateLatency();
  // The reported latency in units of 10 ns; 0 for a chain without a rate.
  uint64_t GetLatencyTime() const;
  // The latency every chain of the stream reports (units of 10 ns), so a
  // switch between chains moves no audio in time. Takes effect at the next
  // build or UpdateLatency.
  void SetMinLatency(uint64_t minLatency) { m_minLatency = minLatency; }
  uint32_t GetLatencyFrames() const { return m_latencyFrames; }

  // Sizes every store the chain's first blocks of `frames` frames grow, as
  // the chain that plays (in place when the widths agree) and as the chain
  // fading in, so that it plays from its first block without allocating:
  // one pass on silence with the tech processes left out, then the block
  // adaption, the FIFO and the converters are put back as the build left
  // them. Does nothing for a chain that has played since its build, which
  // its own blocks sized, nor for stages an embedder built it from. Thread
  // that builds the chain, while the chain isn't playing.
  void Warm(uint32_t frames, uint32_t inChannels, uint32_t outChannels, uint32_t sampleRate);

  // Lets this chain, about to be faded in, continue from where `other`
  // stands, so both sound alike at the start of a fade: each process takes
  // the state of the first process of `other` that accepts. Audio thread.
  void TakeOverState(ZORAPOProcessChain& other);

  // The processes in running order, for inspection.
  size_t GetProcessCount() const { return m_wrappers.size(); }
  ZORAPOProcessWrapper* GetProcess(size_t index) const { return m_wrappers[index]; }
  // The values sent last, and the chain's own controls of the current build.
  const ZORUTSValueList& GetAppliedValues() const { return m_appliedValues; }
  const ZORAPOEndpointInfo& GetEndpoint() const { return m_endpoint; }
  uint32_t GetChainChannels() const { return m_chainChannels; }
  uint32_t GetInternalRate() const { return m_internalRate; }
  uint32_t GetSampleRate() const { return m_sampleRate; }

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
  // What the tuned path delays by itself, in frames at GetRate(): the
  // stages' block adaption, the processes' own delay and the cushion.
  uint32_t GetNaturalLatency() const;

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
  bool IsSameBuild(const ZORAPOWorkspace& workspace) const;
  bool LoadProcesses(const ZORAPOChainDesc& desc);
  void LoadSettings();

  IZORAPOProcessChainPipeHook* m_pPipeHook = nullptr;
  ZORAudioProcessResampleChain m_resample;  // the tuned path's stages, in order
  bool m_bBuilt = false;
  bool m_bLive = false;
  bool m_bPlayed = false;        // ran a block since its build
  bool m_bForeignStages = false;  // built by BuildFromStages
  uint32_t m_warmFrames = 0;     // the largest block Warm sized for
  uint32_t m_warmChannels = 0;   // and the widths, in and out, packed
  ZORAPOWorkspace m_lastChain;  // what the chain was last built from
  ZORAPOEndpointInfo m_endpoint;
  ZORAPOOperatingMode m_mode;
  ZORUTSValueList m_chainControls;
  bool m_bRender = true;  // the endpoint's direction, kept apart for the audio thread
  bool m_bBypass = false;
  ZORAPOModeId m_cachedModeId;
  std::u16string m_cachedEndpointId;
  bool m_bSettingsCached = false;
  bool m_bWatchTuning = false;
  bool m_bPublicLoaded = false;
  ZORAPOPublicSettingsReader m_public;
  ZORAPOTunedSettings m_tuned;
  ZORUTSValueList m_appliedValues;
  ZORUTSValueList m_tunedValues;
  uint32_t m_chainChannels = 0;
  uint32_t m_internalRate = 0;
  uint32_t m_sampleRate = 0;
  ZORAudioDataFloat m_widthBuffer;  // holds the tuned path's block when the host's width differs
  ZORAPOProcessLibrary m_modulePin;  // keeps the tech module loaded between builds
  std::vector<ZORAPOProcessWrapper*> m_wrappers;  // owned, in running order
  // The bypass path's delay. The chain never gives it channels, so it
  // carries a latency figure and leaves the audio as it is.
  ZORAudioProcessDelay m_delay;
  // Pads the tuned path up to the reported latency, at the stream's rate and
  // the chain's width, so that chains of different natural latency line up.
  ZORAudioProcessDelay m_pad;
  uint64_t m_minLatency = 0;
  uint32_t m_latencyFrames = 0;
  uint32_t m_location = 0;
};
