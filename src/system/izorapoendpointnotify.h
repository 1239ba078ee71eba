#pragma once
// An observer of endpoint changes, registered with ZORAPOEndpointTools.
// No event names the endpoint: the system reacts to any of them.

#include <cstdint>

class IZORAPOEndpointNotify {
 public:
  virtual ~IZORAPOEndpointNotify() = default;
  // On the endpoint tools' worker thread. `code` is one of
  // ZORAPOEndpointTools::kEvent...: 0 the default changed, 1 a device left
  // the active state, 2 a device became active, 3 a device's system-effects
  // switch changed.
  virtual void OnEndpointEvent(int32_t code) = 0;
};
