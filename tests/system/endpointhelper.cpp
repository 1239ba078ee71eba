// The other process of the endpoint notification tests: changes one
// endpoint the way a control panel would, through the same code.
//   endpointhelper <root> state <guid> <n>         writes DeviceState
//   endpointhelper <root> default <guid>           sets it as the default
//   endpointhelper <root> sysfx <guid> <0|1>       SetSysFxDisabled
//   endpointhelper <root> property <guid> <name>   writes a text property
//   endpointhelper <root> setting <guid> <x>       writes to its settings key
//   endpointhelper <root> peek <guid> <x>          opens Software\VEL\APO
//   endpointhelper <root> capture <guid> add|remove|<n>
//       creates the capture endpoint (active), deletes it, or writes its DeviceState
// Any of them may follow "as <uid> <gid>" after <root> to run as that user
// in that one group (the process must start as root).
// Exit code 0 on success, 2 for bad arguments, 3 when the change failed.
#include <grp.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/com.h"
#include "platform/registry.h"
#include "platform/text.h"
#include "registrytestarea.h"
#include "system/zorapoendpointtools.h"

int main(int argc, char** argv) {
  if (argc > 5 && std::string(argv[2]) == "as") {
    const gid_t group = static_cast<gid_t>(std::atoi(argv[4]));
    if (::setgroups(1, &group) != 0 || ::setgid(group) != 0 || ::setuid(static_cast<uid_t>(std::atoi(argv[3]))) != 0) {
      return 3;
    }
    argv[4] = argv[1];
    argv += 3;
    argc -= 3;
  }
  if (argc != 5 && !(argc == 4 && std::string(argv[2]) == "default")) {
    std::fprintf(stderr, "usage: endpointhelper <root> state|default|sysfx|property|capture <guid> [arg]\n");
    return 2;
  }
  velapo::test::UseRegistryRoot(argv[1]);
  const std::string command = argv[2];
  const std::u16string guid = zor::os::Utf8ToUtf16(argv[3]);
  const std::u16string key = std::u16string(ZORAPOEndpointInfo::kMMDevicesAudioPath) + u"Render\\" + guid;
  const std::u16string id = u"{0.0.0.00000000}." + guid;
  zor::os::RegKey opened;
  const std::u16string settings = std::u16string(ZORAPOEndpointInfo::kDefaultSettingsRoot) + u"\\" + guid;
  if (command == "setting") {
    return zor::os::RegKey::Open(settings, zor::os::kKeySetValue, opened) == zor::os::RegStatus::Ok &&
                   opened.WriteDword(u"VelApoPanel", 1) == zor::os::RegStatus::Ok
               ? 0
               : 3;
  }
  if (command == "capture") {
    const std::u16string flow = std::u16string(ZORAPOEndpointInfo::kMMDevicesAudioPath) + u"Capture";
    const std::string change = argv[4];
    if (change == "remove") {
      return zor::os::RegKey::Open(flow, zor::os::kKeyAllAccess, opened) == zor::os::RegStatus::Ok &&
                     opened.DeleteSubKeyTree(guid) == zor::os::RegStatus::Ok
                 ? 0
                 : 3;
    }
    const uint32_t state = change == "add" ? 1u : static_cast<uint32_t>(std::atoi(argv[4]));
    return zor::os::RegKey::Create(flow + u"\\" + guid, zor::os::kKeyAllAccess, opened) == zor::os::RegStatus::Ok &&
                   opened.WriteDword(u"DeviceState", state) == zor::os::RegStatus::Ok
               ? 0
               : 3;
  }
  if (command == "peek") {
    const std::u16string root(ZORAPOEndpointInfo::kDefaultSettingsRoot);
    return zor::os::RegKey::Open(root, zor::os::kKeyQueryValue, opened) == zor::os::RegStatus::Ok ? 0 : 3;
  }
  ZORComPtr<IMMDeviceEnumerator> enumerator;
  ZORComPtr<IMMDevice> device;
  if (FAILED(CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                              enumerator.PutVoid())) ||
      FAILED(enumerator->GetDevice(zor::com::ToComText(id.c_str()), device.Put()))) {
    return 3;
  }
  ZORAPOEndpointInfo info(device.Get(), true);
  if (command == "state") {
    return zor::os::RegKey::Open(key, zor::os::kKeySetValue, opened) == zor::os::RegStatus::Ok &&
                   opened.WriteDword(u"DeviceState", static_cast<uint32_t>(std::atoi(argv[4]))) ==
                       zor::os::RegStatus::Ok
               ? 0
               : 3;
  }
  if (command == "default") return ZORAPOEndpointTools().SetDefaultEndpoint(info) ? 0 : 3;
  if (command == "sysfx") return info.SetSysFxDisabled(std::string(argv[4]) == "1") ? 0 : 3;
  if (command == "property") {
    const std::u16string text = u"x";
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.c_str());
    return zor::os::RegKey::Open(key + u"\\FxProperties", zor::os::kKeySetValue, opened) == zor::os::RegStatus::Ok &&
                   opened.WriteValue(zor::os::Utf8ToUtf16(argv[4]), zor::os::RegType::Sz, {bytes, 4}) ==
                       zor::os::RegStatus::Ok
               ? 0
               : 3;
  }
  return 2;
}
