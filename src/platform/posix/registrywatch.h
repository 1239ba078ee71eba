#pragma once
// Change notification for the POSIX settings store. One inotify instance and
// one thread per process serve every armed notification: the thread reads the
// kernel's events, matches them against the armed filters and sets the armed
// events. inotify reports changes made by any process, so a write anywhere
// reaches every process that armed a notification on that key.
//
// The thread starts with the first Arm and is stopped when the module is
// unloaded (or the process ends); notifications armed then are never
// signalled. Any thread may call every function here. A process that forks
// arms notifications in the parent, or in the child after exec: a forked
// copy has the parent's bookkeeping but not its thread.

#include <cstdint>
#include <string>

#include "platform/registry.h"

namespace zor::os::regstore {

// Arms a one-shot notification on the key directory `dir`: `event` is set
// once for the first matching change, then the notification is gone. `id`
// receives a number for EndChangeNotification. KeyDeleted when the
// directory is gone.
RegStatus ArmChangeNotification(const std::string& dir, bool watchSubtree, uint32_t filter,
                                Event& event, uint64_t& id);
// Whether the notification is still waiting for its change.
bool IsChangeNotificationArmed(uint64_t id);
// Ends a notification that is still armed by signalling it, as the registry
// does when a key with a pending notification is closed; ids that fired or
// ended already are fine. Once this returns, the event is never touched
// again.
void EndChangeNotification(uint64_t id);

}  // namespace zor::os::regstore
