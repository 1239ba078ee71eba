#include "moduleinstall.h"

#include <cstdio>
#include <vector>

namespace velapo::test {
namespace {

std::wstring ExecutableDirectory() {
  wchar_t buffer[MAX_PATH * 4];
  const DWORD length = ::GetModuleFileNameW(nullptr, buffer, MAX_PATH * 4);
  std::wstring path(buffer, length);
  return path.substr(0, path.find_last_of(L"\\/") + 1);
}

std::wstring Widen(const char* text) { return std::wstring(text, text + std::char_traits<char>::length(text)); }

}  // namespace

ModuleInstall::ModuleInstall() {
  wchar_t temp[MAX_PATH];
  ::GetTempPathW(MAX_PATH, temp);
  m_directory = std::wstring(temp) + L"velapo-module-" + std::to_wstring(::GetCurrentProcessId());
  ::CreateDirectoryW(m_directory.c_str(), nullptr);
  const std::wstring from = ExecutableDirectory();
  const std::wstring dll = m_directory + L"\\velapo64.dll";
  if (::CopyFileW((from + Widen(VELAPO_MODULE_DLL)).c_str(), dll.c_str(), FALSE) &&
      ::CopyFileW((from + Widen(VELAPO_TECH_DLL)).c_str(), (m_directory + L"\\veltech64.dll").c_str(), FALSE)) {
    m_dllPath = dll;
  }
}

ModuleInstall::~ModuleInstall() {
  ::DeleteFileW((m_directory + L"\\velapo64.dll").c_str());
  ::DeleteFileW((m_directory + L"\\veltech64.dll").c_str());
  ::RemoveDirectoryW(m_directory.c_str());
}

long ModuleInstall::RunRegsvr32(bool unregister) const {
  std::wstring command = L"regsvr32.exe /s " + std::wstring(unregister ? L"/u " : L"") + L"\"" + m_dllPath + L"\"";
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION process{};
  if (!::CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process)) {
    return -1;
  }
  ::WaitForSingleObject(process.hProcess, 60000);
  DWORD code = 0;
  ::GetExitCodeProcess(process.hProcess, &code);
  ::CloseHandle(process.hThread);
  ::CloseHandle(process.hProcess);
  return static_cast<long>(code);
}

bool ClassesKeyExists(const std::wstring& key) {
  HKEY handle = nullptr;
  if (::RegOpenKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, &handle) != ERROR_SUCCESS) return false;
  ::RegCloseKey(handle);
  return true;
}

std::wstring ClassesValue(const std::wstring& key, const std::wstring& name) {
  DWORD type = 0;
  std::vector<BYTE> data(2048);
  DWORD size = static_cast<DWORD>(data.size());
  if (::RegGetValueW(HKEY_CLASSES_ROOT, key.c_str(), name.empty() ? nullptr : name.c_str(),
                     RRF_RT_ANY | RRF_NOEXPAND, &type, data.data(), &size) != ERROR_SUCCESS) {
    return L"<missing>";
  }
  if (type == REG_DWORD && size == 4) {
    wchar_t text[32];
    std::swprintf(text, 32, L"dword:%08lx", *reinterpret_cast<const DWORD*>(data.data()));
    return text;
  }
  if (type != REG_SZ) return L"<type " + std::to_wstring(type) + L">";
  return std::wstring(reinterpret_cast<const wchar_t*>(data.data()));
}

}  // namespace velapo::test
