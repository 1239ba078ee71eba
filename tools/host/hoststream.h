#pragma once
// The audio loop of velapo-host, on a thread of its own as the engine's
// real-time thread: cuts the input into buffers of the block size, marks the
// silent ones, hands each to the stage, and carries the script out at its
// times. Measures what the report needs on the way: time per buffer,
// allocations on the audio thread, the stream times of chain switches.
//
// Pacing: with `realtime` every buffer waits for its time. Without it the
// stream runs as fast as it can, except around a control action: it holds
// until the action is in the store (as if the panel acted at exactly that
// time), then plays at the stream's rate until the engine has switched and
// faded (or a second has passed), so that the reaction lands where a
// listener would hear it rather than seconds of audio later.

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "audiofile.h"
#include "hoststage.h"

class ScriptPlayer;

struct StreamMeasures {
  std::vector<double> bufferMicros;  // time in the stage per buffer
  std::vector<uint64_t> switchFrames;  // stream frame at each switch seen
  uint64_t allocations = 0;            // on the audio thread, in the stage
  uint64_t steadyAllocations = 0;      // the same after the first buffer
  uint32_t silentBuffers = 0;
  uint32_t shortBuffers = 0;           // the stage gave fewer frames than offered
  double wallSeconds = 0;
};

class HostStream {
 public:
  // Longest time a control action may hold the stream before it goes on. A
  // write is in the store within milliseconds on a quiet machine, but a busy
  // one took over 250 ms; the limit only keeps a store that never answers
  // from stopping the run, so that actions land where the script puts them.
  static constexpr uint32_t kHoldLimitMs = 5000;
  // Longest the stream plays at its rate after a control action.
  static constexpr uint32_t kSettleMs = 1000;

  HostStream(IHostStage& stage, const AudioClip& input, const HostFormat& format, uint32_t blockFrames,
             bool realtime, ScriptPlayer* player);
  ~HostStream();
  HostStream(const HostStream&) = delete;
  HostStream& operator=(const HostStream&) = delete;

  void Start();
  void Join();
  // Frames played so far; any thread.
  uint64_t Position() const { return m_position.load(std::memory_order_relaxed); }
  bool Finished() const { return m_finished.load(); }

  const AudioClip& Output() const { return m_output; }
  const StreamMeasures& Measures() const { return m_measures; }

 private:
  void Run();
  uint64_t FrameOf(uint64_t streamUs) const;

  IHostStage& m_stage;
  const AudioClip& m_input;
  HostFormat m_format;
  uint32_t m_blockFrames;
  bool m_bRealtime;
  ScriptPlayer* m_pPlayer;
  AudioClip m_output;
  StreamMeasures m_measures;
  std::atomic<uint64_t> m_position{0};
  std::atomic<bool> m_finished{false};
  std::thread m_thread;
};
