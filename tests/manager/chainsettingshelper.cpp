// A control panel and a tuning tool in a process of their own:
//   chainsettingshelper <root> public <key> <mode> <speaker> <name> <value>  a mode's public value
//   chainsettingshelper <root> global <key> <name> <long>                    a global setting
//   chainsettingshelper <root> mode <key> <mode> <speaker>                   the user's mode
//   chainsettingshelper <root> tune <block> <mode> <speaker> <tuning mode> <name> <value>
//   chainsettingshelper <root> dword <key> <name> <number>                   the system-effects switch
// Exit code: 0 stored, 2 bad arguments, 3 store failure.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "config/zorapoglobalsettings.h"
#include "config/zorapomodeselector.h"
#include "config/zorapopublicsettings.h"
#include "platform/text.h"
#include "registrytestarea.h"
#include "system/zorapotunedsettings.h"

int main(int argc, char** argv) {
  const std::string command = argc > 2 ? argv[2] : "";
  const auto wide = [&](int index) { return zor::os::Utf8ToUtf16(argv[index]); };
  if (argc > 2) velapo::test::UseRegistryRoot(argv[1]);
  ZORAPOOperatingMode mode;
  ZORUTSValueList list;
  if (command == "public" && argc == 8) {
    mode.id = ZORAPOModeId(argv[4], argv[5]);
    mode.publicControls.Insert(ZORUTSValue(argv[6], "0"));
    ZORAPOPublicSettings settings;
    return settings.Init(wide(3), mode) && settings.WriteControl(ZORUTSValue(argv[6], argv[7])) ? 0 : 3;
  }
  if (command == "global" && argc == 6) {
    ZORAPOGlobalSettings settings;
    list.Insert(ZORUTSValue(argv[4], std::atoi(argv[5])));
    return settings.InitGlobal(wide(3), nullptr) && settings.WriteAll(list) ? 0 : 3;
  }
  if (command == "mode" && argc == 6) {
    ZORAPOModeSelector selector;
    return selector.Init(wide(3), ZORAPOModeId()) && selector.SetMode(ZORAPOModeId(argv[4], argv[5])) ? 0 : 3;
  }
  if (command == "tune" && argc == 9) {
    mode.id = ZORAPOModeId(argv[4], argv[5]);
    ZORAPOTunedSettings tuned;
    list.Insert(ZORUTSValue(zor::os::Utf16ToUtf8(ZORAPOTunedSettings::kTuningModeName), argv[6]));
    list.Insert(ZORUTSValue(argv[7], argv[8]));
    return tuned.OpenNamed(wide(3), mode, true) && tuned.WriteAll(list) ? 0 : 3;
  }
  zor::os::RegKey key;
  if (command == "dword" && argc == 6) {
    return zor::os::RegKey::Create(wide(3), zor::os::kKeyAllAccess, key) == zor::os::RegStatus::Ok &&
                   key.WriteDword(wide(4), static_cast<uint32_t>(std::atoi(argv[5]))) == zor::os::RegStatus::Ok
               ? 0
               : 3;
  }
  std::fprintf(stderr, "usage: chainsettingshelper <root> public|global|mode|tune|dword ...\n");
  return 2;
}
