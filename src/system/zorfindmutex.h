#pragma once
#include <atomic>
#include <cstdint>
#include <string>

#include "core/zorthreadbasic.h"
#include "system/izorfindmutexnotify.h"

// Watches whether a named mutex exists anywhere on the machine and tells a
// notifier when it appears or goes. The mutex is a presence flag between
// processes: whoever wants to be found holds it open, and whoever looks has
// no other link to it. A mutex that exists but may not be opened by this
// account counts as present, since it exists all the same.
//
// Configure belongs before Start; Start, Stop and the destructor to the
// owner's thread. The notifier is called on the poller, and once on the
// caller's thread during Start. IsPresent from another thread while the
// poller runs may report one change twice; it never misses one.
class ZORFindMutex : public IZORThreadBasicWorker {
 public:
  static constexpr uint32_t kDefaultPollMs = 300;

  // The last state seen.
  static constexpr int32_t kStateUnknown = 0;
  static constexpr int32_t kStatePresent = 2;
  static constexpr int32_t kStateAbsent = 3;
  // What Check found.
  static constexpr uint32_t kNoChange = 1;
  static constexpr uint32_t kNowPresent = 2;
  static constexpr uint32_t kNowAbsent = 3;

  ZORFindMutex() = default;
  // Stops the poller and forgets the notifier.
  ~ZORFindMutex() override;
  ZORFindMutex(const ZORFindMutex&) = delete;
  ZORFindMutex& operator=(const ZORFindMutex&) = delete;

  // The poller's body: one probe per interval until told to stop.
  bool Run(ZORThreadBasic& thread, zor::os::Event& stopEvent) override;

  void Configure(std::u16string name, uint32_t pollMs = kDefaultPollMs);
  // Stops a running poller, forgets the state, probes once on this thread
  // (so `notify` hears the present state before the call returns) and
  // starts the poller. False when the thread could not be started.
  bool Start(IZORFindMutexNotify* notify);
  // Stops the poller; the notifier is not called again and the state reads
  // unknown until the next probe.
  void Stop();
  // Probes now, reporting to the notifier whatever the state was before.
  bool IsPresent();
  // Probes: kNoChange, or kNowPresent / kNowAbsent when the state changed
  // (always, with `force`, which forgets the last state first). A change is
  // told to the notifier.
  uint32_t Check(bool force);

  int32_t GetState() const { return m_state.load(); }
  const std::u16string& GetName() const { return m_name; }
  uint32_t GetPollInterval() const { return m_pollMs; }
  bool IsPolling() const { return m_thread.IsStarted(); }

 private:
  // Atomic only so that an IsPresent beside the poller is a benign race.
  std::atomic<int32_t> m_state{kStateUnknown};
  std::u16string m_name;
  uint32_t m_pollMs = kDefaultPollMs;
  std::atomic<IZORFindMutexNotify*> m_pNotify{nullptr};
  ZORThreadBasic m_thread;
};
