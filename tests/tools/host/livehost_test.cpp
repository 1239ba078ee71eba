// velapo-host live: its bridge alone, under stages swapped as fast as can be, then the program on
// a jackd of the test's own (dummy driver, 48 kHz, 1024 frames: PipeWire's default quantum; at 256
// a test machine missed periods), fed and captured by this test's client while velapo-ctl steers.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <numeric>
#include <thread>

#include "allocationmeter.h"
#include "jackclient.h"
#include "liveengine.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// Doubles every sample, writes at most `written` frames, and tells whether it was used once taken away.
class DoublingStage final : public IHostStage {
 public:
  DoublingStage(uint32_t channels, uint32_t written) : m_channels(channels), m_written(written) {}
  const char* Name() const override { return "doubling"; }
  bool Start(HostEndpoint&, uint32_t, HostFormat&, std::string&) override { return true; }
  uint32_t Process(const float* input, float* output, uint32_t frames, bool) override {
    if (withdrawn.load()) usedAfterWithdrawal = true;
    for (size_t i = 0; i < size_t(frames) * m_channels; ++i) output[i] = 2 * input[i];
    return std::min(frames, m_written);
  }
  bool TakeSwitch() override { return false; }
  int64_t Latency() const override { return 0; }
  std::vector<std::string> Effects() const override { return {}; }
  std::string ActiveChain() const override { return {}; }
  void Stop() override {}
  std::atomic<bool> withdrawn{false}, usedAfterWithdrawal{false};

 private:
  const uint32_t m_channels, m_written;
};

struct Shape {
  uint32_t channels, capacity, frames, written;
  bool processes;  // false: the stage cannot take such a period, which passes through
};

class LiveEngineShapes : public ::testing::TestWithParam<Shape> {};

INSTANTIATE_TEST_SUITE_P(Shapes, LiveEngineShapes,
                         ::testing::Values(Shape{2, 256, 256, UINT32_MAX, true}, Shape{6, 512, 300, UINT32_MAX, true},
                                           Shape{8, 64, 1, UINT32_MAX, true},
                                           Shape{2, 256, 256, 100, true},            // fewer frames written
                                           Shape{2, 256, 512, UINT32_MAX, false}));  // longer than the stage takes

// Stages swapped as fast as can be under a callback that never stops: each period brings every
// channel back in its port, doubled or passed through (no stage between swaps), silent where
// the stage wrote nothing; no stage is used once Withdraw has handed it back; nothing allocates.
TEST_P(LiveEngineShapes, EveryChannelComesBackInItsPortWhileStagesSwap) {
  const Shape shape = GetParam();
  LiveEngine engine(shape.channels);
  std::atomic<bool> running{true};
  std::atomic<uint64_t> allocations{0}, wrong{0}, periods{0};
  std::thread callback([&] {
    std::vector<float> in(size_t(shape.channels) * shape.frames), out(in.size());  // the ports, one after another
    std::iota(in.begin(), in.end(), 1.0f);
    std::vector<const float*> inputs(shape.channels);
    std::vector<float*> outputs(shape.channels);
    for (size_t c = 0; c < shape.channels; ++c) inputs[c] = &in[c * shape.frames];
    for (size_t c = 0; c < shape.channels; ++c) outputs[c] = &out[c * shape.frames];
    while (running.load()) {
      std::fill(out.begin(), out.end(), -1.0f);
      const uint64_t before = AllocationsOnThisThread();
      engine.Process(inputs.data(), outputs.data(), shape.frames);
      allocations += AllocationsOnThisThread() - before;
      const float gain = out[0];  // 1: passed through; 2: through the stage
      const uint32_t valid = gain == 2 ? std::min(shape.frames, shape.written) : shape.frames;
      for (size_t i = 0; i < out.size(); ++i) {
        wrong += (gain != 1 && gain != 2) || out[i] != (i % shape.frames < valid ? gain * in[i] : 0.0f);
      }
      ++periods;
    }
  });
  for (int round = 0; round < 200; ++round) {
    auto stage = std::make_unique<DoublingStage>(shape.channels, shape.written);
    engine.Install(stage.get(), shape.capacity + round % 3);
    const uint64_t installedAt = periods.load();
    while (periods.load() < installedAt + 2) std::this_thread::yield();  // a whole period with the stage in
    IHostStage* withdrawn = nullptr;
    ASSERT_TRUE(engine.Withdraw(withdrawn, 1s));
    stage->withdrawn = true;
    std::this_thread::sleep_for(20us);
    EXPECT_FALSE(stage->usedAfterWithdrawal.load()) << "round " << round;
  }
  running = false;
  callback.join();
  EXPECT_EQ(wrong.load(), 0u);
  EXPECT_EQ(allocations.load(), 0u);
  EXPECT_EQ(engine.Measures().processedPeriods > 0, shape.processes);
}

