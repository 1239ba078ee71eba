// ZORAPOProcessManager, part one of three: the life cycle and the audio
// thread's work (Process, the crossfade block, the stale test and flush).
// What decides the chains is in zorapoprocessmanagersettings.cpp, the meters
// in zorapoprocessmanagermetering.cpp.
#include "manager/zorapoprocessmanager.h"

#include <algorithm>
#include <cstring>

#include "core/zorlog.h"
#include "core/zorscopedlock.h"

namespace {

constexpr double kTimeUnitsPerMillisecond = 100000.0;

// Counts a Process call as nested for as long as it runs, so that the flush
// inside a call gets its own blocks.
class ZORDepthGuard {
 public:
  explicit ZORDepthGuard(uint32_t& depth) : m_depth(depth) { ++m_depth; }
  ~ZORDepthGuard() { --m_depth; }
  ZORDepthGuard(const ZORDepthGuard&) = delete;
  ZORDepthGuard& operator=(const ZORDepthGuard&) = delete;

 private:
  uint32_t& m_depth;
};

}  // namespace

ZORAPOProcessManager::ZORAPOProcessManager() { m_lastProcess.Start(*m_pClock); }

ZORAPOProcessManager::~ZORAPOProcessManager() {
  // The worker uses the chains and events: it goes first. Then no listener
  // may call in while the members die.
  m_worker.Stop(0);
  UnbindListeners();
  m_endpointTools.Stop();
}

void ZORAPOProcessManager::SetClock(IZORPerformanceClock* clock) {
  m_pClock = clock != nullptr ? clock : &IZORPerformanceClock::System();
  m_lastProcess.Start(*m_pClock);
}

bool ZORAPOProcessManager::Initialize(uint32_t chIn, uint32_t chOut, uint32_t nSampleRate,
                                      uint32_t contentIndex, uint32_t apoloc) {
  m_apoLocation = apoloc;
  m_worker.Stop(0);
  StopLink();

  m_contentIndex = contentIndex;
  m_nChannelsIn = chIn;
  m_nChannelsOut = chOut;
  m_nSampleRate = nSampleRate;
  m_bInFadeChain = false;
  StartLink();
  CalculateLatency();
  WriteRegistryMetrics();

  // Made here, off the audio thread, at the sizes the meters will ask for.
  m_inputPeaks.assign(chIn, 0.0f);
  m_outputPeaks.assign(chOut, 0.0f);

  // The flush buffer and every block are made here, off the audio thread,
  // at the sizes the stream and the stale test will ask for: the engine's
  // 10 ms period until the stream shows another.
  m_flushBuffer.assign(static_cast<size_t>(FlushFrames()) * std::max(chIn, chOut), 0.0f);
  m_blockFrames = std::max(nSampleRate / 100, 1u);
  m_fadeBlockFrames = m_blockFrames;
  m_blocks[0].Reserve(m_blockFrames, chIn, chOut);
  m_blocks[1].Reserve(FlushFrames(), chIn, chOut);

  PrepareChains();
  m_worker.Start(&m_workerBody);
  return true;
}

void ZORAPOProcessManager::PrepareChains() {
  // The worker is stopped and the engine does not process during Initialize,
  // so nothing here needs the lock.
  m_state = ManagerState_Steady;
  for (ZORAPOProcessChain* chain : {&m_chainA, &m_chainB, &m_chainC}) {
    chain->SetLive(false);
  }
  for (ZORAPOProcessChain* chain : {&m_chainA, &m_chainB, &m_chainC}) {
    chain->ResetChain();
  }
  m_pActiveChain = &m_chainA;
  m_pPreparedChain = &m_chainB;
  m_pSpareChain = &m_chainC;
  m_pFadeInChain = nullptr;

  m_hSteadyEvent.Set();
  m_hFadeEvent.Reset();
  m_hUpdateEvent.Reset();

  UpdateWorkspace(m_pActiveChain);
  WarmChain(*m_pActiveChain);
  m_pActiveChain->SetLive(true);
  UpdateWorkspace(m_pPreparedChain);
  PrepareToFade(*m_pPreparedChain);

  m_xfade.Init(m_nSampleRate, kFadeTime, static_cast<uint64_t>(GetLatency()));
}

void ZORAPOProcessManager::ProcessBlocks::Reserve(uint32_t frames, uint32_t channelsIn,
                                                  uint32_t channelsOut) {
  input.Reserve(frames, channelsIn);
  output.Reserve(frames, channelsOut);
  fadeInput.Reserve(frames, channelsIn);
  fadeOutput.Reserve(frames, channelsOut);
}

