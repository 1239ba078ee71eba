#pragma once
// One class over three source files, so that a reader of the audio path sees
// only the audio thread's work:
//   zorapoprocessmanager.cpp          life cycle, Process, fades, stale flush
//   zorapoprocessmanagersettings.cpp  binding to an endpoint, listeners,
//                                     UpdateWorkspace, the worker, metrics
//   zorapoprocessmanagermetering.cpp  peaks and the shared meters
//   zorapoprocessmanagerlink.cpp      the capture pipe link and the search
//                                     for the capture mutex
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "audio/zorapoprocesschain.h"
#include "audio/zoraudiodatafloat.h"
#include "audio/zorxfadefunction.h"
#include "config/izorapomodeselectornotify.h"
#include "config/izorapopublicsettingsnotify.h"
#include "config/zorapoconfigurationfile.h"
#include "config/zorapoglobalsettings.h"
#include "config/zorapomodeselector.h"
#include "config/zorutsvalue.h"
#include "core/zorthreadbasic.h"
#include "manager/zortimedelta.h"
#include "platform/criticalsection.h"
#include "platform/com.h"
#include "platform/event.h"
#include "platform/namedmutex.h"
#include "sidechannel/zornamedpipemarshall.h"
#include "system/izorapoendpointnotify.h"
#include "system/zorapoendpointinfo.h"
#include "system/zorapoendpointtools.h"
#include "system/zoraposharedmeter.h"
#include "system/zorfindmutex.h"

// Builds a chain for the manager's stream. The manager builds its chains from
// the endpoint's configuration; an embedder that runs stages of its own
// (the tech module's state tests do) puts a builder in instead. Called on the configuration thread in Initialize, on
// the worker, and on the audio thread when a stale stream refreshes the chain
// being faded in; never on a chain that plays.
class ZORAPOPublicSettingsReader;

class IZORAPOChainBuilder {
 public:
  virtual ~IZORAPOChainBuilder() = default;
  virtual void BuildChain(ZORAPOProcessChain& chain) = 0;
};

enum ManagerState : uint32_t {
  ManagerState_Fading = 0,
  ManagerState_Steady = 1,
  ManagerState_Unprepared = 2,
};

