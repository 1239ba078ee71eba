// A control panel in a process of its own: stores one public value of a mode.
//   chainsettingshelper <root> <settings key> <operating mode> <speaker type> <name> <value>
// Exit code: 0 stored, 2 bad arguments, 3 store failure.
#include <cstdio>

#include "config/zorapopublicsettings.h"
#include "platform/text.h"
#include "registrytestarea.h"

int main(int argc, char** argv) {
  if (argc != 7) {
    std::fprintf(stderr, "usage: chainsettingshelper <root> <key> <mode> <speaker> <name> <value>\n");
    return 2;
  }
  velapo::test::UseRegistryRoot(argv[1]);
  ZORAPOOperatingMode mode;
  mode.id = ZORAPOModeId(argv[3], argv[4]);
  mode.publicControls.Insert(ZORUTSValue(argv[5], "0"));
  ZORAPOPublicSettings settings;
  return settings.Init(zor::os::Utf8ToUtf16(argv[2]), mode) &&
                 settings.WriteControl(ZORUTSValue(argv[5], argv[6]))
             ? 0
             : 3;
}
