#include "platform/eventhandle.h"

#include <windows.h>

namespace zor::os {

HANDLE CreateEventHandle(bool manualReset, bool initiallySignalled) {
  return ::CreateEventW(nullptr, manualReset ? TRUE : FALSE, initiallySignalled ? TRUE : FALSE, nullptr);
}

uint32_t DuplicateEventHandle(HANDLE source, HANDLE* copy) {
  *copy = nullptr;
  if (!::DuplicateHandle(::GetCurrentProcess(), source, ::GetCurrentProcess(), copy, 0, FALSE,
                         DUPLICATE_SAME_ACCESS)) {
    *copy = nullptr;
    return ::GetLastError();
  }
  return 0;
}

bool SetEventHandle(HANDLE handle) { return ::SetEvent(handle) != 0; }
bool ResetEventHandle(HANDLE handle) { return ::ResetEvent(handle) != 0; }
bool WaitEventHandle(HANDLE handle, uint32_t timeoutMs) {
  return ::WaitForSingleObject(handle, timeoutMs) == WAIT_OBJECT_0;
}
bool CloseEventHandle(HANDLE handle) { return ::CloseHandle(handle) != 0; }

}  // namespace zor::os
