#pragma once
// The loaded module's one CZOR_APOModule and what loading does, shared by the
// Windows and Linux entry points (win32/ and posix/zorapomoduleentry.cpp).

#include <string>

#include "module/czor_apomodule.h"

// The module object of this process, made on first use.
CZOR_APOModule& ZORAPOTheModule();

// Runs once when the module is loaded, with its own file path: builds the
// class records, reads the instance limit (where the store is known at
// load), and makes the module's directory the place the tech module is
// looked for.
void ZORAPOModuleAttach(const std::u16string& modulePath, bool readInstanceLimit);

// The path given at load.
const std::u16string& ZORAPOModulePath();

// Registration as the loaded module does it: its own path, its scripts, the
// type library and the thread locale of this platform.
ZORAPOModuleSetup ZORAPOLoadedModuleSetup();
