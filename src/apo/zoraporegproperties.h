#pragma once

#include <cstdint>
#include <span>

#include "platform/apotypes.h"

// The identity of the seven effect classes towards the engine: where each
// sits in a stream, its name in logs, and the registration record the engine
// reads of it. Built once at load time; read-only after, any thread.
struct ZORAPOClassInfo {
  // Render locations 0 to 5; the capture class has none of its own.
  uint32_t location;
  const char* logName;
  const APO_REG_PROPERTIES* regProperties;
};

// Location codes of the render family, which key configuration, stale
// flushing and effect lists.
inline constexpr uint32_t kZORLocationPreBlue = 0;
inline constexpr uint32_t kZORLocationSFX = 1;
inline constexpr uint32_t kZORLocationMFX = 2;
inline constexpr uint32_t kZORLocationEFX = 3;
inline constexpr uint32_t kZORLocationOSFX = 4;
inline constexpr uint32_t kZORLocationOMFX = 5;
inline constexpr uint32_t kZORRenderLocationCount = 6;
inline constexpr uint32_t kZORLocationCapture = 0xFFFFFFFF;

// The six render classes in location order, then the capture class.
std::span<const ZORAPOClassInfo> ZORAPOClasses();
const ZORAPOClassInfo& ZORAPOCaptureClass();
// The render class at `location`, or null for a code of 6 or more.
const ZORAPOClassInfo* ZORAPORenderClass(uint32_t location);
// The name a location has in logs, or null for a code of 6 or more.
const char* ZORAPOLocationName(uint32_t location);
