#include "platform/posix/registrywatch.h"

#include <dirent.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <vector>

#include "platform/event.h"
#include "platform/posix/registrystore.h"
#include "platform/threadpriority.h"

namespace zor::os::regstore {
namespace {

// Everything that changes a key directory. Writers replace value files by
// rename (IN_MOVED_TO), deletes unlink them, keys appear by rename of a
// finished temporary directory; IN_CREATE catches a value or key some other
// tool made in place. Not IN_CLOSE_WRITE: a writer closes its file after
// the rename, and the kernel names the event after the value, which would
// signal a watcher that armed again in between for a change it has seen.
constexpr uint32_t kWatchMask = IN_MOVED_TO | IN_MOVED_FROM | IN_CREATE | IN_DELETE | IN_ATTRIB |
                                IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

bool IsKeyEntry(const char* name) {
  return name[0] != '\0' && name[0] != '.' && name[0] != kValuePrefix;
}

RegStatus StatusOfErrno(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return RegStatus::KeyDeleted;
    case EACCES:
    case EPERM:
      return RegStatus::AccessDenied;
    default:
      return RegStatus::IoFailed;
  }
}

struct TreeContents {
  bool values = false;
  bool subkeys = false;
};

class ChangeHub {
 public:
  RegStatus Arm(const std::string& dir, bool subtree, uint32_t filter, Event& event, uint64_t& id) {
    const std::lock_guard<std::mutex> lock(m_lock);
    if (!StartLocked()) return RegStatus::IoFailed;
    id = m_nextId++;
    Armed& armed = m_armed[id];
    armed.event = &event;
    armed.filter = filter;
    armed.subtree = subtree;
    const RegStatus status = WatchLocked(id, dir, &armed.rootWd);
    if (status != RegStatus::Ok) {
      ForgetLocked(id);
      return status;
    }
    // Values and keys already below existed before the arm; only later
    // changes count, so what the walk finds is ignored.
    if (subtree) WatchTreeLocked(id, dir);
    return RegStatus::Ok;
  }

  void End(uint64_t id) {
    const std::lock_guard<std::mutex> lock(m_lock);
    FireLocked(id);
  }

  bool IsArmed(uint64_t id) {
    const std::lock_guard<std::mutex> lock(m_lock);
    return m_armed.contains(id);
  }

  void Shutdown() {
    {
      const std::lock_guard<std::mutex> lock(m_lock);
      if (m_stopped) return;
      m_stopped = true;
      if (m_thread.joinable()) {
        const uint64_t one = 1;
        if (::write(m_wake, &one, sizeof(one)) < 0) {
          // The eventfd cannot be full after one write; nothing to recover.
        }
      }
    }
    if (m_thread.joinable()) m_thread.join();
    const std::lock_guard<std::mutex> lock(m_lock);
    if (m_inotify >= 0) ::close(m_inotify);
    if (m_wake >= 0) ::close(m_wake);
    m_inotify = m_wake = -1;
    m_watches.clear();
  }

 private:
  struct Armed {
    Event* event = nullptr;
    uint32_t filter = 0;
    bool subtree = false;
    int rootWd = -1;
    std::vector<int> wds;
  };
  struct Watch {
    std::string path;
    std::vector<uint64_t> listeners;
  };

  bool StartLocked() {
    if (m_stopped) return false;
    if (m_thread.joinable()) return true;
    m_inotify = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    m_wake = ::eventfd(0, EFD_CLOEXEC);
    if (m_inotify >= 0 && m_wake >= 0) {
      try {
        m_thread = std::thread([this] {
          ThreadPriorityBoost::StartAtNormalPriority();
          Loop();
        });
        return true;
      } catch (const std::system_error&) {
      }
    }
    if (m_inotify >= 0) ::close(m_inotify);
    if (m_wake >= 0) ::close(m_wake);
    m_inotify = m_wake = -1;
    return false;
  }

  RegStatus WatchLocked(uint64_t id, const std::string& path, int* wdOut) {
    const int wd = ::inotify_add_watch(m_inotify, path.c_str(), kWatchMask);
    if (wd < 0) return StatusOfErrno(errno);
    Watch& watch = m_watches[wd];
    if (watch.path.empty()) watch.path = path;
    if (std::find(watch.listeners.begin(), watch.listeners.end(), id) == watch.listeners.end()) {
      watch.listeners.push_back(id);
      m_armed[id].wds.push_back(wd);
    }
    if (wdOut != nullptr) *wdOut = wd;
    return RegStatus::Ok;
  }

