#include "liveengine.h"

#include <algorithm>
#include <cstring>
#include <thread>

#include "allocationmeter.h"

namespace {

using Clock = std::chrono::steady_clock;

thread_local bool t_bInProcess = false;
std::atomic<uint64_t> g_droppedLogLines{0};

bool IsSilent(const float* samples, size_t count) {
  return std::all_of(samples, samples + count, [](float s) { return s == 0.0f; });
}

}  // namespace

LiveEngine::LiveEngine(uint32_t channels)
    : m_channels(channels), m_histogram(new std::atomic<uint32_t>[kHistogramMicros + 1]) {
  for (uint32_t i = 0; i <= kHistogramMicros; ++i) m_histogram[i].store(0, std::memory_order_relaxed);
}

LiveEngine::~LiveEngine() = default;

void LiveEngine::Install(IHostStage* stage, uint32_t maxFrames) {
  // The callback does not look at these while no stage is installed; the
  // store below publishes them with the stage.
  m_capacity = maxFrames;
  m_input.assign(size_t(maxFrames) * m_channels, 0.0f);
  m_output.assign(size_t(maxFrames) * m_channels, 0.0f);
  m_bFirstPeriod = true;
  m_stage.store(stage);
}

bool LiveEngine::Withdraw(IHostStage*& stage, std::chrono::milliseconds patience) {
  stage = m_stage.exchange(nullptr);
  // The callback marks itself busy before it reads the stage, and both are
  // sequentially consistent: once it is seen idle after the exchange, any
  // period that read the old stage has ended, and every later one reads null.
  const Clock::time_point giveUp = Clock::now() + patience;
  while (m_bInCallback.load()) {
    if (Clock::now() >= giveUp) return false;
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  return true;
}

void LiveEngine::Process(const float* const* inputs, float* const* outputs, uint32_t frames) {
  m_bInCallback.store(true);
  IHostStage* stage = m_stage.load();
  m_periods.fetch_add(1, std::memory_order_relaxed);
  if (stage == nullptr || frames > m_capacity) {
    // Until the stage for this period size is ready the audio passes.
    PassThrough(inputs, outputs, frames);
    m_bInCallback.store(false);
    return;
  }
  t_bInProcess = true;
  const uint64_t allocationsBefore = AllocationsOnThisThread();
  const Clock::time_point before = Clock::now();  // vDSO: no system call

  const uint32_t channels = m_channels;
  float* interleaved = m_input.data();
  for (uint32_t c = 0; c < channels; ++c) {
    const float* port = inputs[c];
    for (uint32_t f = 0; f < frames; ++f) interleaved[size_t(f) * channels + c] = port[f];
  }
  const bool silent = IsSilent(interleaved, size_t(frames) * channels);
  const uint32_t written = std::min(stage->Process(interleaved, m_output.data(), frames, silent), frames);
  const float* processed = m_output.data();
  for (uint32_t c = 0; c < channels; ++c) {
    float* port = outputs[c];
    for (uint32_t f = 0; f < written; ++f) port[f] = processed[size_t(f) * channels + c];
    std::fill(port + written, port + frames, 0.0f);
  }

  const auto elapsed = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - before).count();
  Record(static_cast<uint64_t>(elapsed), AllocationsOnThisThread() - allocationsBefore, silent);
  t_bInProcess = false;
  m_bInCallback.store(false);
}

void LiveEngine::PassThrough(const float* const* inputs, float* const* outputs, uint32_t frames) const {
  for (uint32_t c = 0; c < m_channels; ++c) {
    if (outputs[c] != inputs[c]) std::memcpy(outputs[c], inputs[c], size_t(frames) * sizeof(float));
  }
}

void LiveEngine::Record(uint64_t nanoseconds, uint64_t allocations, bool silent) {
  (m_bFirstPeriod ? m_firstAllocations : m_steadyAllocations).fetch_add(allocations, std::memory_order_relaxed);
  if (!m_bFirstPeriod && allocations != 0) m_allocatingPeriods.fetch_add(1, std::memory_order_relaxed);
  m_bFirstPeriod = false;
  m_processed.fetch_add(1, std::memory_order_relaxed);
  if (silent) m_silent.fetch_add(1, std::memory_order_relaxed);
  const uint64_t micros = std::min<uint64_t>(nanoseconds / 1000, kHistogramMicros);
  m_histogram[micros].fetch_add(1, std::memory_order_relaxed);
  if (nanoseconds > m_maxNanoseconds.load(std::memory_order_relaxed)) {
    m_maxNanoseconds.store(nanoseconds, std::memory_order_relaxed);
  }
}

bool LiveEngine::OnAudioThread() { return t_bInProcess; }

void LiveEngine::CountDroppedLogLine() { g_droppedLogLines.fetch_add(1, std::memory_order_relaxed); }

LiveMeasures LiveEngine::Measures() const {
  LiveMeasures measures;
  measures.periods = m_periods.load(std::memory_order_relaxed);
  measures.processedPeriods = m_processed.load(std::memory_order_relaxed);
  measures.silentPeriods = m_silent.load(std::memory_order_relaxed);
  measures.xruns = m_xruns.load(std::memory_order_relaxed);
  measures.firstAllocations = m_firstAllocations.load(std::memory_order_relaxed);
  measures.steadyAllocations = m_steadyAllocations.load(std::memory_order_relaxed);
  measures.allocatingPeriods = m_allocatingPeriods.load(std::memory_order_relaxed);
  measures.droppedLogLines = g_droppedLogLines.load(std::memory_order_relaxed);
  measures.maxMicros = double(m_maxNanoseconds.load(std::memory_order_relaxed)) / 1000.0;
  uint64_t total = 0;
  for (uint32_t i = 0; i <= kHistogramMicros; ++i) total += m_histogram[i].load(std::memory_order_relaxed);
  if (total == 0) return measures;
  // Quantiles at the middle of their one-microsecond bin.
  auto quantile = [&](double q) {
    const uint64_t rank = static_cast<uint64_t>(q * double(total - 1));
    uint64_t seen = 0;
    for (uint32_t i = 0; i <= kHistogramMicros; ++i) {
      seen += m_histogram[i].load(std::memory_order_relaxed);
      if (seen > rank) return std::min(i + 0.5, measures.maxMicros);
    }
    return measures.maxMicros;
  };
  measures.medianMicros = quantile(0.5);
  measures.p99Micros = quantile(0.99);
  return measures;
}
