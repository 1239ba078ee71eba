#pragma once
// The Linux device enumerator and policy client. Endpoints are keys of the
// settings store under the paths Windows keeps them at:
//
//   SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices\Audio:
//     Render\{GUID}             DeviceState (REG_DWORD: 1 active, 2 disabled,
//       Properties\               4 not present, 8 unplugged)
//       FxProperties\           values named "{fmtid},pid"
//     Render                    DefaultEndpoint (REG_SZ): the default
//                               endpoint's GUID text or id, for every role
//     Capture\{GUID}, Capture   the same for capture endpoints
//
// Device ids have the Windows form, "{0.0.0.00000000}.{GUID}" for render and
// "{0.0.1.00000000}.{GUID}" for capture. Notifications come from a watch on
// that tree, so a change by any process reaches every registered client.
// docs/endpoints.md has the whole layout. CoCreateInstance makes these
// objects; the functions below are for it and for the tests.

#include <cstdint>
#include <span>

#include "platform/com.h"
#include "platform/registry.h"

namespace zor::os {

HRESULT CreateDeviceEnumerator(REFIID riid, void** ppv);
HRESULT CreatePolicyConfig(REFIID riid, void** ppv);

// The variant a stored endpoint property reads as: REG_SZ and REG_EXPAND_SZ
// VT_LPWSTR (up to the first terminator; the size must be even), REG_DWORD
// VT_UI4 and REG_QWORD VT_UI8 (of exactly their size), REG_BINARY VT_BLOB,
// REG_MULTI_SZ VT_VECTOR | VT_LPWSTR. False, with `value` VT_EMPTY, for any
// other type or a size that does not fit it.
bool PropVariantFromRegistry(RegType type, std::span<const uint8_t> data, PROPVARIANT& value);

}  // namespace zor::os
