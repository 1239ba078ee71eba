#pragma once
// Observer of a ZORPropertySetRegistry's watcher: told that the watched key
// changed, and left to decide what to read. Called on the watcher thread, so
// an implementation touches only what is safe from there (an atomic, an
// event) or takes its own lock.

class ZORPropertySetRegistry;

class IZORPropertySetRegistrySimpleNotify {
 public:
  virtual ~IZORPropertySetRegistrySimpleNotify() = default;
  // After each change signal of the key, on the watcher thread.
  virtual void OnRegistryChanged(ZORPropertySetRegistry& registry) = 0;
};
