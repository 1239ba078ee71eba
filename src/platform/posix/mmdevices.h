#pragma once
// The Linux device enumerator and policy client: endpoints are keys of the
// settings store under the paths Windows keeps them at. CoCreateInstance
// makes them; nothing else should.

#include "platform/com.h"

namespace zor::os {

HRESULT CreateDeviceEnumerator(REFIID riid, void** ppv);
HRESULT CreatePolicyConfig(REFIID riid, void** ppv);

}  // namespace zor::os
