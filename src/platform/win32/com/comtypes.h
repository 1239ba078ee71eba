#pragma once
// The COM and Core Audio vocabulary on Windows: the system's own headers.
// The GUIDs and property keys they declare are defined once, in
// win32/com.cpp. What these headers lack is declared in platform/com.h for
// both platforms.

#include <windows.h>
#include <objbase.h>
#include <mmreg.h>
#include <mmdeviceapi.h>
#include <propidl.h>
#include <propsys.h>
#include <functiondiscoverykeys_devpkey.h>
#include <ks.h>
#include <ksmedia.h>
#include <audioapotypes.h>
#include <audioclient.h>

static_assert(sizeof(WCHAR) == sizeof(char16_t), "COM text must be UTF-16");

namespace zor::com {
// COM text is wchar_t here, velapo's wide text char16_t; both are UTF-16.
inline const char16_t* FromComText(const WCHAR* text) {
  return reinterpret_cast<const char16_t*>(text);
}
inline const WCHAR* ToComText(const char16_t* text) { return reinterpret_cast<const WCHAR*>(text); }
inline WCHAR* ToComText(char16_t* text) { return reinterpret_cast<WCHAR*>(text); }
}  // namespace zor::com
