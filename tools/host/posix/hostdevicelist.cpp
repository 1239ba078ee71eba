#include "hostdevicelist.h"

// The settings store is the device list here: the endpoint's keys list it.
HostDeviceList::HostDeviceList(IMMDevice*) : m_listed(true) {}

HostDeviceList::~HostDeviceList() = default;
