// The other process of the endpoint tests: changes the store the way a
// control panel or the engine's account would, through the same code.
//   endpointhelper <root> [as <uid> <gid>] <command> ...
//   set <key> <name> <n>     writes a DWORD into an existing key
//   create <key> <name> <n>  the same, creating the key first
//   remove <key>             deletes the key and all below it
//   peek <key>               opens the key for reading
//   sysfx <device id> 0|1    refreshes the endpoint, then SetSysFxDisabled
//   default <device id>      sets the endpoint as the default
// "as" runs the command as that user in that one group (the process must start as root).
// Exit code 0 on success, 2 for bad arguments, 3 when the change failed.
#include <grp.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/com.h"
#include "platform/registry.h"
#include "platform/text.h"
#include "registrytestarea.h"
#include "system/zorapoendpointtools.h"

using zor::os::RegKey;

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() > 3 && args[1] == "as") {
    const gid_t group = static_cast<gid_t>(std::stoul(args[3]));
    if (::setgroups(1, &group) != 0 || ::setgid(group) != 0 || ::setuid(static_cast<uid_t>(std::stoul(args[2]))) != 0) {
      return 3;
    }
    args.erase(args.begin() + 1, args.begin() + 4);
  }
  if (args.size() < 3) return 2;
  velapo::test::UseRegistryRoot(args[0]);
  const std::string& command = args[1];
  const std::u16string target = zor::os::Utf8ToUtf16(args[2]);
  const auto ok = [](zor::os::RegStatus status) { return status == zor::os::RegStatus::Ok; };
  RegKey key;
  if (command == "peek") return ok(RegKey::Open(target, zor::os::kKeyQueryValue, key)) ? 0 : 3;
  if (command == "remove") {
    const size_t slash = target.rfind(u'\\');
    return ok(RegKey::Open(target.substr(0, slash), zor::os::kKeyAllAccess, key)) &&
                   ok(key.DeleteSubKeyTree(target.substr(slash + 1)))
               ? 0
               : 3;
  }
  if ((command == "set" || command == "create") && args.size() == 5) {
    const zor::os::RegStatus opened = command == "set" ? RegKey::Open(target, zor::os::kKeySetValue, key)
                                                       : RegKey::Create(target, zor::os::kKeyAllAccess, key);
    return ok(opened) && ok(key.WriteDword(zor::os::Utf8ToUtf16(args[3]), static_cast<uint32_t>(std::stoul(args[4]))))
               ? 0
               : 3;
  }
  ZORComPtr<IMMDeviceEnumerator> enumerator;
  ZORComPtr<IMMDevice> device;
  if (FAILED(CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                              enumerator.PutVoid())) ||
      FAILED(enumerator->GetDevice(zor::com::ToComText(target.c_str()), device.Put()))) {
    return 3;
  }
  ZORAPOEndpointInfo info(device.Get(), true);
  if (command == "default") return ZORAPOEndpointTools().SetDefaultEndpoint(info) ? 0 : 3;
  if (command == "sysfx" && args.size() == 4) return info.SetSysFxDisabled(args[3] == "1") ? 0 : 3;
  return 2;
}
