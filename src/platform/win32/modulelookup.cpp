#include "platform/modulelookup.h"

#include <windows.h>

#include <string>

#include "platform/dynamiclibrary.h"
#include "platform/text.h"

namespace zor::os {

static_assert(sizeof(void*) == 8, "the module names are those of a 64-bit build");

std::u16string OwnModuleFileName(OwnModule module) {
  switch (module) {
    case OwnModule::Host:
      return u"velapo64.dll";
    case OwnModule::Control:
      return u"velcnt64.dll";
    case OwnModule::Tech:
      return u"veltech64.dll";
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
