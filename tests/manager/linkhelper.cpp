// The capture side of the link tests, in a process of its own:
//   velapo_link_helper <root> <config> <marker> <silentBlocks> <toneBlocks> <amplitude>
// A capture object is locked, its manager bound to a fresh capture endpoint
// of the store at <root> whose configuration is <config>, the pipe link
// switched on and the object locked again, as an embedder would. It plays
// <silentBlocks> silent blocks and then <toneBlocks> blocks of a 1 kHz
// stereo sine of <amplitude> on both channels, one 10 ms block at a time in
// real time, and writes "tone <ns>" (the monotonic clock, which all
// processes share) to <marker> just before the first tone block.
// Exit code: 0 played, 2 bad arguments, 3 failure, 4 the device list does
// not hold the store's endpoints (Wine lists its own only).
#include <chrono>
#include <cmath>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "apo/czor_lfx_capture_apo_universal.h"
#include "apo/zoraporegproperties.h"
#include "engine/zorengineemulator.h"
#include "engine/zorengineendpoint.h"
#include "platform/com.h"
#include "registrytestarea.h"

namespace {

constexpr uint32_t kFrames = 480;
constexpr double kRate = 48000.0;

std::u16string HelperEndpointGuid() {
  const auto now = static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  GUID guid{0x11C40000u, 0x2222, 0x4333, {0x84, 0x44, 0, 0, 0, 0, 0, 0}};
  for (int i = 0; i < 6; ++i) guid.Data4[2 + i] = static_cast<uint8_t>(now >> (8 * i));
  return zor::com::GuidText(guid);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 7) return 2;
  velapo::test::UseRegistryRoot(argv[1]);
  const std::string marker = argv[3];
  const int silentBlocks = std::stoi(argv[4]);
  const int toneBlocks = std::stoi(argv[5]);
  const double amplitude = std::stod(argv[6]);

  ZOREngineEndpoint endpoint(HelperEndpointGuid(), argv[2], false);
  if (!endpoint.IsValid()) return 3;
  ZOREngineEmulator::Stream stream;
  stream.endpointGuid = endpoint.Guid();
  stream.renderEndpoint = false;
  stream.newerBlock = false;  // the capture class takes the older block only
  stream.inputChannels = stream.outputChannels = 2;
  stream.rate = static_cast<float>(kRate);
  stream.maxFrames = kFrames;
  ZOREngineEmulator engine(stream);
  if (engine.Create(ZORAPOCaptureClass().regProperties->clsid) != S_OK || engine.Initialize() != S_OK ||
      engine.NegotiateFormats() != S_OK || engine.Lock() != S_OK) {
    return 3;
  }
  auto* capture = dynamic_cast<CZOR_LFX_Capture_APO_Universal*>(engine.Object());
  if (capture == nullptr) return 3;
  // The engine's binding looks among render endpoints only, so a capture
  // object runs unbound; an embedder binds its manager to the capture
  // endpoint itself.
  ZORComPtr<IMMDevice> device;
  ZORAPOEndpointInfo info;
  if (FAILED(engine.Devices().Item(0, device.Put())) || !info.SetDevice(device.Get(), false)) return 4;
  if (!capture->Manager().SetEndpointInfo(info, 0)) return 3;
  capture->Manager().SetPipeLink(true, false);
  if (engine.Unlock() != S_OK || engine.Lock() != S_OK) return 3;
  if (!capture->Manager().GetPipe().IsRunning()) return 3;

  std::vector<float> block(size_t{kFrames} * 2);
  auto next = std::chrono::steady_clock::now();
  for (int i = 0; i < silentBlocks + toneBlocks; ++i) {
    const bool tone = i >= silentBlocks;
    for (uint32_t f = 0; f < kFrames; ++f) {
      const double t = static_cast<double>(size_t(i - silentBlocks) * kFrames + f) / kRate;
      const float sample = tone ? static_cast<float>(amplitude * std::sin(2.0 * 3.14159265358979 * 1000.0 * t)) : 0.0f;
      block[2 * f] = block[2 * f + 1] = sample;
    }
    if (i == silentBlocks) {
      const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(
                          std::chrono::steady_clock::now().time_since_epoch())
                          .count();
      std::ofstream(marker) << "tone " << ns << '\n';
    }
    engine.Process(block, BUFFER_VALID);
    next += std::chrono::milliseconds(10);
    std::this_thread::sleep_until(next);
  }
  return 0;
}
