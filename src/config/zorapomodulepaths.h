#pragma once
// Where the system's modules and its OEM configuration file are: each module
// looks for the others' files beside where they were loaded from. A module
// that is not loaded stands for the directory of the process's executable,
// which is where a host that links the engine statically keeps its files.
// Any thread; the file system is asked each time.

#include <cstdint>
#include <string>

// Which module GetModuleDirectory looks for.
enum ZORAPOModule : uint32_t {
  kZORModuleHost = 0,     // the engine: velapo64.dll, libvelapo.so
  kZORModuleControl = 1,  // the control module: velcnt64.dll, libvelcnt.so
  kZORModuleTech = 2,     // the tech module: veltech64.dll, libveltech.so
};

// The file name of the OEM configuration file looked for beside the modules.
inline constexpr const char16_t* kZOROemConfigFileName = u"vel_apo4_oem_config.xml";

// The file name of a module for this platform and build; empty for an
// unknown `which`.
std::u16string GetModuleFileNameOf(uint32_t which);

// The directory of the module, ending in the platform's separator ('\' on
// Windows, '/' on Linux); the executable's directory when the module is not
// loaded; empty for an unknown `which` or when not even the executable's
// path is known.
std::u16string GetModuleDirectory(uint32_t which);

// The OEM configuration file beside the host module, else beside the control
// module, if it exists there as a file; else the path beside the tech
// module, whether or not it exists (the caller checks).
std::u16string GetDefaultConfigPath();
