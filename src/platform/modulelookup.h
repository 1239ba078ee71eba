#pragma once
// Finding this system's own modules among those loaded in the process: the
// host, control and tech modules find one another's files by where the
// others were loaded from.

#include <filesystem>
#include <string>
#include <string_view>

namespace zor::os {

// The modules of this system that look for one another.
enum class OwnModule {
  Host,     // the engine with the APO objects
  Control,  // the control panel's module
  Tech,     // the tech module with the signal processing
};

// The file name this platform gives a module: "velapo64.dll" on Windows,
// "libvelapo.so" on Linux. The bitness in the Windows names is the build's,
// which is always 64 (see veltech_abi.h); a 64-bit process never runs under
// WOW64, so nothing at run time could ask for another. Any thread.
std::u16string OwnModuleFileName(OwnModule module);

// The absolute path of the module of that file name loaded in this process,
// compared as the platform compares file names (regardless of case on
// Windows, exactly on Linux); empty when no such module is loaded. Any thread.
std::filesystem::path LoadedModulePath(std::u16string_view fileName);

}  // namespace zor::os