void ZORAPOProcessManager::PrepareToFade(ZORAPOProcessChain& chain) {
  const uint32_t frames = m_blockFrames.load(std::memory_order_relaxed);
  if (frames > m_fadeBlockFrames) {
    // The audio thread touches the fade blocks only from the start of a fade
    // to the end of the Process call that ends it; neither can happen while
    // this holds the lock in steady state.
    ZORScopedLock lock(m_chainLock);
    if (m_state == ManagerState_Steady) {
      m_fadeBlockFrames = frames;
      m_blocks[0].fadeInput.Reserve(frames, m_nChannelsIn);
      m_blocks[0].fadeOutput.Reserve(frames, m_nChannelsOut);
    }
  }
  WarmChain(chain);
}

void ZORAPOProcessManager::WarmChain(ZORAPOProcessChain& chain) {
  // Sized for the flush's block too, which is longer than the stream's.
  const uint32_t frames = std::max(m_blockFrames.load(std::memory_order_relaxed), FlushFrames());
  chain.Warm(frames, m_nChannelsIn, m_nChannelsOut, m_nSampleRate);
}

// Steady -> Fading: the prepared chain starts to fade in, the spare becomes
// the next candidate. Fading -> Steady: the faded-in chain plays and the old
// one is parked. Any other pair changes nothing. Pointers move before the
// event that announces them, so whoever sees the event sees the pointers.
bool ZORAPOProcessManager::SwitchState(ManagerState wanted) {
  ZORScopedLock lock(m_chainLock);
  if (wanted == ManagerState_Fading && m_state == ManagerState_Steady) {
    m_pFadeInChain = m_pPreparedChain;
    m_pPreparedChain = m_pSpareChain;
    m_pSpareChain = nullptr;
    m_pFadeInChain->SetLive(true);
    m_state = ManagerState_Fading;
    m_hSteadyEvent.Reset();
    m_hFadeEvent.Set();
  } else if (wanted == ManagerState_Steady && m_state == ManagerState_Fading) {
    m_pSpareChain = m_pActiveChain;
    m_pActiveChain = m_pFadeInChain;
    m_pFadeInChain = nullptr;
    m_pSpareChain->SetLive(false);
    m_state = ManagerState_Steady;
    m_hFadeEvent.Reset();
    m_hSteadyEvent.Set();
  }
  return m_state == static_cast<uint32_t>(wanted);
}

uint32_t ZORAPOProcessManager::GetState() const {
  ZORScopedLock lock(m_chainLock);
  return m_state;
}

ZORAPOProcessManager::ChainPointers ZORAPOProcessManager::GetChainPointers() const {
  ZORScopedLock lock(m_chainLock);
  return {m_pActiveChain, m_pFadeInChain, m_pPreparedChain, m_pSpareChain, m_state};
}

// audio thread
void ZORAPOProcessManager::Process(const float* pInput, uint32_t* nFramesIn, float* pOutput,
                                   uint32_t* nFramesOut, bool bSilentInput) {
  ZORDepthGuard depth(m_processDepth);
  ProcessBlocks& blocks = m_blocks[m_processDepth > 1 ? 1 : 0];
  const uint32_t framesOut = *nFramesOut;
  if (m_processDepth == 1 && framesOut > m_blockFrames.load(std::memory_order_relaxed)) {
    m_blockFrames.store(framesOut, std::memory_order_relaxed);  // the worker sizes for it
  }
  const size_t capacity = static_cast<size_t>(framesOut) * m_nChannelsOut;

  if (capacity != 0) {
    std::memset(pOutput, 0, capacity * sizeof(float));
  }
  blocks.input.AssignMemory(pInput, *nFramesIn, m_nChannelsIn, true,
                            m_nSampleRate);
  blocks.output.Allocate(framesOut, m_nChannelsOut, m_nSampleRate);

  if ((m_meteringMode & kMeterInput) != 0) {
    Meter(m_inputMeter, blocks.input, m_inputPeaks);
  }

  // The active chain may work on `input` in place; a chain being faded in
  // must see the same untouched samples. Outside a fade there is no such
  // chain, and a fade raised after this poll starts with the next block.
  const bool fading = m_hFadeEvent.Wait(0);
  if (fading) {
    blocks.fadeInput = blocks.input;
  }

  StaleTest(bSilentInput);

  // A chain of equal widths works on the input block in place, which
  // spares a copy of the block per call.
  ZORAudioDataFloat* playing =
      m_nChannelsIn == m_nChannelsOut ? &blocks.input : &blocks.output;
  m_pActiveChain->Process(blocks.input, *playing, this);

  // Polled again: the stale flush may have run the fade to its end.
  bool fadeEnded = false;
  if (fading && m_hFadeEvent.Wait(0)) {
    fadeEnded = Crossfade(blocks, *playing, framesOut);
    playing = &blocks.fadeOutput;
  }
  ZORAudioDataFloat& out = *playing;

  if ((m_meteringMode & kMeterOutput) != 0) {
    Meter(m_outputMeter, out, m_outputPeaks);
  }

  // Whatever frame count the chain left is what the caller gets, but never
  // more than its buffer holds.
  const float* result = out.GetData(false, true);
  uint32_t frames = out.GetFrames();
  const size_t samples =
      std::min(static_cast<size_t>(frames) * m_nChannelsOut, capacity);
  if (result != nullptr && samples != 0) {
    std::memcpy(pOutput, result, samples * sizeof(float));
  }
  out.ReleaseData();
  if (m_nChannelsOut != 0) {
    frames = static_cast<uint32_t>(samples / m_nChannelsOut);
  }
  *nFramesOut = frames;

  if (m_bMute && samples != 0) {
    std::memset(pOutput, 0, samples * sizeof(float));
  }

  int64_t now = 0;
  if (m_pClock->QueryCounter(now)) {
    m_lastProcess.counter = now;
  }
  // Last, once the fade blocks are done with: the worker may size them then.
  if (fadeEnded) {
    SwitchState(ManagerState_Steady);
  }
}

