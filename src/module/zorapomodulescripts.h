#pragma once
// The module's registration scripts, compiled in from scripts/*.rgs. The
// Windows module carries the same files as resources and registers from
// those; this copy serves the Linux library and the tests on both platforms.

#include <cstdint>
#include <string>

// The script of resource `id`; false for an id the module has no script for.
bool ZORAPOModuleScriptText(uint16_t id, std::string& bytes);
