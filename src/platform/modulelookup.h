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

// The file name this platform gives a module: "velapo64.dll" or, for a
// 32-bit process, "velapo32.dll" on Windows; "libvelapo.so" on Linux, where
// the two builds live in different library directories and so share a name.
// Any thread.
std::u16string OwnModuleFileName(OwnModule module, bool is64Bit);

// The absolute path of the module of that file name loaded in this process,
// compared as the platform compares file names (regardless of case on
// Windows, exactly on Linux); empty when no such module is loaded. Any thread.
std::filesystem::path LoadedModulePath(std::u16string_view fileName);

}  // namespace zor::os
