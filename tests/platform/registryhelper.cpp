// A second process for the settings store's tests.
//   registryhelper write <root> <key> <name> <text>
//       writes one REG_SZ value and ends.
//   registryhelper churn <root> <key> <writer> <count>
//       creates <key> (several churns may race to create it), then rewrites
//       the values "Shared" and "Own<writer>" with self-checking patterns,
//       <count> times, or until killed when <count> is 0.
// Exit code 0 on success, 2 for bad arguments, 3 when a store call fails.
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/registry.h"
#include "platform/text.h"
#include "registrypattern.h"
#include "registrytestarea.h"

using zor::os::RegKey;
using zor::os::RegStatus;
using zor::os::RegType;

namespace {

int Fail(const char* what, RegStatus status) {
  std::fprintf(stderr, "registryhelper: %s failed: %s\n", what, zor::os::RegStatusName(status));
  return 3;
}

int Write(const std::string& key, const std::string& name, const std::string& text) {
  RegKey opened;
  if (const RegStatus status = RegKey::Create(zor::os::Utf8ToUtf16(key), zor::os::kKeyAllAccess, opened);
      status != RegStatus::Ok) {
    return Fail("create", status);
  }
  const RegStatus status = opened.WriteValue(zor::os::Utf8ToUtf16(name), RegType::Sz,
                                             velapo::test::Utf16Bytes(zor::os::Utf8ToUtf16(text)));
  return status == RegStatus::Ok ? 0 : Fail("write", status);
}

int Churn(const std::string& key, uint32_t writer, uint32_t count) {
  RegKey opened;
  if (const RegStatus status = RegKey::Create(zor::os::Utf8ToUtf16(key), zor::os::kKeyAllAccess, opened);
      status != RegStatus::Ok) {
    return Fail("create", status);
  }
  const std::u16string own = u"Own" + zor::os::NarrowToWide(std::to_string(writer));
  for (uint32_t counter = 0; count == 0 || counter < count; ++counter) {
    const std::vector<uint8_t> pattern = velapo::test::MakePattern(writer, counter);
    for (const std::u16string_view name : {std::u16string_view(own), std::u16string_view(u"Shared")}) {
      if (const RegStatus status = opened.WriteValue(name, RegType::Binary, pattern);
          status != RegStatus::Ok) {
        return Fail("write", status);
      }
    }
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() == 5 && args[0] == "write") {
    velapo::test::UseRegistryRoot(args[1]);
    return Write(args[2], args[3], args[4]);
  }
  if (args.size() == 5 && args[0] == "churn") {
    velapo::test::UseRegistryRoot(args[1]);
    return Churn(args[2], static_cast<uint32_t>(std::stoul(args[3])),
                 static_cast<uint32_t>(std::stoul(args[4])));
  }
  std::fprintf(stderr, "usage: registryhelper write|churn <root> <key> ...\n");
  return 2;
}
