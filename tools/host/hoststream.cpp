#include "hoststream.h"

#include <algorithm>
#include <chrono>

#include "allocationmeter.h"
#include "manager/zorapoprocessmanager.h"
#include "scriptplayer.h"

namespace {

using Clock = std::chrono::steady_clock;

bool IsSilent(const float* samples, size_t count) {
  return std::all_of(samples, samples + count, [](float s) { return s == 0.0f; });
}

}  // namespace

HostStream::HostStream(IHostStage& stage, const AudioClip& input, const HostFormat& format,
                       uint32_t blockFrames, bool realtime, ScriptPlayer* player)
    : m_stage(stage), m_input(input), m_format(format), m_blockFrames(blockFrames), m_bRealtime(realtime),
      m_pPlayer(player) {}

HostStream::~HostStream() { Join(); }

void HostStream::Start() { m_thread = std::thread([this] { Run(); }); }

void HostStream::Join() {
  if (m_thread.joinable()) m_thread.join();
}

uint64_t HostStream::FrameOf(uint64_t streamUs) const { return streamUs * m_format.rate / 1000000; }

void HostStream::Run() {
  const uint64_t frames = m_input.Frames();
  const uint32_t chIn = m_format.channelsIn;
  const uint32_t chOut = m_format.channelsOut;
  const uint64_t buffers = (frames + m_blockFrames - 1) / m_blockFrames;
  // Everything the loop writes is sized here, before the first buffer.
  m_output.rate = m_format.rate;
  m_output.channels = chOut;
  m_output.samples.assign(frames * chOut, 0.0f);
  m_measures.bufferMicros.reserve(buffers);
  m_measures.switchFrames.reserve(1024);
  std::vector<float> in(size_t(m_blockFrames) * chIn), out(size_t(m_blockFrames) * chOut);
  const std::vector<ScriptAction> noActions;
  const std::vector<ScriptAction>& actions = m_pPlayer ? m_pPlayer->Actions() : noActions;
  const uint64_t fadeFrames = FrameOf(ZORAPOProcessManager::kFadeTime / 100);
  const auto bufferTime = std::chrono::nanoseconds(1000000000ull * m_blockFrames / m_format.rate);

  size_t nextAction = 0;
  const Clock::time_point start = Clock::now();
  Clock::time_point paceStart = start;  // wall time of buffer `paceBuffer`
  uint64_t paceBuffer = 0;
  Clock::time_point settleUntil = start;
  bool settling = false;
  uint64_t settleSwitchFrame = UINT64_MAX;

  for (uint64_t buffer = 0; buffer < buffers; ++buffer) {
    const uint64_t first = buffer * m_blockFrames;
    const uint64_t streamUs = first * 1000000 / m_format.rate;
    if (m_pPlayer) m_pPlayer->SetPosition(streamUs);

    for (; nextAction < actions.size() && actions[nextAction].timeUs <= streamUs; ++nextAction) {
      const ScriptAction& action = actions[nextAction];
      if (!action.IsControl()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(action.number));
        m_pPlayer->RecordStall(nextAction, streamUs);
        paceStart = Clock::now(), paceBuffer = buffer;
        continue;
      }
      m_pPlayer->Post(nextAction);
      if (m_bRealtime) continue;
      const Clock::time_point holdUntil = Clock::now() + std::chrono::milliseconds(kHoldLimitMs);
      while (!m_pPlayer->IsDone(nextAction) && Clock::now() < holdUntil) {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
      }
      settling = true;
      settleSwitchFrame = UINT64_MAX;
      paceStart = Clock::now(), paceBuffer = buffer;
      settleUntil = paceStart + std::chrono::milliseconds(kSettleMs);
    }

    if (m_bRealtime || settling) {
      std::this_thread::sleep_until(paceStart + bufferTime * (buffer - paceBuffer));
    }

    const uint64_t count = std::min<uint64_t>(m_blockFrames, frames - first);
    std::fill(in.begin(), in.end(), 0.0f);  // the last buffer is padded with silence
    std::copy_n(m_input.samples.begin() + first * chIn, count * chIn, in.begin());
    const bool silent = IsSilent(in.data(), in.size());

    const uint64_t allocationsBefore = AllocationsOnThisThread();
    const Clock::time_point before = Clock::now();
    const uint32_t written = m_stage.Process(in.data(), out.data(), m_blockFrames, silent);
    const Clock::time_point after = Clock::now();
    const uint64_t allocated = AllocationsOnThisThread() - allocationsBefore;

    m_measures.allocations += allocated;
    if (buffer > 0) m_measures.steadyAllocations += allocated;
    m_measures.bufferMicros.push_back(std::chrono::duration<double, std::micro>(after - before).count());
    m_measures.silentBuffers += silent ? 1 : 0;
    m_measures.shortBuffers += written < m_blockFrames ? 1 : 0;
    std::fill(out.begin() + std::min<size_t>(written, m_blockFrames) * chOut, out.end(), 0.0f);
    std::copy_n(out.begin(), count * chOut, m_output.samples.begin() + first * chOut);

    if (m_stage.TakeSwitch() && m_measures.switchFrames.size() < m_measures.switchFrames.capacity()) {
      m_measures.switchFrames.push_back(first);
      settleSwitchFrame = first;
    }
    if (settling && (Clock::now() >= settleUntil ||
                     (settleSwitchFrame != UINT64_MAX && first >= settleSwitchFrame + fadeFrames))) {
      settling = false;
    }
    m_position.store(first + count, std::memory_order_relaxed);
  }
  // Actions past the end still happen, so the report shows every line.
  for (; m_pPlayer && nextAction < actions.size(); ++nextAction) {
    if (actions[nextAction].IsControl()) m_pPlayer->Post(nextAction);
    else m_pPlayer->RecordStall(nextAction, frames * 1000000 / m_format.rate);
  }
  m_measures.wallSeconds = std::chrono::duration<double>(Clock::now() - start).count();
  m_finished.store(true);
}
