// A capture object in a process of its own, for the capture link's tests.
// Times written to <marker> are the monotonic clock's, which all processes
// share.
//   lock <marker> <holdMs>    lock one; write "locked <ns>"; after holdMs
//                             (0: never) unlock; stay until killed
//   link <root> <config> <marker> <silentBlocks> <toneBlocks> <amplitude>
//                             lock one on a fresh capture endpoint of the
//                             store at <root> with <config>, which it must
//                             bind; switch the pipe link on and lock
//                             again, as an embedder would; play
//                             silence, then a 1 kHz stereo sine in 10 ms
//                             blocks in real time, writing "tone <ns>"
//                             just before its first block
//   probe <name>              (POSIX, as root) drop root, look for a mutex
// Exit code: 0 done (probe: present), 1 probe: absent, 2 bad arguments,
// 3 failure, 4 the object did not bind its capture endpoint.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "apo/czor_lfx_capture_apo_universal.h"
#include "apo/zoraporegproperties.h"
#include "engine/zorengineemulator.h"
#include "engine/zorengineendpoint.h"
#include "platform/text.h"
#include "registrytestarea.h"
#include "system/zorapoendpointtools.h"
#include "system/zorfindmutex.h"

#if !defined(_WIN32)
#include <unistd.h>
#endif

namespace {

using Clock = std::chrono::steady_clock;

void Mark(const std::string& path, const char* what) {
  std::ofstream(path, std::ios::app)
      << what << ' ' << std::chrono::nanoseconds(Clock::now().time_since_epoch()).count() << '\n';
}

// A stereo capture stream at 48 kHz in 480-frame blocks, locked.
struct Capture {
  explicit Capture(std::u16string guid = {}) : engine(Stream(std::move(guid))) {}
  static ZOREngineEmulator::Stream Stream(std::u16string guid) {
    ZOREngineEmulator::Stream stream;
    stream.endpointGuid = std::move(guid);
    stream.renderEndpoint = false;
    stream.newerBlock = false;  // the capture class takes the older block only
    return stream;
  }
  bool Lock() {
    return engine.Create(ZORAPOCaptureClass().regProperties->clsid) == S_OK && engine.Initialize() == S_OK &&
           engine.NegotiateFormats() == S_OK && engine.Lock() == S_OK;
  }
  ZOREngineEmulator engine;
};

int Link(const std::vector<std::string>& args) {
  velapo::test::UseRegistryRoot(args[1]);
  const GUID id{0x11C40000u, 0x2222, 0x4333, {0x84, 0x44, 0, 0, 0, 0, uint8_t(Clock::now().time_since_epoch().count()), 1}};
  const std::u16string guid = zor::com::GuidText(id);
  ZOREngineEndpoint endpoint(guid, args[2], false);
  Capture capture(guid);
  if (!endpoint.IsValid() || !capture.Lock()) return 3;
  auto* object = dynamic_cast<CZOR_LFX_Capture_APO_Universal*>(capture.engine.Object());
  if (object == nullptr) return 3;
  // The object binds itself to its capture endpoint and that endpoint's
  // file, wherever the system lists the endpoint. Wine's device list knows
  // nothing of the store's endpoints: there an embedder binds the manager.
  std::vector<ZORAPOEndpointInfo> listed;
  ZORAPOEndpointTools().GetCaptureEndpoints(listed);
  const bool known = std::any_of(listed.begin(), listed.end(), [&](const ZORAPOEndpointInfo& e) {
    return IsEqualGUID(e.GetEndpointGuid().Guid(), id) != 0;
  });
  ZORComPtr<IMMDevice> device;
  ZORAPOEndpointInfo info;
  if (!known && (FAILED(capture.engine.Devices().Item(0, device.Put())) || !info.SetDevice(device.Get(), false) ||
                 !object->Manager().SetEndpointInfo(info, 0))) {
    return 3;
  }
  if (!object->Manager().IsBound() || object->Manager().GetEndpointInfo().IsRender() ||
      object->Manager().GetEndpointInfo().GetConfigPath() != std::filesystem::path(args[2]).u16string()) {
    return 4;
  }
  object->Manager().SetPipeLink(true, false);
  if (capture.engine.Unlock() != S_OK || capture.engine.Lock() != S_OK || !object->Manager().GetPipe().IsRunning()) {
    return 3;
  }
  const int silent = std::stoi(args[4]), blocks = silent + std::stoi(args[5]);
  const double amplitude = std::stod(args[6]);
  std::vector<float> block(480 * 2);
  Clock::time_point next = Clock::now();
  for (int i = 0; i < blocks; ++i) {
    for (size_t f = 0; f < 480; ++f) {
      const double t = double((i - silent) * 480 + long(f)) / 48000.0;
      block[2 * f] = block[2 * f + 1] = i < silent ? 0.0f : float(amplitude * std::sin(2 * 3.14159265358979 * 1000 * t));
    }
    if (i == silent) Mark(args[3], "tone");
    capture.engine.Process(block, BUFFER_VALID);
    std::this_thread::sleep_until(next += std::chrono::milliseconds(10));
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() == 3 && args[0] == "lock") {
    Capture capture;
    if (!capture.Lock()) return 3;
    Mark(args[1], "locked");
    const int holdMs = std::stoi(args[2]);
    if (holdMs != 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(holdMs));
      if (capture.engine.Unlock() != S_OK) return 3;
      Mark(args[1], "unlocked");
    }
    for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
  }
  if (args.size() == 7 && args[0] == "link") return Link(args);
#if !defined(_WIN32)
  if (args.size() == 2 && args[0] == "probe") {
    if (::setgid(65534) != 0 || ::setuid(65534) != 0) return 3;  // nobody
    ZORFindMutex finder;
    finder.Configure(zor::os::Utf8ToUtf16(args[1]));
    return finder.IsPresent() ? 0 : 1;
  }
#endif
  return 2;
}
