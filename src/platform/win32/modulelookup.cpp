#include "platform/modulelookup.h"

#include <windows.h>

#include <string>

#include "platform/dynamiclibrary.h"
#include "platform/text.h"

namespace zor::os {

std::u16string OwnModuleFileName(OwnModule module, bool is64Bit) {
  switch (module) {
    case OwnModule::Host:
      return is64Bit ? u"velapo64.dll" : u"velapo32.dll";
    case OwnModule::Control:
      return is64Bit ? u"velcnt64.dll" : u"velcnt32.dll";
    case OwnModule::Tech:
      return is64Bit ? u"veltech64.dll" : u"veltech32.dll";
  }
  return {};
}

std::filesystem::path LoadedModulePath(std::u16string_view fileName) {
  if (fileName.empty()) return {};
  const std::u16string terminated(fileName);
  // The handle of a module is its base address, which lies inside it.
  const HMODULE module = ::GetModuleHandleW(AsWinChars(terminated.c_str()));
  return module != nullptr ? ModulePathOf(reinterpret_cast<const void*>(module))
                           : std::filesystem::path();
}

}  // namespace zor::os