  // Watches every key directory below `dir` for `id`, and says what it found.
  // A directory that disappears meanwhile is skipped: its deletion is reported
  // on its parent.
  TreeContents WatchTreeLocked(uint64_t id, const std::string& dir) {
    TreeContents found;
    std::vector<std::string> pending{dir};
    while (!pending.empty()) {
      const std::string current = std::move(pending.back());
      pending.pop_back();
      DIR* listing = ::opendir(current.c_str());
      if (listing == nullptr) continue;
      while (const dirent* entry = ::readdir(listing)) {
        if (entry->d_name[0] == kValuePrefix) found.values = true;
        if (!IsKeyEntry(entry->d_name)) continue;
        const std::string path = current + "/" + entry->d_name;
        struct stat info {};
        if (::lstat(path.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) continue;
        found.subkeys = true;
        if (WatchLocked(id, path, nullptr) == RegStatus::Ok) pending.push_back(path);
      }
      ::closedir(listing);
    }
    return found;
  }

  void ForgetLocked(uint64_t id) {
    const auto armed = m_armed.find(id);
    if (armed == m_armed.end()) return;
    for (const int wd : armed->second.wds) {
      const auto watch = m_watches.find(wd);
      if (watch == m_watches.end()) continue;
      std::erase(watch->second.listeners, id);
      if (watch->second.listeners.empty()) {
        if (m_inotify >= 0) ::inotify_rm_watch(m_inotify, wd);
        m_watches.erase(watch);
      }
    }
    m_armed.erase(armed);
  }

  void FireLocked(uint64_t id) {
    const auto armed = m_armed.find(id);
    if (armed == m_armed.end()) return;
    armed->second.event->Set();
    ForgetLocked(id);
  }

  void DispatchLocked(const inotify_event& event) {
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
      // Events were lost: anything may have changed, so tell everyone.
      std::vector<uint64_t> all;
      for (const auto& [id, armed] : m_armed) all.push_back(id);
      for (const uint64_t id : all) FireLocked(id);
      return;
    }
    const auto watch = m_watches.find(event.wd);
    if (watch == m_watches.end()) return;
    const bool self = event.len == 0 || event.name[0] == '\0';
    const char* name = self ? "" : event.name;
    uint32_t kinds = 0;
    bool gone = false;
    bool newKey = false;
    if (self) {
      gone = (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) != 0;
      if ((event.mask & IN_ATTRIB) != 0) kinds |= kNotifyChangeAttributes | kNotifyChangeSecurity;
    } else if (name[0] == '.') {
      return;  // temporary files and directories, and a key's name record
    } else if (name[0] == kValuePrefix) {
      if ((event.mask & (IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_CREATE)) != 0) {
        kinds |= kNotifyChangeLastSet;
      }
    } else if ((event.mask & IN_ISDIR) != 0) {
      if ((event.mask & (IN_MOVED_TO | IN_CREATE | IN_MOVED_FROM | IN_DELETE)) != 0) {
        kinds |= kNotifyChangeName;
      }
      newKey = (event.mask & (IN_MOVED_TO | IN_CREATE)) != 0;
    }
    const std::vector<uint64_t> listeners = watch->second.listeners;
    const std::string newPath = watch->second.path + "/" + name;
    for (const uint64_t id : listeners) {
      const auto armed = m_armed.find(id);
      if (armed == m_armed.end()) continue;
      // A deleted key signals whatever the filter, as the registry does.
      if (gone || (kinds & armed->second.filter) != 0) {
        FireLocked(id);
      } else if (newKey && armed->second.subtree) {
        // A key made after the arm may have been written to before its watch
        // was in place: what it already holds counts as a change.
        const uint32_t filter = armed->second.filter;
        if (WatchLocked(id, newPath, nullptr) == RegStatus::Ok) {
          const TreeContents inside = WatchTreeLocked(id, newPath);
          if ((inside.values && (filter & kNotifyChangeLastSet) != 0) ||
              (inside.subkeys && (filter & kNotifyChangeName) != 0)) {
            FireLocked(id);
          }
        }
      }
    }
    if ((event.mask & IN_IGNORED) != 0) {
      const auto stale = m_watches.find(event.wd);
      if (stale == m_watches.end()) return;
      for (const uint64_t id : stale->second.listeners) {
        const auto armed = m_armed.find(id);
        if (armed != m_armed.end()) std::erase(armed->second.wds, event.wd);
      }
      m_watches.erase(stale);
    }
  }

  void Loop() {
    alignas(inotify_event) char buffer[16384];
    for (;;) {
      pollfd fds[2] = {{m_inotify, POLLIN, 0}, {m_wake, POLLIN, 0}};
      if (::poll(fds, 2, -1) < 0) {
        if (errno == EINTR) continue;
        return;
      }
      if ((fds[1].revents & POLLIN) != 0) return;
      const ssize_t length = ::read(m_inotify, buffer, sizeof(buffer));
      if (length <= 0) continue;
      const std::lock_guard<std::mutex> lock(m_lock);
      for (ssize_t at = 0; at + static_cast<ssize_t>(sizeof(inotify_event)) <= length;) {
        const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
        DispatchLocked(*event);
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      }
    }
  }

  std::mutex m_lock;
  int m_inotify = -1;
  int m_wake = -1;
  std::thread m_thread;
  bool m_stopped = false;
  uint64_t m_nextId = 1;
  std::unordered_map<int, Watch> m_watches;
  std::unordered_map<uint64_t, Armed> m_armed;
};

// The hub is never freed: a key closed during static destruction may still
// end its notifications through it. Its thread is stopped when this module goes away, so no
// thread runs on in an unloaded library.
std::atomic<ChangeHub*> g_hub{nullptr};
std::once_flag g_hubOnce;

ChangeHub& Hub() {
  std::call_once(g_hubOnce, [] { g_hub.store(new ChangeHub); });
  return *g_hub.load();
}

struct HubStopper {
  ~HubStopper() {
    if (ChangeHub* hub = g_hub.load()) hub->Shutdown();
  }
} g_hubStopper;

}  // namespace

RegStatus ArmChangeNotification(const std::string& dir, bool watchSubtree, uint32_t filter,
                                Event& event, uint64_t& id) {
  return Hub().Arm(dir, watchSubtree, filter, event, id);
}

bool IsChangeNotificationArmed(uint64_t id) {
  ChangeHub* hub = g_hub.load();
  return hub != nullptr && hub->IsArmed(id);
}

void EndChangeNotification(uint64_t id) {
  if (ChangeHub* hub = g_hub.load()) hub->End(id);
}

}  // namespace zor::os::regstore
