#include "module/zorregistrar.h"

#include <vector>

using zor::os::RegKey;
using zor::os::RegStatus;

namespace {

HRESULT Result(RegStatus status) { return ZORHresultFromRegStatus(status); }

bool Gone(RegStatus status) { return status == RegStatus::Ok || status == RegStatus::NotFound; }

RegStatus WriteValue(const RegKey& key, const ZORRegistrarValue& value) {
  if (value.kind == ZORRegistrarValueKind::Dword) return key.WriteDword(value.name, value.number);
  std::vector<uint8_t> bytes;
  bytes.reserve((value.text.size() + 1) * 2);
  for (const char16_t unit : value.text) {
    bytes.push_back(static_cast<uint8_t>(unit));
    bytes.push_back(static_cast<uint8_t>(unit >> 8));
  }
  bytes.push_back(0);
  bytes.push_back(0);
  return key.WriteValue(value.name, zor::os::RegType::Sz, bytes);
}

HRESULT RegisterKey(const RegKey& parent, const ZORRegistrarKey& item) {
  if (item.deleteOnRegister || item.forceRemove) {
    const RegStatus status = parent.DeleteSubKeyTree(item.name);
    if (!Gone(status)) return Result(status);
    if (item.deleteOnRegister) return S_OK;
  }
  RegKey key;
  RegStatus status = parent.CreateSubKey(item.name, zor::os::kKeyAllAccess, key);
  if (status != RegStatus::Ok) return Result(status);
  if (item.hasDefault && (status = WriteValue(key, item.defaultValue)) != RegStatus::Ok) return Result(status);
  for (const ZORRegistrarValue& value : item.values) {
    if ((status = WriteValue(key, value)) != RegStatus::Ok) return Result(status);
  }
  for (const ZORRegistrarKey& subkey : item.subkeys) {
    const HRESULT hr = RegisterKey(key, subkey);
    if (FAILED(hr)) return hr;
  }
  return S_OK;
}

void Keep(HRESULT& first, HRESULT hr) {
  if (SUCCEEDED(first) && FAILED(hr)) first = hr;
}

HRESULT UnregisterKey(const RegKey& parent, const ZORRegistrarKey& item) {
  if (item.deleteOnRegister) return S_OK;
  if (!item.noRemove) {
    const RegStatus status = parent.DeleteSubKeyTree(item.name);
    return Gone(status) ? S_OK : Result(status);
  }
  // A key others share: take out only what the script put in it.
  RegKey key;
  const RegStatus status = parent.OpenSubKey(item.name, zor::os::kKeyAllAccess, key);
  if (status == RegStatus::NotFound) return S_OK;
  if (status != RegStatus::Ok) return Result(status);
  HRESULT first = S_OK;
  for (const ZORRegistrarValue& value : item.values) {
    const RegStatus deleted = key.DeleteValue(value.name);
    if (!Gone(deleted)) Keep(first, Result(deleted));
  }
  for (const ZORRegistrarKey& subkey : item.subkeys) Keep(first, UnregisterKey(key, subkey));
  return first;
}

}  // namespace

HRESULT ZORHresultFromRegStatus(RegStatus status) {
  if (status == RegStatus::Ok) return S_OK;
  return static_cast<HRESULT>(0x80070000u | (static_cast<uint32_t>(status) & 0xFFFFu));
}

const std::u16string& ZORRegistrar::RootPath(ZORRegistrarRoot root) const {
  return root == ZORRegistrarRoot::ClassesRoot ? m_classesRootPath : m_localMachinePath;
}

HRESULT ZORRegistrar::Register(const ZORRegistrarScript& script) const {
  for (const ZORRegistrarRootBlock& block : script.Roots()) {
    RegKey root;
    const RegStatus status = RegKey::Create(RootPath(block.root), zor::os::kKeyAllAccess, root);
    if (status != RegStatus::Ok) return Result(status);
    for (const ZORRegistrarKey& key : block.keys) {
      const HRESULT hr = RegisterKey(root, key);
      if (FAILED(hr)) return hr;
    }
  }
  return S_OK;
}

HRESULT ZORRegistrar::Unregister(const ZORRegistrarScript& script) const {
  HRESULT first = S_OK;
  for (const ZORRegistrarRootBlock& block : script.Roots()) {
    RegKey root;
    const RegStatus status = RegKey::Open(RootPath(block.root), zor::os::kKeyAllAccess, root);
    if (status == RegStatus::NotFound) continue;
    if (status != RegStatus::Ok) {
      Keep(first, Result(status));
      continue;
    }
    for (const ZORRegistrarKey& key : block.keys) Keep(first, UnregisterKey(root, key));
  }
  return first;
}
