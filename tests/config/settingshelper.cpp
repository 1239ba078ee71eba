// settingshelper <root> <key path>: stores the mode Movie/Headphones and "SFX:Width" 3.5, then
// pings until the test writes "Ack". Exit code: 0, 2 bad arguments, 3 store failure, 6 no ack.
#include <cstdio>

#include "config/zorapomodeselector.h"
#include "config/zorapopublicsettings.h"
#include "platform/text.h"
#include "registrytestarea.h"
#include "settingstesting.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: settingshelper <root> <key path>\n");
    return 2;
  }
  velapo::test::UseRegistryRoot(argv[1]);
  const std::u16string keyPath = zor::os::Utf8ToUtf16(argv[2]);
  ZORAPOModeSelector selector;
  ZORAPOPublicSettings settings;
  zor::os::RegKey key;
  if (!selector.Init(keyPath, ZORAPOModeId()) ||
      !selector.SetMode(ZORAPOModeId("APO4-Movie", "APO4-Headphones")) ||
      !settings.Init(keyPath, velapo::test::MakeMusicMode()) ||
      !settings.WriteControl(ZORUTSValue("SFX:Width", "3.5")) ||
      zor::os::RegKey::Open(keyPath, zor::os::kKeyAllAccess, key) != zor::os::RegStatus::Ok) {
    return 3;
  }
  uint32_t ack = 0;
  return velapo::test::PingUntil(
             key, [&] { return key.ReadDword(u"Ack", ack) == zor::os::RegStatus::Ok; }, 300)
             ? 0
             : 6;
}
