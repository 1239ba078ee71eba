// The GUIDs and property keys of the system's COM headers, defined here once
// for every library that uses platform/com.h.
#include <initguid.h>

#include "platform/com.h"