// audio thread
bool ZORAPOProcessManager::Crossfade(ProcessBlocks& blocks, ZORAudioDataFloat& oldOutput,
                                     uint32_t framesOut) {
  // A finished fade is rearmed on the first block of the next one. The delay
  // equals the chain latency, so the new chain's output has come through
  // before any of it is mixed in.
  if (m_xfade.GetPosition() >= 1.0f) {
    m_xfade.Init(m_nSampleRate, kFadeTime, static_cast<uint64_t>(GetLatency()));
  }
  if (m_xfade.GetPosition() == 0.0f) {
    m_pFadeInChain->TakeOverState(*m_pActiveChain);
  }

  blocks.fadeOutput.Allocate(framesOut, m_nChannelsOut, m_nSampleRate);
  m_bInFadeChain = m_bRenderEndpoint;
  // Capture chains feed the pipe once, from the active chain.
  m_pFadeInChain->Process(blocks.fadeInput, blocks.fadeOutput, m_bRenderEndpoint ? this : nullptr);
  m_bInFadeChain = false;

  m_xfade.Process(oldOutput, blocks.fadeOutput);
  return m_xfade.GetPosition() >= 1.0f;
}

uint32_t ZORAPOProcessManager::FlushFrames() const {
  const auto milliseconds =
      static_cast<int64_t>(static_cast<double>(m_latency + kFlushMargin) / kTimeUnitsPerMillisecond);
  return static_cast<uint32_t>(milliseconds) * m_nSampleRate / 1000u;
}

// audio thread
void ZORAPOProcessManager::StaleTest(bool bSilentInput) {
  int64_t now = 0;
  if (!m_pClock->QueryCounter(now) || !m_pClock->QueryFrequency(m_lastProcess.frequency)) {
    return;
  }
  uint32_t milliseconds = 0;
  if (!ZORElapsedMilliseconds32(now, m_lastProcess.counter, m_lastProcess.frequency,
                                milliseconds) ||
      milliseconds <= kStaleMilliseconds) {
    return;
  }
  // Restart first, so the flush's own pass through Process sees a fresh timer.
  m_lastProcess.counter = now;

  // The fading chain picks up whatever changed during the gap; the worker
  // leaves it alone while it waits for the fade to end.
  if (m_hFadeEvent.Wait(0) && m_pFadeInChain != nullptr) {
    UpdateWorkspace(m_pFadeInChain);
  }
  // Offload locations are flushed only on a block the engine marked silent.
  if ((m_apoLocation == kLocationOsfx || m_apoLocation == kLocationOmfx) && !bSilentInput) {
    return;
  }
  ZOR_LOG("VELAPOProcessManager::Process - was stale for %d ms , APO location=%d\n",
          static_cast<int>(milliseconds), static_cast<int>(m_apoLocation));
  if (m_bFlushing) {
    return;
  }

  m_bFlushing = true;
  const uint32_t frames = FlushFrames();
  const size_t samples = static_cast<size_t>(frames) * std::max(m_nChannelsIn, m_nChannelsOut);
  if (m_flushBuffer.size() != samples) {
    m_flushBuffer.resize(samples);  // only if the latency changed after Initialize
  }
  std::fill(m_flushBuffer.begin(), m_flushBuffer.end(), 0.0f);
  // One buffer for both sides: the flush's result is thrown away.
  uint32_t framesIn = frames;
  uint32_t framesOut = frames;
  Process(m_flushBuffer.data(), &framesIn, m_flushBuffer.data(), &framesOut, false);
  m_bFlushing = false;
}
