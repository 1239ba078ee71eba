// The capture pipe: how long the audio thread holds the ring's lock for one
// packet, how long a packet takes from the writer's ring to the reader's,
// and how many packets a real-time stream loses. Reader and writer run in
// this process, over the real pipe of a private store root.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/registry.h"
#include "sidechannel/zornamedpipeaudio.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr char16_t kBenchPipe[] = u"\\\\.\\pipe\\velapo-bench-capture";

// A reader and a writer connected over the pipe.
struct Link {
  ZORNamedPipeAudio reader;
  ZORNamedPipeAudio writer;
  bool Open() {
    reader.Init(kBenchPipe, 0, kZORPipeRoleReader);
    writer.Init(kBenchPipe, 16000, kZORPipeRoleWriter);
    if (!reader.StartThread() || !writer.StartThread()) return false;
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    while (!reader.IsListening()) {
      if (Clock::now() > deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
  }
};

double Percentile(std::vector<double> values, double fraction) {
  if (values.empty()) return 0.0;
  const auto at = static_cast<size_t>(fraction * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(at), values.end());
  return values[at];
}

// One packet in and out of the ring: two lock holds, each a 480-sample copy.
void BM_RingLockOnePacket(benchmark::State& state) {
  ZORNamedPipeAudio pipe;
  pipe.Init(kBenchPipe, 16000, kZORPipeRoleWriter);
  std::vector<float> samples(kZORPipePacketSamples, 0.5f);
  for (auto _ : state) {
    benchmark::DoNotOptimize(pipe.WriteSamples(samples.data(), kZORPipePacketSamples));
    benchmark::DoNotOptimize(pipe.ReadSamples(samples.data(), kZORPipePacketSamples));
  }
  state.SetItemsProcessed(state.iterations() * 2);  // lock holds
}
BENCHMARK(BM_RingLockOnePacket);

// From WriteSamples on the capture side until the packet is in the render
// side's ring, one packet at a time; the argument is how many readers that
// never read hold instances of the pipe beside it.
void BM_PipeDelay(benchmark::State& state) {
  zor::os::Event completion{zor::os::EventReset::Manual, false};
  std::vector<std::unique_ptr<zor::os::PipeServer>> stalled;
  for (int64_t i = 0; i < state.range(0); ++i) {
    stalled.push_back(std::make_unique<zor::os::PipeServer>());
    if (!stalled.back()->Create(kBenchPipe, kZORPipePacketBytes, completion)) {
      state.SkipWithError("no instance for a stalled reader");
      return;
    }
  }
  Link link;
  if (!link.Open()) {
    state.SkipWithError("the pipe did not open");
    return;
  }
  std::vector<float> samples(kZORPipePacketSamples, 0.25f);
  std::vector<float> sink(kZORPipeRingSamples);
  std::vector<double> delaysUs;
  for (auto _ : state) {
    const uint64_t before = link.reader.GetStoredPackets();
    const auto start = Clock::now();
    link.writer.WriteSamples(samples.data(), kZORPipePacketSamples);
    while (link.reader.GetStoredPackets() == before) {
      if (Clock::now() - start > std::chrono::seconds(2)) {
        state.SkipWithError("a packet was lost");
        return;
      }
    }
    const std::chrono::duration<double, std::micro> delay = Clock::now() - start;
    state.SetIterationTime(delay.count() / 1e6);
    delaysUs.push_back(delay.count());
    link.reader.ReadSamples(sink.data(), kZORPipeRingSamples);
  }
  state.counters["median_us"] = Percentile(delaysUs, 0.5);
  state.counters["p99_us"] = Percentile(delaysUs, 0.99);
}
BENCHMARK(BM_PipeDelay)->Arg(0)->Arg(3)->UseManualTime()->Iterations(2000)->Unit(benchmark::kMicrosecond);

// A real-time stream, 480 samples every 30 ms for the given seconds, with
// the render side's audio thread taking 10 ms blocks.
void BM_PacketsLost(benchmark::State& state) {
  const auto seconds = static_cast<int>(state.range(0));
  for (auto _ : state) {
    Link link;
    if (!link.Open()) {
      state.SkipWithError("the pipe did not open");
      return;
    }
    std::atomic<bool> done{false};
    std::thread render([&] {
      float block[160];
      while (!done) {
        link.reader.ReadSamples(block, 160);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      }
    });
    std::vector<float> samples(kZORPipePacketSamples, 0.25f);
    const uint64_t packets = static_cast<uint64_t>(seconds) * 1000 / 30;
    auto next = Clock::now();
    for (uint64_t k = 0; k < packets; ++k) {
      link.writer.WriteSamples(samples.data(), kZORPipePacketSamples);
      next += std::chrono::milliseconds(30);
      std::this_thread::sleep_until(next);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    done = true;
    render.join();
    state.counters["sent"] = static_cast<double>(packets);
    state.counters["lost"] = static_cast<double>(packets - link.reader.GetStoredPackets());
    state.counters["dropped"] = static_cast<double>(link.reader.GetDroppedPackets());
  }
}
BENCHMARK(BM_PacketsLost)->Arg(60)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

int main(int argc, char** argv) {
  // A private store root, so the benchmark's pipe meets nobody else's.
  const std::filesystem::path root =
      std::filesystem::temp_directory_path() / ("velapo-pipe-bench-" + std::to_string(::getpid()));
  std::filesystem::create_directories(root);
  zor::os::SetRegistryRoot(root.string());
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::filesystem::remove_all(root);
  return 0;
}
