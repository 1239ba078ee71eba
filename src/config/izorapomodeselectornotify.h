#pragma once
// Told by ZORAPOModeSelector that the stored mode changed, on the registry
// watcher's thread and under the selector's lock: an implementation only
// signals (the process manager sets its workspace-update event).

class IZORAPOModeSelectorNotify {
 public:
  virtual ~IZORAPOModeSelectorNotify() = default;
  virtual void OnModeChanged() = 0;
};
