#include "scriptplayer.h"

#include <chrono>

#include "hostcontrol.h"

ScriptPlayer::ScriptPlayer(std::vector<ScriptAction> actions, HostControl& control)
    : m_actions(std::move(actions)), m_events(m_actions.size()), m_control(control) {}

ScriptPlayer::~ScriptPlayer() { Stop(); }

void ScriptPlayer::Start() {
  if (!m_thread.joinable()) m_thread = std::thread([this] { Run(); });
}

void ScriptPlayer::Stop() {
  m_stop.store(true);
  if (m_thread.joinable()) m_thread.join();
}

void ScriptPlayer::RecordStall(size_t index, uint64_t streamUs) {
  ScriptEvent& event = m_events.at(index);
  event.done = event.ok = true;
  event.appliedUs = streamUs;
}

void ScriptPlayer::Run() {
  size_t next = 0;
  for (;;) {
    // Read the stop flag first: whatever was posted before it is still done.
    const bool stopping = m_stop.load();
    const size_t posted = m_posted.load(std::memory_order_acquire);
    for (; next < posted; ++next) {
      if (m_actions[next].IsControl()) {
        ScriptEvent& event = m_events[next];
        event.ok = m_control.Apply(m_actions[next], event.error);
        event.appliedUs = m_positionUs.load(std::memory_order_relaxed);
        event.done = true;
      }
      m_done.store(next + 1, std::memory_order_release);
    }
    if (stopping) return;
    // A panel's pace: polling every millisecond costs nothing and needs no
    // lock the audio loop would have to take to wake this thread.
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}
