#pragma once

#include <cstdint>

#include "platform/com.h"

class ZORAPOProcessManager;

// Binds a manager to the endpoint whose FX property store an effect object
// was given: the one place the front end asks the manager for it, so that the
// manager's own binding replaces this in one line. True when the endpoint was
// bound or is not among the active render endpoints (the manager then runs
// unconfigured, which passes audio); false when the store names no endpoint
// or its configuration does not load. Configuration thread.
bool ZORAPOBindEndpoint(ZORAPOProcessManager& manager, IMMDevice*& device, IPropertyStore*& properties,
                        uint32_t location, uint32_t contentIndex);
