#include "apo/zorapoeffectlistwatcher.h"

#include <utility>

#include "core/zorlog.h"
#include "platform/registry.h"

ZORAPOEffectListWatcher::ZORAPOEffectListWatcher(std::u16string keyPath) : m_keyPath(std::move(keyPath)) {}

ZORAPOEffectListWatcher::~ZORAPOEffectListWatcher() { Stop(); }

bool ZORAPOEffectListWatcher::Start(std::function<void()> onChange) {
  Stop();
  m_onChange = std::move(onChange);
  m_stop.Reset();
  return m_thread.Start(&ZORAPOEffectListWatcher::ThreadEntry, this);
}

void ZORAPOEffectListWatcher::Stop() {
  if (!m_thread.Holds()) return;
  m_stop.Set();
  m_thread.Join(zor::os::kInfinite);
}

unsigned ZORAPOEffectListWatcher::ThreadEntry(void* self) {
  static_cast<ZORAPOEffectListWatcher*>(self)->Watch();
  return 0;
}

void ZORAPOEffectListWatcher::Watch() {
  ZOR_LOGW(u"\nGetEffectList Thread Started.\n");
  zor::os::Event changed(zor::os::EventReset::Auto);
  zor::os::RegKey key;
  if (zor::os::RegKey::Open(m_keyPath, zor::os::kKeyNotify, key) != zor::os::RegStatus::Ok) {
    ZOR_LOG("Unable to open registry key.");
    return;
  }
  constexpr uint32_t kFilter = zor::os::kNotifyChangeName | zor::os::kNotifyChangeAttributes |
                               zor::os::kNotifyChangeLastSet | zor::os::kNotifyChangeSecurity;
  zor::os::Event* const waits[] = {&m_stop, &changed};
  for (;;) {
    // One-shot: armed again after every change.
    if (key.NotifyChange(true, kFilter, changed) != zor::os::RegStatus::Ok) break;
    ZOR_LOGW(u"\nGetEffectList Thread: Waiting for signaled event.\n");
    if (zor::os::WaitAny(waits, 2, zor::os::kInfinite) != 1) {
      ZOR_LOG("Thread terminating.\n");
      break;
    }
    ZOR_LOG("\nChange has occurred.\n");
    if (m_onChange) {
      ZOR_LOG("\nSetting the GetEffectsList event for client.\n");
      m_onChange();
    }
  }
  // Closing the key ends the armed notification, which signals `changed`:
  // both go before the event does.
  key.Close();
}
