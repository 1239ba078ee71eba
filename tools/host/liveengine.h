#pragma once
// The bridge between a JACK client's real-time callback and a stage: JACK's
// planar port buffers into the stage's interleaved buffers and back, and the
// hand-over of stages between the main thread and the callback, so that a new
// period size or rate can start a new stage off the real-time thread while
// the callback goes on.
//
// The callback never waits and never allocates: it takes the stage that is
// installed, or, while none is (before the start, during a restart), passes
// its input straight through, as an unbuilt chain does. Withdraw takes the
// stage away and waits (on the main thread) until the callback has let go.
//
// It also measures the callback for the summary: time in the stage per
// period, in a histogram of fixed size; allocations on the callback's thread,
// counted by the program's operator new; xruns; log lines the engine tried to
// write from the callback (dropped: the callback makes no system call).

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "hoststage.h"

struct LiveMeasures {
  uint64_t periods = 0;            // callbacks
  uint64_t processedPeriods = 0;   // of them through a stage
  uint64_t silentPeriods = 0;      // processed with silent input
  uint64_t xruns = 0;
  uint64_t firstAllocations = 0;   // in the first period of each stage
  uint64_t steadyAllocations = 0;  // in every other period through a stage
  uint64_t allocatingPeriods = 0;  // of those, the periods that allocated
  uint64_t droppedLogLines = 0;
  double medianMicros = 0;         // time in the stage and the conversions
  double p99Micros = 0;
  double maxMicros = 0;
};

class LiveEngine {
 public:
  // Times are kept in bins of one microsecond up to this; longer ones count
  // in the last bin (the maximum is kept exactly).
  static constexpr uint32_t kHistogramMicros = 100000;

  explicit LiveEngine(uint32_t channels);
  ~LiveEngine();
  LiveEngine(const LiveEngine&) = delete;
  LiveEngine& operator=(const LiveEngine&) = delete;

  // Main thread: hands the callback `stage`, started for periods of up to
  // `maxFrames`. No stage may be installed.
  void Install(IHostStage* stage, uint32_t maxFrames);
  // Main thread: takes the stage back. On true the callback no longer uses
  // `stage` (null when none was installed). False when the callback did not
  // let go within `patience`: the stage must then be left alone, never freed.
  bool Withdraw(IHostStage*& stage, std::chrono::milliseconds patience);

  // Real-time thread: one period of `frames` frames, a buffer per channel.
  void Process(const float* const* inputs, float* const* outputs, uint32_t frames);
  void CountXrun() { m_xruns.fetch_add(1, std::memory_order_relaxed); }
  // Whether the calling thread is inside Process (for the log sink).
  static bool OnAudioThread();
  static void CountDroppedLogLine();

  // Any thread; consistent once the callbacks have stopped.
  LiveMeasures Measures() const;

 private:
  void PassThrough(const float* const* inputs, float* const* outputs, uint32_t frames) const;
  void Record(uint64_t nanoseconds, uint64_t allocations, bool silent);

  const uint32_t m_channels;
  std::atomic<IHostStage*> m_stage{nullptr};
  std::atomic<bool> m_bInCallback{false};
  // Written by Install before the stage is published; read by the callback
  // only after it has seen that stage.
  uint32_t m_capacity = 0;
  std::vector<float> m_input;
  std::vector<float> m_output;
  bool m_bFirstPeriod = true;  // as m_capacity, then the callback's

  std::atomic<uint64_t> m_periods{0};
  std::atomic<uint64_t> m_processed{0};
  std::atomic<uint64_t> m_silent{0};
  std::atomic<uint64_t> m_xruns{0};
  std::atomic<uint64_t> m_firstAllocations{0};
  std::atomic<uint64_t> m_steadyAllocations{0};
  std::atomic<uint64_t> m_allocatingPeriods{0};
  std::atomic<uint64_t> m_maxNanoseconds{0};
  std::unique_ptr<std::atomic<uint32_t>[]> m_histogram;
};