// Turns one audio stream of one APO instance into processed audio. It owns
// three chains and rotates them: one plays, one is built ahead of the next
// change, one is parked. A change never touches the chain that plays: it is
// built into the prepared chain on the worker, which is then run beside the
// active one and crossfaded in; the audio thread alone makes it the active
// chain, at the end of the fade. A stream that stalled is flushed with silence
// before its next block, so no old sound rings out of the filters.
//
// Threads: the configuration thread calls Initialize, SetMute and GetLatency;
// the audio thread calls Process; the worker (started by Initialize) builds
// chains and starts fades. Process takes no lock but m_chainLock, once at the
// end of each fade, and never waits.
class ZORAPOProcessManager : public IZORAPOEndpointNotify,
                             public IZORAPOModeSelectorNotify,
                             public IZORAPOPublicSettingsNotify,
                             public IZORFindMutexNotify,
                             public IZORAPOProcessChainPipeHook {
 public:
  // Crossfade length and flush margin, in units of 10 ns.
  static constexpr uint64_t kFadeTime = 6400000;       // 64 ms
  static constexpr int64_t kFlushMargin = 2000000;     // 20 ms
  static constexpr uint32_t kStaleMilliseconds = 300;  // a longer gap is stale
  static constexpr uint32_t kMinSwitchMilliseconds = 100;
  static constexpr uint32_t kTuningPollMilliseconds = 200;

  // Location codes passed down by the APO classes.
  static constexpr uint32_t kLocationOsfx = 4;
  static constexpr uint32_t kLocationOmfx = 5;

  // The rate every candidate chain is measured at, whatever the stream's.
  static constexpr uint32_t kLatencyRate = 44100;

  // The configuration entries and stored values the manager reacts to.
  static constexpr const char* kProcessEnableKey = "APO4-Process Enable";
  static constexpr const char* kAutoContentModeKey = "APO4-Auto Content Mode Enable";
  static constexpr const char* kContentModeKey = "APO4-ContentMode";
  static constexpr const char* kMeteringModeKey = "APO4-Metering Mode";
  static constexpr std::u16string_view kInitCountValue = u"VelApoInitCount";
  // The capture link's mutex, searched for only when the link follows capture.
  static constexpr std::u16string_view kCaptureMutexName = u"Global\\com.zorworks.captureapo3mutex";

  // Metering mode bits.
  static constexpr uint32_t kMeterInput = 1;
  static constexpr uint32_t kMeterOutput = 2;

  ZORAPOProcessManager();
  ~ZORAPOProcessManager() override;
  ZORAPOProcessManager(const ZORAPOProcessManager&) = delete;
  ZORAPOProcessManager& operator=(const ZORAPOProcessManager&) = delete;

  // Binds the manager to the engine's endpoint: reads the endpoint GUID from
  // the FX property store, finds that endpoint among the active render
  // endpoints and binds it by SetEndpointInfo, keeping the store to follow
  // its system-effects switch. False only for an unreadable GUID or a failed
  // SetEndpointInfo. With no matching endpoint it is true and nothing is
  // bound: the chains then pass audio. The device plays no part.
  // Configuration thread, before Initialize.
  virtual bool SetEndpoint(IMMDevice*& spEndpoint, IPropertyStore*& spPropStore, uint32_t apoloc,
                           uint32_t contentIndex);

  // Binds the manager to an endpoint: loads the configuration file the
  // endpoint names for APO location `apoloc`, keeps a copy of `info`, binds
  // the global settings and the mode selector and starts listening to them,
  // and sets the metering mode (0 for capture). False, leaving the binding
  // as it was, when the file does not load. Configuration thread, before
  // Initialize.
  virtual bool SetEndpointInfo(const ZORAPOEndpointInfo& info, uint32_t apoloc);

  // 0 lets the settings decide, 1 forces bypass, any other value forces
  // processing on (the endpoint's system-effects switch still wins). Takes
  // effect at the next chain build. Any thread.
  void SetBypassOverride(int32_t bypassOverride) {
    m_bypassOverride.store(static_cast<uint32_t>(bypassOverride));
  }

  // Closes both meters, stores `mode` and opens the meters its bits ask for
  // (bit 0 input, index 0; bit 1 output, index 1). Configuration thread,
  // between buffers.
  void SetMeteringMode(uint32_t mode);
  uint32_t GetMeteringMode() const { return m_meteringMode; }

  // The largest magnitude per channel of `data` into `peaks`, resized to the
  // channel count when it differs; a side channel (role 7) keeps its entry.
  // A value replaces the entry unless the entry is strictly greater.
  static void ComputePeaks(IZORAudioData<float>& data, std::vector<float>& peaks);

  // Listeners. They run on other threads and touch only atomics and the
  // update event.
  void OnEndpointEvent(int32_t code) override;
  void OnModeChanged() override;
  void OnPublicSettingChanged(ZORAPOPublicSettings& settings, const ZORUTSValue& value) override;
  // The capture link's mutex appeared or went.
  void OnMutexFound(bool found);
  void OnMutexChanged(ZORFindMutex& finder, bool present) override;

  // Switches the capture pipe link, for an embedder or a test: nothing in
  // velapo calls it, so the link stays off. With `pipeEnabled` the next
  // Initialize opens the pipe, reading on a render endpoint and writing on
  // a capture endpoint (which also holds the capture mutex). With
  // `followCapture` as well, a render stream plays its auto_mic mode while
  // a capture object is locked anywhere on the machine. SetEndpoint and
  // SetEndpointInfo clear both, so call it after them. Configuration thread.
  void SetPipeLink(bool pipeEnabled, bool followCapture) {
    m_bPipeEnabled = pipeEnabled;
    m_bFollowCapture = followCapture;
  }
  // The link's pipe and mutex search, for an embedder or a test.
  ZORNamedPipeMarshall& GetPipe() { return m_pipe; }
  const ZORFindMutex& GetCaptureFinder() const { return m_findMutex; }

  // The capture pipe's tap in a chain: a capture chain writes the block to
  // the pipe, a render chain fills it from there; both chains of a fade get
  // one and the same piece. Without a running pipe the block is zeroed.
  // Audio thread.
  void OnPipeData(bool isRender, IZORAudioData<float>& data) override;

  // Binds the manager to a stream format and (re)starts it: stops the worker,
  // prepares the chains, starts the worker. Always true. Configuration thread.
  bool Initialize(uint32_t chIn, uint32_t chOut, uint32_t nSampleRate, uint32_t contentIndex,
                  uint32_t apoloc);

  // Runs one buffer of interleaved floats. *nFramesOut is the capacity of
  // pOutput on entry and the frames written on return. Audio thread.
  void Process(const float* pInput, uint32_t* nFramesIn, float* pOutput, uint32_t* nFramesOut,
               bool bSilentInput);

  // Zeroes the final output; chains go on running. Between buffers.
  void SetMute(bool mute) { m_bMute = mute; }

  // Latency of this configuration in units of 10 ns. Any thread after Initialize.
  int64_t GetLatency() const { return m_latency; }

  // The state machine of the three chains (see SwitchState in the source).
  // Any thread; takes m_chainLock briefly.
  bool SwitchState(ManagerState wanted);
  uint32_t GetState() const;

  // Asks the worker to rebuild the prepared chain and fade it in, as a change
  // of setting does. Changes that come during a fade wait for its end and
  // collapse into one. Any thread.
  void RequestUpdate() { m_hUpdateEvent.Set(); }

  // An event the worker signals after each switch, for an embedder that wants
  // to follow them; null for none. Set before Initialize.
  void SetClientEvent(zor::os::Event* clientEvent) { m_pClientEvent = clientEvent; }

  // Replaces the clock of the stale test and the switch rate limit; null
  // restores the system clock. Restarts the stopwatch. Configuration thread.
  void SetClock(IZORPerformanceClock* clock);

  // Replaces the construction of chains from the configuration; null
  // restores it. Not owned. Configuration thread, before Initialize.
  void SetChainBuilder(IZORAPOChainBuilder* builder) { m_pChainBuilder = builder; }

  // The four chain pointers and the state, read together under the lock, for
  // tracing and tests.
  struct ChainPointers {
    const ZORAPOProcessChain* active;
    const ZORAPOProcessChain* fadeIn;
    const ZORAPOProcessChain* prepared;
    const ZORAPOProcessChain* spare;
    uint32_t state;
  };
  ChainPointers GetChainPointers() const;

  const ZORXFadeFunction& GetCrossfade() const { return m_xfade; }
  // The binding, for tracing and tests. Not while the worker runs.
  bool IsBound() const { return m_bBound; }
  const ZORAPOEndpointInfo& GetEndpointInfo() const { return m_endpoint; }
  uint32_t GetContentIndex() const { return m_contentIndex; }

 private:
  // The worker's entry. A member of its own rather than a base of the
  // manager: the thread calls it virtually, and it must stay intact while
  // the manager's destructor stops the thread.
  class Worker : public IZORThreadBasicWorker {
   public:
    explicit Worker(ZORAPOProcessManager& owner) : m_owner(owner) {}
    bool Run(ZORThreadBasic& thread, zor::os::Event& stopEvent) override;

   private:
    ZORAPOProcessManager& m_owner;
  };

  // Turns each update request into a crossfade. Worker thread.
  bool RunWorker(zor::os::Event& stopEvent);

  // Builds `chain` for the stream's current settings: fills the workspace
  // from the endpoint, the chosen mode and the stream format, and hands it
  // to ConstructChain. Runs on the worker for the prepared chain and, after
  // a stale gap, on the audio thread for the chain fading in: both only
  // read the binding (fixed while the worker runs) and build a chain of
  // their own.
  void UpdateWorkspace(ZORAPOProcessChain* chain);
  // The mode to build: the content's preset when automatic content mode is
  // on, else the stored mode, else the configuration's default; an unknown
  // mode falls back to the default. False when even that is missing.
  bool ChooseMode(ZORAPOOperatingMode& mode);
  // Bypass for a chain by the process switch, the override and the
  // endpoint's system-effects switch.
  bool DecideBypass(bool built) const;
  size_t ChainIndex(const ZORAPOProcessChain* chain) const;
  ZORAPOProcessChain* PreparedChain() const;
  // Points the worker's reader at the prepared chain's mode.
  void OpenSettingsReader(ZORAPOPublicSettingsReader& reader);
  void CalculateLatency();
  // Counts this Initialize in the endpoint's settings key, across restarts.
  void WriteRegistryMetrics();
  // The capture link: stopped first thing in Initialize, opened again after
  // the format is stored when it is switched on.
  void StopLink();
  void StartLink();
  // Drops the listeners of the last binding.
  void UnbindListeners();
  // Peaks of `data` into `peaks` (sized ahead) and onto `meter`. Audio thread.
  void Meter(ZORAPOSharedMeter& meter, IZORAudioData<float>& data, std::vector<float>& peaks);

  // The blocks of one Process call, sized off the audio thread for the
  // block size, so that neither steady state nor a fade allocates; the flush
  // nests one call, which gets the second set. `output` serves the chain
  // that plays when the widths differ; the fade blocks serve only fades,
  // so the worker may size them while no fade runs.
  struct ProcessBlocks {
    ZORAudioDataFloat input;
    ZORAudioDataFloat output;
    ZORAudioDataFloat fadeInput;
    ZORAudioDataFloat fadeOutput;
    void Reserve(uint32_t frames, uint32_t channelsIn, uint32_t channelsOut);
  };

  // Before a chain is faded in: the fade blocks follow a block size that
  // grew (under the lock, while steady), and the chain gets its stores
  // sized. Worker or configuration thread.
  void PrepareToFade(ZORAPOProcessChain& chain);
  // Sizes the stores of a chain that does not play, for the stream's and
  // the flush's blocks.
  void WarmChain(ZORAPOProcessChain& chain);

  void PrepareChains();
  void StaleTest(bool bSilentInput);
  // Runs the chain fading in on the fade blocks and mixes `oldOutput`, the
  // playing chain's block, into blocks.fadeOutput. True when the fade ended.
  bool Crossfade(ProcessBlocks& blocks, ZORAudioDataFloat& oldOutput, uint32_t framesOut);
  uint32_t FlushFrames() const;

  zor::os::Event* m_pClientEvent = nullptr;
  uint32_t m_nChannelsIn = 0;
  uint32_t m_nChannelsOut = 0;
  uint32_t m_nSampleRate = 0;
  uint32_t m_apoLocation = 0;
  uint32_t m_contentIndex = 0;
  bool m_bRenderEndpoint = true;  // the endpoint's direction, render until bound to one
  ZORAPOProcessChain m_chainA;
  ZORAPOProcessChain m_chainB;
  ZORAPOProcessChain m_chainC;
  ZORAPOProcessChain* m_pPreparedChain = nullptr;
  ZORAPOProcessChain* m_pFadeInChain = nullptr;
  ZORAPOProcessChain* m_pActiveChain = nullptr;
  ZORAPOProcessChain* m_pSpareChain = nullptr;
  mutable zor::os::CriticalSection m_chainLock;
  zor::os::Event m_hFadeEvent{zor::os::EventReset::Manual, false};
  zor::os::Event m_hSteadyEvent{zor::os::EventReset::Manual, true};
  uint32_t m_state = ManagerState_Unprepared;
  IZORPerformanceClock* m_pClock = &IZORPerformanceClock::System();
  TimeDelta m_lastProcess;
  bool m_bFlushing = false;
  bool m_bInFadeChain = false;
  int64_t m_latency = 0;
  ZORXFadeFunction m_xfade;
  bool m_bMute = false;
  zor::os::Event m_hUpdateEvent{zor::os::EventReset::Auto, false};
  ProcessBlocks m_blocks[2];
  uint32_t m_processDepth = 0;
  // The largest block the stream has brought, 10 ms until it brings one;
  // the audio thread raises it. And the size the fade blocks have.
  std::atomic<uint32_t> m_blockFrames{0};
  uint32_t m_fadeBlockFrames = 0;
  std::vector<float> m_flushBuffer;  // sized by Initialize, so a flush allocates nothing
  IZORAPOChainBuilder* m_pChainBuilder = nullptr;
  // The binding: read-only while the worker runs.
  ZORComPtr<IMMDevice> m_device;
  ZORComPtr<IPropertyStore> m_propStore;
  ZORAPOEndpointTools m_endpointTools;
  ZORAPOEndpointInfo m_endpoint;
  ZORAPOConfigurationFile m_config;
  bool m_bBound = false;
  bool m_bListening = false;  // registered with the endpoint tools
  ZORAPOGlobalSettings m_globalSettings;
  std::vector<ZORUTSValue> m_contentModes;  // presets by content, in file order
  ZORAPOModeSelector m_modeSelector;
  // The capture pipe link: nothing in this system switches it on. The
  // search calls the manager from its own thread, so it is declared after
  // what its notification touches and dies before it.
  bool m_bPipeEnabled = false;
  bool m_bFollowCapture = false;
  std::atomic<uint32_t> m_captureFound{0};
  ZORNamedPipeMarshall m_pipe;
  ZORFindMutex m_findMutex;
  ZORAudioDataFloat m_pipeAudio;  // the last block a render chain read
  zor::os::NamedMutex m_captureMutex;

  // What the listeners write and the worker reads.
  std::atomic<uint32_t> m_bypassOverride{0};
  std::atomic<uint32_t> m_processDisabled{0};
  std::atomic<uint32_t> m_sysFxDisabled{0};
  std::atomic<int32_t> m_autoContentMode{0};

  // Metering: plain, set between buffers. The peak vectors are sized by
  // Initialize, so the audio thread never allocates for them.
  uint32_t m_meteringMode = 0;
  ZORAPOSharedMeter m_inputMeter;
  ZORAPOSharedMeter m_outputMeter;
  std::vector<float> m_inputPeaks;
  std::vector<float> m_outputPeaks;
  // The mode each chain was last built for, by ChainIndex: the worker's
  // reader watches the one of the prepared chain.
  ZORAPOOperatingMode m_chainModes[3];
  Worker m_workerBody{*this};
  ZORThreadBasic m_worker;
};
