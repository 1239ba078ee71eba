#pragma once

#include <cstdint>

// How many locked render objects may process at once; the ones numbered
// above the limit copy audio through, so that a machine with many streams
// stays on time. The limit is the REG_DWORD `BypassCount` under
// HKEY_LOCAL_MACHINE "Software\VEL\VELX", capped at 19; a missing value, or
// one of another type or size, gives 19. It can lower the figure, never raise
// it.
//
// It is read once per process. On Windows the module reads it at load,
// before any object exists. On Linux it is read when the first object is
// made, so that a host has set its settings store's root by then. Any thread.
class ZORAPOInstanceLimit {
 public:
  static constexpr uint32_t kMaxInstances = 19;

  // The limit, read on the first call.
  static uint32_t Get();
  // Reads the value now (the first Get's work).
  static uint32_t Read();
};
