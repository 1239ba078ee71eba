#pragma once
// CZOR_APOModule: the module object behind the four exports. It holds the
// module's lock count, one class factory per served class, and the table
// that makes the objects; it registers and removes the module's entries.
//
// The module serves exactly the classes of its class table's records, the
// seven effect classes. Registration also writes entries for classes it
// doesn't serve (a property page, and two ids that older scripts carry):
// those answer CLASS_E_CLASSNOTAVAILABLE, as any unknown id does.
//
// Threads: the class factories and the lock count may be used from any
// thread; registration runs in a setup process, one call at a time.

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "module/zorapoclassfactory.h"
#include "platform/apotypes.h"
#include "platform/com.h"

// What makes the objects: the effect classes' own creation entry, and the
// count of their objects alive, which keeps the module loaded.
struct ZORAPOClassTable {
  // Makes an object of `clsid` and hands out its `riid`, as a factory's
  // CreateInstance does without an outer object.
  HRESULT (*create)(REFCLSID clsid, REFIID riid, void** ppv) = nullptr;
  uint32_t (*liveObjects)() = nullptr;
};

// What registration needs of the place the module runs in. The platform
// fills it for the loaded module; tests fill it with their own.
struct ZORAPOModuleSetup {
  std::u16string modulePath;
  // The classes root under HKEY_LOCAL_MACHINE.
  std::u16string classesRootPath = u"Software\\Classes";
  // The bytes of the registration script kept as resource `id`; false when
  // the module holds none.
  std::function<bool(uint16_t id, std::string& bytes)> loadScript;
  // Registers (true) or removes (false) the type library.
  std::function<HRESULT(bool)> typeLibrary;
  // Sets the thread's locale and answers the one it replaces.
  std::function<uint32_t(uint32_t)> swapThreadLocale;
};

class CZOR_APOModule {
 public:
  static constexpr uint32_t kClassCount = 7;
  // Resources: the AppID, then the class map in registration order.
  static constexpr uint16_t kAppIdScript = 101;
  static constexpr std::array<uint16_t, 8> kClassScripts = {102, 103, 104, 106, 107, 108, 113, 114};
  // The neutral locale the type library and scripts are registered under.
  static constexpr uint32_t kNeutralLocale = 2048;

  explicit CZOR_APOModule(ZORAPOClassTable table);
  CZOR_APOModule(const CZOR_APOModule&) = delete;
  CZOR_APOModule& operator=(const CZOR_APOModule&) = delete;

  // DllGetClassObject.
  HRESULT GetClassObject(REFCLSID clsid, REFIID riid, void** ppv);
  // DllCanUnloadNow: S_OK when nothing holds the module, else S_FALSE.
  HRESULT CanUnloadNow() const;
  // DllRegisterServer and DllUnregisterServer.
  HRESULT RegisterServer(const ZORAPOModuleSetup& setup) const;
  HRESULT UnregisterServer(const ZORAPOModuleSetup& setup) const;

  // The records in registration order: LFX, capture, SFX, MFX, EFX, OSFX, OMFX.
  static std::array<const APO_REG_PROPERTIES*, kClassCount> RegistrationOrder();

  // Locks by factories and LockServer. Unlock refuses to go below zero.
  ULONG Lock();
  ULONG Unlock();
  ULONG LockCount() const { return m_lockCount.load(std::memory_order_acquire); }
  const ZORAPOClassTable& Table() const { return m_table; }

 private:
  HRESULT RunScripts(const ZORAPOModuleSetup& setup, bool doRegister) const;

  ZORAPOClassTable m_table;
  std::array<ZORAPOClassFactory, kClassCount> m_factories;
  std::atomic<ULONG> m_lockCount{0};
};

// The module's AppID, which %APPID% stands for in the scripts.
inline constexpr const char16_t* kZORAPOModuleAppId = u"{553C48B2-BA6B-412B-9F8D-2B62B1B912AA}";
