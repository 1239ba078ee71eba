#pragma once
// ControlContext: what a control process sets up once before it touches the
// stores: COM on this thread (the device enumerator needs it on Windows),
// the settings store's root (POSIX; Windows has the one registry), and where
// the engine's own log lines go. One per process, on the main thread, made
// before any other control object and destroyed after them.
#include <string>

class ControlContext {
 public:
  // `storeRoot` empty keeps the default root. With `quiet`, the engine's
  // log lines are dropped; a tool shows its own messages instead.
  ControlContext(const std::string& storeRoot, bool quiet);
  ~ControlContext();
  ControlContext(const ControlContext&) = delete;
  ControlContext& operator=(const ControlContext&) = delete;

  // The settings store in use, for messages: the root directory on POSIX,
  // "the registry" on Windows.
  static std::string StoreDescription();
  // Whether a store root can be chosen on this platform.
  static bool StoreRootSelectable();

 private:
  bool m_comInitialised = false;
  bool m_quiet = false;
};
