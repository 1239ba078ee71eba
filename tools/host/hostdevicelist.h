#pragma once
// The device list as the engine's objects see it, with velapo-host's
// endpoint in it. An effect object binds to its endpoint by finding it among
// the active render endpoints of the system's device enumerator. On Linux the
// settings store is that list, and an endpoint the host made is in it. On
// Windows the system lists the endpoints of its drivers only: Wine's list
// never holds one that only the registry describes. There, while this object
// lives, every device enumerator the process makes (the module's included)
// is the system's with the host's endpoint added as an active render
// endpoint, as the engine would see a driver's endpoint.

#include "platform/com.h"

class HostDeviceList {
 public:
  // `device` (kept while listed) needs only its id: the objects read the rest
  // from the endpoint's keys.
  explicit HostDeviceList(IMMDevice* device);
  ~HostDeviceList();
  HostDeviceList(const HostDeviceList&) = delete;
  HostDeviceList& operator=(const HostDeviceList&) = delete;

  // False when the listing could not be put in place (Windows): objects then
  // bind only to endpoints the system lists.
  bool IsListed() const { return m_listed; }

 private:
  bool m_listed = false;
  unsigned long m_cookie = 0;
  IUnknown* m_factory = nullptr;
};
