// The instance limit as a fresh process sees it:
//   instancelimithelper <store root>
// makes a first effect object, which reads the limit, and exits with the
// limit; 100 if a value written after that first object changed it.
#include <string>

#include "apo/czor_lfx_apo_universal.h"
#include "apo/zorapoinstancelimit.h"
#include "platform/registry.h"
#include "registrytestarea.h"

int main(int argc, char** argv) {
  if (argc != 2) return 101;
  velapo::test::UseRegistryRoot(argv[1]);
  (new CVEL_SFX_APO())->Release();
  const uint32_t limit = ZORAPOInstanceLimit::Get();
  zor::os::RegKey key;
  if (zor::os::RegKey::Create(u"Software\\VEL\\VELX", zor::os::kKeyAllAccess, key) != zor::os::RegStatus::Ok ||
      key.WriteDword(u"BypassCount", limit == 3 ? 4 : 3) != zor::os::RegStatus::Ok) {
    return 102;
  }
  return ZORAPOInstanceLimit::Get() == limit ? static_cast<int>(limit) : 100;
}
