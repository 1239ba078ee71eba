// The other process of the mutex discovery tests.
//   capture <marker> <holdMs>  lock a capture object, write "locked <ns>" to
//                              <marker>; after holdMs (0: never) unlock and
//                              append "unlocked <ns>"; stay until killed
//   probe <name>               (POSIX, started as root) drop to an account
//                              without privileges and look for the mutex
// Times are the monotonic clock's, which all processes share.
// Exit code of probe: 0 present, 1 absent, 3 failure; 2 bad arguments.
#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "apo/zoraporegproperties.h"
#include "engine/zorengineemulator.h"
#include "platform/text.h"
#include "system/zorfindmutex.h"

#if !defined(_WIN32)
#include <unistd.h>
#endif

namespace {

[[noreturn]] void StayUntilKilled() {
  for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
}

void Mark(const std::string& path, const char* what) {
  const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(
                      std::chrono::steady_clock::now().time_since_epoch())
                      .count();
  std::ofstream(path, std::ios::app) << what << ' ' << ns << '\n';
}

int Capture(const std::string& marker, int holdMs) {
  ZOREngineEmulator::Stream stream;
  stream.inputChannels = stream.outputChannels = 1;
  stream.renderEndpoint = false;
  stream.newerBlock = false;
  ZOREngineEmulator engine(stream);
  if (engine.Create(ZORAPOCaptureClass().regProperties->clsid) != S_OK || engine.Initialize() != S_OK ||
      engine.Lock() != S_OK) {
    return 3;
  }
  Mark(marker, "locked");
  if (holdMs == 0) StayUntilKilled();
  std::this_thread::sleep_for(std::chrono::milliseconds(holdMs));
  if (engine.Unlock() != S_OK) return 3;
  Mark(marker, "unlocked");
  StayUntilKilled();
}

int Probe(const std::string& name) {
#if defined(_WIN32)
  (void)name;
  return 2;
#else
  constexpr gid_t kNobody = 65534;
  if (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0 || ::geteuid() == 0) return 3;
  ZORFindMutex finder;
  finder.Configure(zor::os::Utf8ToUtf16(name));
  return finder.IsPresent() ? 0 : 1;
#endif
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() == 3 && args[0] == "capture") return Capture(args[1], std::stoi(args[2]));
  if (args.size() == 2 && args[0] == "probe") return Probe(args[1]);
  return 2;
}
