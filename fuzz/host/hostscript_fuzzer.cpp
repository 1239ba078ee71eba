// velapo-host's script parser on text of any bytes: it either takes the
// whole script or names the line it refused, and what it took describes
// itself in a form it reads back as the same action.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "hostscript.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  HostScript script;
  std::string error;
  if (!script.Parse(text, error)) {
    if (error.rfind("line ", 0) != 0 || !script.Actions().empty()) std::abort();
    return 0;
  }
  uint64_t last = 0;
  for (const ScriptAction& action : script.Actions()) {
    if (action.timeUs < last || action.timeUs > HostScript::kMaxTimeUs || action.line == 0) std::abort();
    last = action.timeUs;
    HostScript again;
    if (!again.Parse("0 " + action.Describe(), error) || again.Actions().size() != 1 ||
        again.Actions()[0].Describe() != action.Describe() || again.Actions()[0].kind != action.kind) {
      std::abort();
    }
  }
  return 0;
}
