// The other process of the device monitor's test: adds, changes and removes
// a capture endpoint in the store as a control panel would.
//   capturedevicehelper <root> add <guid>          creates Capture\{guid}, active
//   capturedevicehelper <root> state <guid> <n>    writes its DeviceState
//   capturedevicehelper <root> remove <guid>       deletes the endpoint key
// Exit code 0 on success, 2 for bad arguments, 3 when the change failed.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/registry.h"
#include "platform/text.h"
#include "registrytestarea.h"

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: capturedevicehelper <root> add|state|remove <guid> [state]\n");
    return 2;
  }
  velapo::test::UseRegistryRoot(argv[1]);
  const std::string command = argv[2];
  const std::u16string flow = u"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\Capture";
  const std::u16string guid = zor::os::Utf8ToUtf16(argv[3]);
  zor::os::RegKey key;
  if (command == "add") {
    return zor::os::RegKey::Create(flow + u"\\" + guid, zor::os::kKeyAllAccess, key) == zor::os::RegStatus::Ok &&
                   key.WriteDword(u"DeviceState", 1) == zor::os::RegStatus::Ok
               ? 0
               : 3;
  }
  if (command == "state" && argc == 5) {
    return zor::os::RegKey::Open(flow + u"\\" + guid, zor::os::kKeySetValue, key) == zor::os::RegStatus::Ok &&
                   key.WriteDword(u"DeviceState", static_cast<uint32_t>(std::atoi(argv[4]))) ==
                       zor::os::RegStatus::Ok
               ? 0
               : 3;
  }
  if (command == "remove") {
    return zor::os::RegKey::Open(flow, zor::os::kKeyAllAccess, key) == zor::os::RegStatus::Ok &&
                   key.DeleteSubKeyTree(guid) == zor::os::RegStatus::Ok
               ? 0
               : 3;
  }
  return 2;
}
