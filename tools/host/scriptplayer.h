#pragma once
// Carries a script's control actions out on a thread of its own, as a
// control panel in another process would: the audio loop hands an action
// over when the stream reaches its time and goes on; this thread writes the
// stores. The audio side only stores and loads atomics.
//
// Each action has one record, written by the one thread that carries it out
// (this thread for control actions, the audio loop for stalls) and read by
// the owner after Stop.

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "hostscript.h"

class HostControl;

struct ScriptEvent {
  bool done = false;       // carried out, or tried
  bool ok = false;
  uint64_t appliedUs = 0;  // stream time when it was carried out
  std::string error;
};

class ScriptPlayer {
 public:
  ScriptPlayer(std::vector<ScriptAction> actions, HostControl& control);
  ~ScriptPlayer();
  ScriptPlayer(const ScriptPlayer&) = delete;
  ScriptPlayer& operator=(const ScriptPlayer&) = delete;

  void Start();
  // Carries out what was handed over, then ends the thread.
  void Stop();

  const std::vector<ScriptAction>& Actions() const { return m_actions; }
  // After Stop: one record per action.
  const std::vector<ScriptEvent>& Events() const { return m_events; }

  // Audio loop: the stream's position, for the records.
  void SetPosition(uint64_t streamUs) { m_positionUs.store(streamUs, std::memory_order_relaxed); }
  // Audio loop: hands over every control action up to `index`, in order.
  void Post(size_t index) { m_posted.store(index + 1, std::memory_order_release); }
  // Audio loop: true once the action at `index` has been carried out.
  bool IsDone(size_t index) const { return m_done.load(std::memory_order_acquire) > index; }
  // Audio loop: a stall it carried out itself.
  void RecordStall(size_t index, uint64_t streamUs);

 private:
  void Run();

  std::vector<ScriptAction> m_actions;
  std::vector<ScriptEvent> m_events;
  HostControl& m_control;
  std::atomic<uint64_t> m_positionUs{0};
  std::atomic<size_t> m_posted{0};
  std::atomic<size_t> m_done{0};
  std::atomic<bool> m_stop{false};
  std::thread m_thread;
};
