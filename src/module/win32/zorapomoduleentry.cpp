// Loading velapo64.dll: DllMain on process attach turns off thread
// notifications (the module keeps no per-thread state) and runs the load
// steps with the DLL's own path, never the executable's. Registration reads
// the scripts from the DLL's REGISTRY resources and registers the embedded
// type library through oleaut32, under the neutral thread locale.
#include <windows.h>
#include <oleauto.h>

#include <vector>

#include "module/zorapomodulemain.h"
#include "platform/text.h"

namespace {

HMODULE g_module = nullptr;

// The type library's id and version, as velapo_apo.idl declares them.
constexpr GUID kTypeLibraryId = {0x8D6935E1, 0xF1D5, 0x4C56, {0x89, 0x51, 0x3E, 0x24, 0x15, 0xFD, 0xD2, 0xAF}};

std::u16string OwnPath(HMODULE module) {
  std::vector<wchar_t> buffer(MAX_PATH);
  for (;;) {
    const DWORD length = ::GetModuleFileNameW(module, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length == 0) return {};
    if (length < buffer.size()) return std::u16string(zor::os::FromWinChars(buffer.data()), length);
    if (buffer.size() >= 32768) return {};
    buffer.resize(buffer.size() * 2);
  }
}

bool LoadScript(uint16_t id, std::string& bytes) {
  HRSRC found = ::FindResourceW(g_module, MAKEINTRESOURCEW(id), L"REGISTRY");
  if (found == nullptr) return false;
  HGLOBAL loaded = ::LoadResource(g_module, found);
  const DWORD size = ::SizeofResource(g_module, found);
  const void* data = loaded != nullptr ? ::LockResource(loaded) : nullptr;
  if (data == nullptr) return false;
  bytes.assign(static_cast<const char*>(data), size);
  return true;
}

HRESULT TypeLibrary(bool doRegister) {
  if (!doRegister) return ::UnRegisterTypeLib(kTypeLibraryId, 1, 0, LOCALE_NEUTRAL, SYS_WIN64);
  const std::u16string& path = ZORAPOModulePath();
  ITypeLib* library = nullptr;
  HRESULT hr = ::LoadTypeLibEx(zor::os::AsWinChars(path.c_str()), REGKIND_NONE, &library);
  if (FAILED(hr)) return hr;
  std::u16string mutablePath = path;
  hr = ::RegisterTypeLib(library, zor::os::AsWinChars(mutablePath.data()), nullptr);
  library->Release();
  return hr;
}

uint32_t SwapThreadLocale(uint32_t locale) {
  const LCID previous = ::GetThreadLocale();
  ::SetThreadLocale(locale);
  return previous;
}

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    g_module = instance;
    ::DisableThreadLibraryCalls(instance);
    ZORAPOModuleAttach(OwnPath(instance), true);
  }
  return TRUE;
}

ZORAPOModuleSetup ZORAPOLoadedModuleSetup() {
  ZORAPOModuleSetup setup;
  setup.modulePath = ZORAPOModulePath();
  setup.loadScript = LoadScript;
  setup.typeLibrary = TypeLibrary;
  setup.swapThreadLocale = SwapThreadLocale;
  return setup;
}
