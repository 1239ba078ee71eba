#pragma once

class ZORFindMutex;

// Told by ZORFindMutex when the mutex it watches appears or goes away.
class IZORFindMutexNotify {
 public:
  virtual ~IZORFindMutexNotify() = default;
  // On the finder's poller, or on the thread calling Start or IsPresent.
  virtual void OnMutexChanged(ZORFindMutex& finder, bool present) = 0;
};
