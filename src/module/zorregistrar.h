#pragma once
// ZORRegistrar: runs a registration script against the settings store, to
// register (make every key and value it names) or to remove (take away what
// it made, leaving NoRemove keys in place).
//
// The roots of a script are paths under HKEY_LOCAL_MACHINE, so that the same
// code writes the real registry on Windows, where the machine's part of
// HKEY_CLASSES_ROOT is "Software\Classes", and the POSIX store, where tests
// point both roots at a private corner.
//
// Registration stops at the first failure and answers it; removal goes on
// past a failure, so that as much as can go does, and answers the first one.
// A key or value already gone counts as removed. Failures are the store's
// codes as HRESULTs (0x8007xxxx).

#include <string>

#include "module/zorregistrarscript.h"
#include "platform/com.h"
#include "platform/registry.h"

// The store's status as the HRESULT a Win32 error becomes; S_OK for Ok.
HRESULT ZORHresultFromRegStatus(zor::os::RegStatus status);

class ZORRegistrar {
 public:
  // The machine's classes under HKEY_LOCAL_MACHINE.
  static constexpr const char16_t* kClassesRootPath = u"Software\\Classes";

  ZORRegistrar() = default;
  ZORRegistrar(std::u16string classesRootPath, std::u16string localMachinePath)
      : m_classesRootPath(std::move(classesRootPath)), m_localMachinePath(std::move(localMachinePath)) {}

  HRESULT Register(const ZORRegistrarScript& script) const;
  HRESULT Unregister(const ZORRegistrarScript& script) const;

  const std::u16string& ClassesRootPath() const { return m_classesRootPath; }

 private:
  const std::u16string& RootPath(ZORRegistrarRoot root) const;

  std::u16string m_classesRootPath = kClassesRootPath;
  std::u16string m_localMachinePath;
};
