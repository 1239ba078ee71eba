#include "module/czor_apomodule.h"

#include "apo/zoraporegproperties.h"
#include "module/zoraporegistrykeys.h"
#include "module/zorregistrar.h"
#include "module/zorregistrarscript.h"

namespace {

// SELFREG_E_CLASS: a class's entries could not be made; stands for a
// script missing from the module or one that doesn't read.
constexpr HRESULT kScriptFailed = static_cast<HRESULT>(0x80040201u);

// Sets the neutral locale for as long as it lives and always puts the
// caller's back.
class NeutralLocale {
 public:
  explicit NeutralLocale(const ZORAPOModuleSetup& setup) : m_setup(setup) {
    if (m_setup.swapThreadLocale) m_saved = m_setup.swapThreadLocale(CZOR_APOModule::kNeutralLocale);
  }
  ~NeutralLocale() {
    if (m_setup.swapThreadLocale) m_setup.swapThreadLocale(m_saved);
  }
  NeutralLocale(const NeutralLocale&) = delete;
  NeutralLocale& operator=(const NeutralLocale&) = delete;

 private:
  const ZORAPOModuleSetup& m_setup;
  uint32_t m_saved = 0;
};

HRESULT RunScript(const ZORAPOModuleSetup& setup, uint16_t id, bool doRegister) {
  std::string bytes;
  if (!setup.loadScript || !setup.loadScript(id, bytes)) return kScriptFailed;
  const ZORRegistrarReplacement replacements[] = {
      {u"MODULE", setup.modulePath},
      {u"APPID", kZORAPOModuleAppId},
  };
  ZORRegistrarScript script;
  if (!script.ParseUtf8(bytes, replacements)) return kScriptFailed;
  const ZORRegistrar registrar(setup.classesRootPath, u"");
  return doRegister ? registrar.Register(script) : registrar.Unregister(script);
}

void Keep(HRESULT& first, HRESULT hr) {
  if (SUCCEEDED(first) && FAILED(hr)) first = hr;
}

}  // namespace

CZOR_APOModule::CZOR_APOModule(ZORAPOClassTable table) : m_table(table) {
  const auto records = RegistrationOrder();
  for (uint32_t i = 0; i < kClassCount; ++i) m_factories[i].Bind(this, records[i]->clsid);
}

std::array<const APO_REG_PROPERTIES*, CZOR_APOModule::kClassCount> CZOR_APOModule::RegistrationOrder() {
  const std::span<const ZORAPOClassInfo> classes = ZORAPOClasses();
  const ZORAPOClassInfo& capture = ZORAPOCaptureClass();
  return {classes[kZORLocationPreBlue].regProperties, capture.regProperties,
          classes[kZORLocationSFX].regProperties,     classes[kZORLocationMFX].regProperties,
          classes[kZORLocationEFX].regProperties,     classes[kZORLocationOSFX].regProperties,
          classes[kZORLocationOMFX].regProperties};
}

HRESULT CZOR_APOModule::GetClassObject(REFCLSID clsid, REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  for (ZORAPOClassFactory& factory : m_factories) {
    if (IsEqualGUID(factory.Clsid(), clsid)) return factory.QueryInterface(riid, ppv);
  }
  return CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT CZOR_APOModule::CanUnloadNow() const {
  const uint32_t live = m_table.liveObjects != nullptr ? m_table.liveObjects() : 0;
  return LockCount() == 0 && live == 0 ? S_OK : S_FALSE;
}

ULONG CZOR_APOModule::Lock() { return m_lockCount.fetch_add(1, std::memory_order_acq_rel) + 1; }

ULONG CZOR_APOModule::Unlock() {
  ULONG count = m_lockCount.load(std::memory_order_acquire);
  while (count > 0 && !m_lockCount.compare_exchange_weak(count, count - 1, std::memory_order_acq_rel)) {
  }
  return count > 0 ? count - 1 : ULONG(-1);
}

HRESULT CZOR_APOModule::RegisterServer(const ZORAPOModuleSetup& setup) const {
  const auto records = RegistrationOrder();
  HRESULT hr = ZORAPORegistryKeys(setup.classesRootPath).WriteAll(records);
  if (FAILED(hr)) return hr;
  NeutralLocale locale(setup);
  if (FAILED(hr = RunScript(setup, kAppIdScript, true))) return hr;
  for (const uint16_t id : kClassScripts) {
    if (FAILED(hr = RunScript(setup, id, true))) return hr;
  }
  return setup.typeLibrary ? setup.typeLibrary(true) : S_OK;
}

HRESULT CZOR_APOModule::UnregisterServer(const ZORAPOModuleSetup& setup) const {
  // The effect classes' own keys stay: the next registration replaces them.
  NeutralLocale locale(setup);
  HRESULT first = S_OK;
  for (const uint16_t id : kClassScripts) Keep(first, RunScript(setup, id, false));
  if (setup.typeLibrary) Keep(first, setup.typeLibrary(false));
  Keep(first, RunScript(setup, kAppIdScript, false));
  return first;
}
