// The settings store on Windows is the registry itself; this file only turns
// its handles, wide strings and error codes into the platform's types.
#include "platform/registry.h"

#include <windows.h>
#include <sddl.h>

#include <vector>

#include "platform/event.h"
#include "platform/text.h"

namespace zor::os {

struct RegKey::State {
  HKEY key = nullptr;
  uint32_t access = 0;
};

namespace {

RegStatus FromError(LSTATUS error) {
  switch (error) {
    case ERROR_SUCCESS:
      return RegStatus::Ok;
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
      return RegStatus::NotFound;
    case ERROR_ACCESS_DENIED:
      return RegStatus::AccessDenied;
    case ERROR_INVALID_HANDLE:
      return RegStatus::NotOpen;
    case ERROR_INVALID_DATA:
      return RegStatus::InvalidData;
    case ERROR_INVALID_PARAMETER:
    case ERROR_BAD_PATHNAME:
    case ERROR_FILENAME_EXCED_RANGE:
      return RegStatus::InvalidParameter;
    case ERROR_MORE_DATA:
      return RegStatus::MoreData;
    case ERROR_NO_MORE_ITEMS:
      return RegStatus::NoMoreItems;
    case ERROR_KEY_DELETED:
      return RegStatus::KeyDeleted;
    default:
      return RegStatus::IoFailed;
  }
}

// The registry takes terminated strings, so a name ends at its first NUL
// here as it does in the POSIX store.
std::wstring Terminated(std::u16string_view text) {
  const size_t nul = text.find(u'\0');
  if (nul != std::u16string_view::npos) text = text.substr(0, nul);
  return std::wstring(text.begin(), text.end());
}

RegStatus OpenOrCreate(HKEY parent, std::u16string_view path, uint32_t access, bool create,
                       RegKey::State& state, bool* created) {
  const std::wstring subKey = Terminated(path);
  HKEY key = nullptr;
  LSTATUS error = ERROR_SUCCESS;
  if (create) {
    DWORD disposition = 0;
    error = ::RegCreateKeyExW(parent, subKey.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, access,
                              nullptr, &key, &disposition);
    if (error == ERROR_SUCCESS && created != nullptr) *created = disposition == REG_CREATED_NEW_KEY;
  } else {
    error = ::RegOpenKeyExW(parent, subKey.c_str(), 0, access, &key);
  }
  if (error != ERROR_SUCCESS) return FromError(error);
  state.key = key;
  state.access = access;
  return RegStatus::Ok;
}

}  // namespace

RegKey::RegKey() = default;
RegKey::~RegKey() { Close(); }
RegKey::RegKey(RegKey&& other) noexcept = default;

RegKey& RegKey::operator=(RegKey&& other) noexcept {
  if (this != &other) {
    Close();
    m_state = std::move(other.m_state);
  }
  return *this;
}

RegStatus RegKey::Open(std::u16string_view path, uint32_t access, RegKey& key) {
  auto state = std::make_unique<State>();
  const RegStatus status = OpenOrCreate(HKEY_LOCAL_MACHINE, path, access, false, *state, nullptr);
  key.Close();
  if (status == RegStatus::Ok) key.m_state = std::move(state);
  return status;
}

RegStatus RegKey::Create(std::u16string_view path, uint32_t access, RegKey& key, bool* created) {
  auto state = std::make_unique<State>();
  const RegStatus status = OpenOrCreate(HKEY_LOCAL_MACHINE, path, access, true, *state, created);
  key.Close();
  if (status == RegStatus::Ok) key.m_state = std::move(state);
  return status;
}

RegStatus RegKey::OpenSubKey(std::u16string_view path, uint32_t access, RegKey& key) const {
  if (!m_state) return RegStatus::NotOpen;
  auto state = std::make_unique<State>();
  const RegStatus status = OpenOrCreate(m_state->key, path, access, false, *state, nullptr);
  key.Close();
  if (status == RegStatus::Ok) key.m_state = std::move(state);
  return status;
}

RegStatus RegKey::CreateSubKey(std::u16string_view path, uint32_t access, RegKey& key,
                               bool* created) const {
  if (!m_state) return RegStatus::NotOpen;
  auto state = std::make_unique<State>();
  const RegStatus status = OpenOrCreate(m_state->key, path, access, true, *state, created);
  key.Close();
  if (status == RegStatus::Ok) key.m_state = std::move(state);
  return status;
}

RegStatus RegKey::DeleteSubKeyTree(std::u16string_view path) const {
  if (!m_state) return RegStatus::NotOpen;
  const std::wstring subKey = Terminated(path);
  // RegDeleteTreeW with no subkey empties this key instead; both back ends
  // refuse it alike.
  if (subKey.empty() || subKey == L"\\") return RegStatus::InvalidParameter;
  return FromError(::RegDeleteTreeW(m_state->key, subKey.c_str()));
}

RegStatus RegKey::Duplicate(RegKey& copy) const {
  if (!m_state) return RegStatus::NotOpen;
  auto state = std::make_unique<State>();
  state->access = m_state->access;
  HANDLE duplicate = nullptr;
  const HANDLE process = ::GetCurrentProcess();
  if (::DuplicateHandle(process, m_state->key, process, &duplicate, 0, FALSE,
                        DUPLICATE_SAME_ACCESS)) {
    state->key = static_cast<HKEY>(duplicate);
  } else {
    // HKEY_LOCAL_MACHINE itself is a pseudo handle that DuplicateHandle does
    // not take; opening it again gives an equal handle.
    HKEY reopened = nullptr;
    const LSTATUS error = ::RegOpenKeyExW(m_state->key, nullptr, 0, m_state->access, &reopened);
    if (error != ERROR_SUCCESS) return FromError(error);
    state->key = reopened;
  }
  copy.Close();
  copy.m_state = std::move(state);
  return RegStatus::Ok;
}

void RegKey::Close() {
  if (!m_state) return;
  if (m_state->key != nullptr) ::RegCloseKey(m_state->key);
  m_state.reset();
}

bool RegKey::IsOpen() const { return m_state != nullptr; }

uint32_t RegKey::Access() const { return m_state ? m_state->access : 0; }

RegStatus RegKey::QueryValue(std::u16string_view name, RegType& type, uint32_t& size) const {
  if (!m_state) return RegStatus::NotOpen;
  const std::wstring valueName = Terminated(name);
  DWORD rawType = REG_NONE;
  DWORD rawSize = 0;
  const LSTATUS error =
      ::RegQueryValueExW(m_state->key, valueName.c_str(), nullptr, &rawType, nullptr, &rawSize);
  if (error != ERROR_SUCCESS) return FromError(error);
  type = static_cast<RegType>(rawType);
  size = rawSize;
  return RegStatus::Ok;
}

RegStatus RegKey::ReadValue(std::u16string_view name, RegType& type,
                            std::vector<uint8_t>& data) const {
  if (!m_state) return RegStatus::NotOpen;
  const std::wstring valueName = Terminated(name);
  // The value may grow between the size query and the read; ask again then.
  for (;;) {
    DWORD rawType = REG_NONE;
    DWORD rawSize = 0;
    LSTATUS error =
        ::RegQueryValueExW(m_state->key, valueName.c_str(), nullptr, &rawType, nullptr, &rawSize);
    if (error != ERROR_SUCCESS) return FromError(error);
    data.resize(rawSize);
    error = ::RegQueryValueExW(m_state->key, valueName.c_str(), nullptr, &rawType,
                               data.empty() ? nullptr : data.data(), &rawSize);
    if (error == ERROR_MORE_DATA) continue;
    if (error != ERROR_SUCCESS) return FromError(error);
    data.resize(rawSize);
    type = static_cast<RegType>(rawType);
    return RegStatus::Ok;
  }
}

RegStatus RegKey::WriteValue(std::u16string_view name, RegType type,
                             std::span<const uint8_t> data) const {
  if (!m_state) return RegStatus::NotOpen;
  if (data.size() > kMaxValueBytes) return RegStatus::InvalidParameter;
  const std::wstring valueName = Terminated(name);
  const DWORD size = static_cast<DWORD>(data.size());
  if (type == RegType::Sz || type == RegType::ExpandSz || type == RegType::MultiSz) {
    // For text whose last unit is not NUL, the registry looks at the unit
    // past the given size and stores it too when it is NUL. Stored bytes must
    // be the given ones, and memory past the caller's is not ours to read:
    // write from a copy that ends in a non-NUL unit.
    std::vector<uint8_t> copy(data.begin(), data.end());
    copy.insert(copy.end(), {0xFF, 0xFF});
    return FromError(::RegSetValueExW(m_state->key, valueName.c_str(), 0, static_cast<DWORD>(type),
                                      copy.data(), size));
  }
  return FromError(::RegSetValueExW(m_state->key, valueName.c_str(), 0, static_cast<DWORD>(type),
                                    data.data(), size));
}

RegStatus RegKey::DeleteValue(std::u16string_view name) const {
  if (!m_state) return RegStatus::NotOpen;
  const std::wstring valueName = Terminated(name);
  return FromError(::RegDeleteValueW(m_state->key, valueName.c_str()));
}

RegStatus RegKey::EnumValue(uint32_t index, std::u16string& name) {
  if (!m_state) return RegStatus::NotOpen;
  wchar_t buffer[kMaxValueNameUnits + 1];
  DWORD length = static_cast<DWORD>(kMaxValueNameUnits + 1);
  const LSTATUS error =
      ::RegEnumValueW(m_state->key, index, buffer, &length, nullptr, nullptr, nullptr, nullptr);
  if (error != ERROR_SUCCESS) return FromError(error);
  name.assign(FromWinChars(buffer), length);
  return RegStatus::Ok;
}

RegStatus RegKey::EnumSubKey(uint32_t index, std::u16string& name) {
  if (!m_state) return RegStatus::NotOpen;
  wchar_t buffer[kMaxKeyNameUnits + 1];
  DWORD length = static_cast<DWORD>(kMaxKeyNameUnits + 1);
  const LSTATUS error =
      ::RegEnumKeyExW(m_state->key, index, buffer, &length, nullptr, nullptr, nullptr, nullptr);
  if (error != ERROR_SUCCESS) return FromError(error);
  name.assign(FromWinChars(buffer), length);
  return RegStatus::Ok;
}

RegStatus RegKey::NotifyChange(bool watchSubtree, uint32_t filter, Event& event) {
  if (!m_state) return RegStatus::NotOpen;
  return FromError(::RegNotifyChangeKeyValue(m_state->key, watchSubtree ? TRUE : FALSE, filter,
                                             static_cast<HANDLE>(event.NativeHandle()), TRUE));
}

RegSecurityResult RegKey::SetSecurity(std::u16string_view descriptor) {
  RegSecurityResult result;
  const std::wstring text = Terminated(descriptor);
  PSECURITY_DESCRIPTOR converted = nullptr;
  if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1,
                                                              &converted, nullptr)) {
    result.conversionError = ::GetLastError();
    return result;
  }
  result.converted = true;
  result.status = m_state ? FromError(::RegSetKeySecurity(m_state->key, DACL_SECURITY_INFORMATION,
                                                          converted))
                          : RegStatus::NotOpen;
  ::LocalFree(converted);
  return result;
}

void SetRegistryRoot(std::string) {}
std::string RegistryRoot() { return std::string(); }
std::string DefaultRegistryRoot() { return std::string(); }

}  // namespace zor::os
