// The other process of the capture link's tests (marks are "<what> <monotonic ns>" lines):
//   lock <marker> <holdMs>   lock a capture object, mark "locked", unlock after holdMs and end
//   link <root> <config> <marker> <silentBlocks> <toneBlocks> <amplitude>  a capture object on
//        a fresh endpoint with the pipe linked plays silence, then (mark "tone") a 1 kHz sine
//   read <root> <ready file> <packets>  listen, touch the ready file, need the numbered stream
//   foreign <root> <ready file>  (POSIX, root) as nobody: write to the test's reader, then listen
//   probe <name>             (POSIX, root) as nobody: look for a mutex
// Exit code: 0 done (probe: present; foreign: nothing read), 1 absent or a stream fault,
// 2 bad arguments, 3 failure, 4 the endpoint not bound or no pipe instance.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "apo/czor_lfx_capture_apo_universal.h"
#include "apo/zoraporegproperties.h"
#include "engine/zorengineemulator.h"
#include "engine/zorengineendpoint.h"
#include "platform/text.h"
#include "registrytestarea.h"
#include "sidechannel/zornamedpipeaudio.h"
#include "system/zorapoendpointtools.h"
#include "system/zorfindmutex.h"

#if !defined(_WIN32)
#include <unistd.h>
#endif

namespace {

using Clock = std::chrono::steady_clock;
constexpr char16_t kTestPipeName[] = u"\\\\.\\pipe\\velapo-test-capture";

void Mark(const std::string& path, const char* what) {
  std::ofstream(path, std::ios::app)
      << what << ' ' << std::chrono::nanoseconds(Clock::now().time_since_epoch()).count() << '\n';
}

// A stereo 48 kHz capture stream in 480-frame blocks, locked (the capture class takes the older block).
struct Capture {
  explicit Capture(std::u16string guid = {})
      : engine({.endpointGuid = std::move(guid), .renderEndpoint = false, .newerBlock = false}) {}
  bool Lock() {
    return engine.Create(ZORAPOCaptureClass().regProperties->clsid) == S_OK && engine.Initialize() == S_OK &&
           engine.NegotiateFormats() == S_OK && engine.Lock() == S_OK;
  }
  ZOREngineEmulator engine;
};

int Link(const std::vector<std::string>& args) {
  const GUID id{0x11C40000u, 0x2222, 0x4333, {0x84, 0x44, 0, 0, 0, 0, uint8_t(Clock::now().time_since_epoch().count()), 1}};
  const std::u16string guid = zor::com::GuidText(id);
  ZOREngineEndpoint endpoint(guid, args[2], false);
  Capture capture(guid);
  if (!endpoint.IsValid() || !capture.Lock()) return 3;
  auto* object = dynamic_cast<CZOR_LFX_Capture_APO_Universal*>(capture.engine.Object());
  if (object == nullptr) return 3;
  // The object binds itself to its endpoint wherever the system lists it; Wine's device list
  // knows nothing of the store's endpoints, so there an embedder binds the manager.
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

// A reader that touches the ready file (renamed into place) once it listens; null if refused.
std::unique_ptr<ZORNamedPipeAudio> Listen(const std::string& readyFile) {
  auto pipe = std::make_unique<ZORNamedPipeAudio>();
  pipe->Init(kTestPipeName, 0, kZORPipeRoleReader);
  if (!pipe->StartThread()) return nullptr;
  while (!pipe->IsListening()) {
    if (!pipe->IsThreadRunning()) return nullptr;  // the instance was refused
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  std::ofstream(readyFile + ".part") << "listening\n";
  std::filesystem::rename(readyFile + ".part", readyFile);
  return pipe;
}

// Needs `packets` whole packets in sequence within 20 s, from wherever a packet starts.
int Read(const std::string& readyFile, uint64_t packets) {
  const std::unique_ptr<ZORNamedPipeAudio> pipe = Listen(readyFile);
  if (!pipe) return 4;
  const auto deadline = Clock::now() + std::chrono::seconds(20);
  float samples[kZORPipePacketSamples];
  for (uint64_t taken = 0, next = 0; taken < packets * kZORPipePacketSamples;) {
    if (Clock::now() > deadline) return 1;
    const uint32_t read = pipe->ReadSamples(samples, kZORPipePacketSamples);
    if (read == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    for (uint32_t i = 0; i < read; ++i, ++taken) {
      const auto value = static_cast<uint64_t>(samples[i]);
      if (taken == 0 ? value % kZORPipePacketSamples != 0 : value != next) return 1;
      next = value + 1;
    }
  }
  return 0;
}

#if !defined(_WIN32)
bool BecomeNobody() { return ::setgid(65534) == 0 && ::setuid(65534) == 0; }

int Foreign(const std::string& readyFile) {
  if (!BecomeNobody()) return 3;
  zor::os::PipeClient client;
  const ZORPipePacket packet;  // one the reader would store: count 0 at rate 0
  if (client.Open(kTestPipeName, 0)) client.Write(&packet, kZORPipePacketBytes, 100);
  std::this_thread::sleep_for(std::chrono::milliseconds(200));  // time to read it, were it let in
  const std::unique_ptr<ZORNamedPipeAudio> pipe = Listen(readyFile);
  if (!pipe) return 4;
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  return pipe->GetStoredPackets() == 0 ? 0 : 1;
}
#endif

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() == 3 && args[0] == "lock") {
    Capture capture;
    if (!capture.Lock()) return 3;
    Mark(args[1], "locked");
    const int holdMs = std::stoi(args[2]);  // 0: until killed
    std::this_thread::sleep_for(holdMs == 0 ? std::chrono::hours(24) : std::chrono::milliseconds(holdMs));
    return capture.engine.Unlock() == S_OK ? 0 : 3;
  }
  if (args.size() >= 3) velapo::test::UseRegistryRoot(args[1]);
  if (args.size() == 7 && args[0] == "link") return Link(args);
  if (args.size() == 4 && args[0] == "read") return Read(args[2], std::stoul(args[3]));
#if !defined(_WIN32)
  if (args.size() == 3 && args[0] == "foreign") return Foreign(args[2]);
  if (args.size() == 2 && args[0] == "probe") {
    if (!BecomeNobody()) return 3;
    ZORFindMutex finder;
    finder.Configure(zor::os::Utf8ToUtf16(args[1]));
    return finder.IsPresent() ? 0 : 1;
  }
#endif
  return 2;
}
