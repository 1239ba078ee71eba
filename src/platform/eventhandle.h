#pragma once
// Event handles as they cross an interface: a client passes a HANDLE, the
// receiver keeps a duplicate of its own, and the event lives until the last
// handle of it is closed, so the receiver's copy outlives the client's close.
// Windows: kernel event handles (DuplicateHandle in this process). POSIX: a
// handle is a reference to a counted event that this layer knows; a value it
// never gave out (or already closed) is refused, never dereferenced.
// Any thread; none of these wait but WaitEventHandle.

#include <cstdint>

#include "platform/com.h"

namespace zor::os {

// ERROR_INVALID_HANDLE, the system's answer to a handle it does not know.
inline constexpr uint32_t kErrorInvalidHandle = 6;

// A new unnamed event; null when the system refuses.
HANDLE CreateEventHandle(bool manualReset, bool initiallySignalled);
// Puts a second handle of `source`'s event in `copy`, with the same access
// and not inheritable. 0 on success, else the system's error code (`copy`
// then null).
uint32_t DuplicateEventHandle(HANDLE source, HANDLE* copy);
// False for an unknown handle.
bool SetEventHandle(HANDLE handle);
bool ResetEventHandle(HANDLE handle);
// True when signalled within timeoutMs (kInfinite: for ever).
bool WaitEventHandle(HANDLE handle, uint32_t timeoutMs);
// Closes this handle only; the event ends with its last handle.
bool CloseEventHandle(HANDLE handle);

}  // namespace zor::os
