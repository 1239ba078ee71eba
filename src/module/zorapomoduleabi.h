#pragma once
// What the module exports for hosts, besides the four COM entries: the table
// of its seven classes, for a host without a COM registry (velapo-host on
// Linux) to find a class by location and make it through DllGetClassObject.

#include <cstdint>

#include "platform/com.h"

struct ZORAPOModuleClass {
  CLSID clsid;
  // 0 to 5 for the render locations, 0xFFFFFFFF for capture.
  uint32_t location;
  const WCHAR* friendlyName;
  IID apoInterface;
  uint32_t flags;
};

// The exported "ZORAPOGetModuleClasses": the seven classes in registration
// order (LFX, capture, SFX, MFX, EFX, OSFX, OMFX), valid while the module is
// loaded; `count` (may be null) receives 7.
using ZORAPOGetModuleClassesFn = const ZORAPOModuleClass* (*)(uint32_t* count);
inline constexpr const char* kZORAPOGetModuleClassesName = "ZORAPOGetModuleClasses";

// The exported "ZORAPOSetStoreRoot": the directory of the settings store the
// library uses from now on (see platform/registry.h). The library keeps its
// own copy of the platform layer, so a host's own choice doesn't reach it;
// Linux hosts call this once after loading. Ignored on Windows.
using ZORAPOSetStoreRootFn = void (*)(const char* directory);
inline constexpr const char* kZORAPOSetStoreRootName = "ZORAPOSetStoreRoot";

// The exported "ZORAPOSetLogSink": where the library's log lines go from now
// on, each as UTF-8 (null: the platform's debug output, standard error on
// Linux). Its copy of the platform layer has a log of its own, which a
// host's choice would not reach otherwise. The sink may be called from any
// thread at once and must not block.
using ZORAPOLogSink = void (*)(void* context, const char* utf8Line, bool wasWide);
using ZORAPOSetLogSinkFn = void (*)(ZORAPOLogSink sink, void* context);
inline constexpr const char* kZORAPOSetLogSinkName = "ZORAPOSetLogSink";
