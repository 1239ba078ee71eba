#pragma once

#include <functional>
#include <string>

#include "platform/event.h"
#include "platform/thread.h"

// Tells an effect list's client that the settings changed, so that it asks
// again: a thread waits for a change anywhere under the settings key and
// calls the given action, re-arming the one-shot notification each time.
// At most one thread per watcher; Start and Stop come from one thread at a
// time (the effect list's lock), never from the watcher thread itself.
class ZORAPOEffectListWatcher {
 public:
  // `keyPath` under HKEY_LOCAL_MACHINE; the product's settings key unless a
  // test points elsewhere.
  explicit ZORAPOEffectListWatcher(std::u16string keyPath = u"Software\\VEL\\APO");
  ~ZORAPOEffectListWatcher();  // stops the thread
  ZORAPOEffectListWatcher(const ZORAPOEffectListWatcher&) = delete;
  ZORAPOEffectListWatcher& operator=(const ZORAPOEffectListWatcher&) = delete;

  // Stops a running thread, then starts one that calls `onChange` after each
  // change. False when the thread could not be made.
  bool Start(std::function<void()> onChange);
  // Signals the thread and joins it; nothing when none runs.
  void Stop();
  bool Running() const { return m_thread.Holds(); }

 private:
  static unsigned ThreadEntry(void* self);
  void Watch();

  std::u16string m_keyPath;
  zor::os::Event m_stop{zor::os::EventReset::Manual};
  zor::os::Thread m_thread;
  // Written only while no thread runs.
  std::function<void()> m_onChange;
};