constexpr uint32_t kRate = 48000;
constexpr double kToneHz = 500.0;
constexpr float kToneLevel = 0.25f;
constexpr const char* kGuid = "{5E1A0000-0000-4000-8000-000000002424}";

std::string ReadText(const fs::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Waits up to 30 s (a loaded machine is slow to start a client) for `text` in the file.
bool WaitForText(const fs::path& path, const std::string& text) {
  for (int i = 0; i < 600; ++i, std::this_thread::sleep_for(50ms)) {
    if (ReadText(path).find(text) != std::string::npos) return true;
  }
  return false;
}

int Shell(const std::string& command) {
  const int status = std::system((command + " >/dev/null").c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A program run by the shell, its output in `dir`/`name`.out and .err; killed if left running.
struct Child {
  pid_t pid = -1;
  void Spawn(const std::string& command, const fs::path& dir, const std::string& name) {
    const std::string line = "exec " + command + " >" + (dir / name).string() + ".out 2>" + (dir / name).string() + ".err";
    const char* argv[] = {"sh", "-c", line.c_str(), nullptr};
    posix_spawnp(&pid, "sh", nullptr, nullptr, const_cast<char* const*>(argv), environ);
  }
  // The exit code; -1 for a signal or no end within 30 seconds.
  int Wait() {
    for (int i = 0; i < 3000 && pid > 0; ++i, std::this_thread::sleep_for(10ms)) {
      int status = 0;
      if (waitpid(pid, &status, WNOHANG) != pid) continue;
      pid = -1;
      return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    return -1;
  }
  ~Child() {
    if (pid <= 0) return;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
};

// The second client: a sine into velapo's inputs, its left output captured into a buffer sized beforehand.
struct ToneClient final : IJackListener {
  void OnProcess(const float* const* inputs, float* const* outputs, uint32_t frames) override {
    // A cycle this late without a report makes velapo flush a stale stream: the machine's doing too.
    const auto now = std::chrono::steady_clock::now();
    if (lastCall.time_since_epoch().count() != 0 && now - lastCall > 100ms) ++missed;
    lastCall = now;
    const uint64_t at = captured.load(std::memory_order_relaxed);
    for (uint32_t f = 0; f < frames; ++f) {
      outputs[0][f] = outputs[1][f] = kToneLevel * float(std::sin(2 * M_PI * kToneHz * double(at + f) / kRate));
    }
    if (at + frames > capture.size()) return;
    std::copy_n(inputs[0], frames, capture.begin() + at);
    captured.store(at + frames);
  }
  void OnBufferSize(uint32_t) override {}
  void OnSampleRate(uint32_t) override {}
  void OnXrun() override { ++missed; }
  void OnShutdown(const std::string&) override {}
  // False when the server stops calling this client for 20 s (it drops a client it finds too slow).
  bool Play(double seconds) {
    const uint64_t until = captured.load() + uint64_t(seconds * kRate);
    for (int i = 0; i < 4000 && captured.load() < until; ++i) std::this_thread::sleep_for(5ms);
    return captured.load() >= until;
  }

  std::vector<float> capture = std::vector<float>(64 * kRate);  // slow steering leaves room
  std::atomic<uint64_t> captured{0};
  std::atomic<uint32_t> missed{0};  // periods the server missed: reported, or seen as a stalled cycle
  std::chrono::steady_clock::time_point lastCall{};
};

// One run (tone, -6 dB, mode Movie, processing off and on, 2048 frames, Ctrl-C) checked step by step,
// with a host started before the server and one that sees it go; real-time figures belong to `--stats`.
TEST(LiveHost, ARunFollowsItsSteeringWithoutGapsOrAllocationsAndEndsInOrder) {
  const fs::path dir = fs::temp_directory_path() / "velapo-live-test";  // left for a look after a failure
  const std::string store = (dir / "store").string(), host = VELAPO_HOST_EXE;
  const std::string ctl = std::string(VELAPO_CTL_EXE) + " --store " + store + " -e " + kGuid + " ";
  fs::remove_all(dir);
  fs::create_directories(store);
  // A fixed name of the test's own: JACK takes a dead server's slot in its registry back only for the same name.
  setenv("JACK_DEFAULT_SERVER", "velapo-test-live", 1);
  EXPECT_EQ(Shell(host + " live 2>" + (dir / "lonely.err").string()), 3);
  EXPECT_NE(ReadText(dir / "lonely.err").find("no JACK server is running"), std::string::npos);
  Child jackd, live, orphan;
  jackd.Spawn("jackd -n velapo-test-live -d dummy -r 48000 -p 1024", dir, "jackd");
  if (Shell("jack_wait -w -t 5 2>/dev/null") != 0) GTEST_SKIP() << "no JACK server: " << ReadText(dir / "jackd.err");
  ASSERT_EQ(Shell(ctl + "endpoints add " + kGuid + " --config " VELAPO_EXAMPLES_DIR "/laptop.xml"), 0);
  live.Spawn(host + " live --location MFX --name velapo-live --store " + store + " --endpoint " + kGuid +
                 " --stats " + (dir / "stats.json").string(), dir, "live");
  ASSERT_TRUE(WaitForText(dir / "live.out", "Ctrl-C ends it")) << ReadText(dir / "live.err");
  ToneClient tone;
  JackClient toneClient;
  std::string error;
  ASSERT_TRUE(toneClient.Open("velapo-tone", 2, tone, error) && toneClient.Activate(error)) << error;
  ASSERT_EQ(Shell("jack_connect velapo-live:out_1 velapo-tone:in_1 && jack_connect velapo-tone:out_1 velapo-live:in_1"
                  " && jack_connect velapo-tone:out_2 velapo-live:in_2"), 0);
  enum Step { kGain, kMode, kOff, kOn, kPeriod, kEnd };
  const std::string steps[] = {ctl + "settings set MFX-Volume:Gain-Level -600", ctl + "mode set Movie",
                               ctl + "settings global \"APO4-Process Enable\" 0",
                               ctl + "settings global \"APO4-Process Enable\" 1", "jack_bufsize 2048"};
  uint64_t at[kEnd + 1]{};
  ASSERT_TRUE(tone.Play(1.5)) << "the server stopped calling the test's client";
  uint32_t missedWhileSteered = tone.missed;  // connecting clients may cost the server a period
  for (int step = kGain; step < kEnd; ++step) {
    at[step] = tone.captured;
    if (step == kPeriod) missedWhileSteered = tone.missed - missedWhileSteered;
    EXPECT_EQ(Shell(steps[step]), 0) << steps[step];
    ASSERT_TRUE(tone.Play(1.5)) << "the server stopped calling the test's client after " << steps[step];
  }
  kill(live.pid, SIGINT);
  EXPECT_EQ(live.Wait(), 0) << ReadText(dir / "live.err");
  toneClient.Close();
  at[kEnd] = tone.captured;
  const std::vector<float>& x = tone.capture;

  orphan.Spawn(host + " live", dir, "orphan");
  ASSERT_TRUE(WaitForText(dir / "orphan.out", "Ctrl-C ends it")) << ReadText(dir / "orphan.err");
  kill(jackd.pid, SIGTERM);
  EXPECT_EQ(orphan.Wait(), 3);
  EXPECT_NE(ReadText(dir / "orphan.err").find("the JACK server went away"), std::string::npos);
  jackd.Wait();

  const nlohmann::json stats = nlohmann::json::parse(std::ifstream(dir / "stats.json"));  // throws when not written
  EXPECT_EQ(Shell(ctl + "settings get MFX-Volume:Gain-Level --mode Music"), 0) << "the store is readable";
  EXPECT_EQ(stats["dropped_log_lines"], 0);
  EXPECT_EQ(stats["allocations"]["allocating_periods"].get<uint64_t>(), 0u) << stats.dump();

  // The level over the half second before `end`, against the tone as fed.
  const auto level = [&](uint64_t end) {
    const double power = std::inner_product(&x[end - kRate / 2], &x[end], &x[end - kRate / 2], 0.0) / (kRate / 2);
    return 10 * std::log10(power / (kToneLevel * kToneLevel / 2));
  };
  EXPECT_NEAR(level(at[kMode]) - level(at[kGain]), -6.0, 0.5);
  EXPECT_NEAR(level(at[kOn]), 0.0, 0.1) << "processing off passes the tone as fed";
  EXPECT_GT(std::fabs(level(at[kPeriod])), 1.0) << "processing came back on";
  EXPECT_EQ(stats["restarts"], 1);
  EXPECT_EQ(stats["period_frames"], 2048);
  EXPECT_GT(std::fabs(level(at[kEnd])), 1.0) << "the new period size's object processes";

  // A sine obeys x[i] = 2 cos(w) x[i - 1] - x[i - 2]; a fade bends that by 1e-3 at most, a gap, a
  // repeated period or an unfaded switch by far more. So does a period the server missed (a loaded
  // or sanitized machine), reported late on another thread: then no verdict.
  if (missedWhileSteered > 0) GTEST_SKIP() << "the server missed " << missedWhileSteered << " periods: seams not judged";
  const double twoCos = 2 * std::cos(2 * M_PI * kToneHz / kRate);
  uint64_t jumps = 0, first = 0;
  for (uint64_t i = at[kGain] + 2; i < at[kPeriod]; ++i) {
    if (std::fabs(x[i] - twoCos * x[i - 1] + x[i - 2]) > 0.01 && jumps++ == 0) first = i;
  }
  EXPECT_EQ(jumps, 0u) << "first at " << double(first) / kRate << " s";
}

}  // namespace
