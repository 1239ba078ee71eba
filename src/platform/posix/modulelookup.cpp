#include "platform/modulelookup.h"

#include <link.h>

#include <cstring>
#include <string>

#include "platform/dynamiclibrary.h"
#include "platform/text.h"

namespace zor::os {
namespace {

struct Search {
  std::string fileName;
  const void* addressInModule = nullptr;
};

// The loader lists modules by the path they were loaded by; the file part of
// that path is what Windows would call the module name.
int Visit(dl_phdr_info* info, size_t, void* context) {
  Search& search = *static_cast<Search*>(context);
  if (info->dlpi_name == nullptr || info->dlpi_name[0] == '\0') return 0;
  const char* slash = std::strrchr(info->dlpi_name, '/');
  const char* fileName = slash != nullptr ? slash + 1 : info->dlpi_name;
  if (search.fileName != fileName) return 0;
  // An address inside the module's first loaded segment, which ModulePathOf
  // turns into the module's resolved path.
  for (ElfW(Half) i = 0; i < info->dlpi_phnum; ++i) {
    if (info->dlpi_phdr[i].p_type == PT_LOAD) {
      search.addressInModule =
          reinterpret_cast<const void*>(info->dlpi_addr + info->dlpi_phdr[i].p_vaddr);
      return 1;
    }
  }
  return 0;
}

}  // namespace

std::u16string OwnModuleFileName(OwnModule module) {
  switch (module) {
    case OwnModule::Host:
      return u"libvelapo.so";
    case OwnModule::Control:
      return u"libvelcnt.so";
    case OwnModule::Tech:
      return u"libveltech.so";
  }
  return {};
}

std::filesystem::path LoadedModulePath(std::u16string_view fileName) {
  Search search;
  search.fileName = Utf16ToUtf8(fileName);
  if (search.fileName.empty()) return {};
  ::dl_iterate_phdr(Visit, &search);
  return search.addressInModule != nullptr ? ModulePathOf(search.addressInModule)
                                           : std::filesystem::path();
}

}  // namespace zor::os
