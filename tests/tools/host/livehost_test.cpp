// velapo-host live on a real JACK server: jackd's dummy driver at 48 kHz and
// 1024 frames under a name of its own, the host on an endpoint of a private
// store, and this test a second client feeding a sine and capturing what
// comes back, while velapo-ctl steers from outside. Skips without jackd.
// 1024 frames is PipeWire's default quantum; at 256 a test machine's server
// missed a period in most runs whenever a velapo-ctl process started.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <jack/jack.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

extern char** environ;

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
constexpr uint32_t kRate = 48000;
constexpr double kToneHz = 500.0;
constexpr float kToneLevel = 0.25f;
constexpr const char* kGuid = "{5E1A0000-0000-4000-8000-000000002424}";

std::string ReadText(const fs::path& path) {
  std::stringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

// Waits up to 30 s (a loaded machine is slow to start a client) for `text` in the file.
bool WaitForText(const fs::path& path, const std::string& text) {
  for (int i = 0; i < 600; ++i, std::this_thread::sleep_for(50ms)) {
    if (ReadText(path).find(text) != std::string::npos) return true;
  }
  return false;
}

// A child process, its output in `dir`/`name`.out and .err; killed if left running.
struct Child {
  pid_t pid = -1;
  bool Spawn(std::vector<std::string> args, const fs::path& dir, const std::string& name) {
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 1, (dir / (name + ".out")).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&files, 2, (dir / (name + ".err")).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const bool spawned = posix_spawnp(&pid, argv[0], &files, nullptr, argv.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&files);
    if (!spawned) pid = -1;
    return spawned;
  }
  // The exit code; -1 for a signal or no end within 30 seconds.
  int Wait() {
    for (int i = 0; i < 3000 && pid > 0; ++i, std::this_thread::sleep_for(10ms)) {
      int status = 0;
      if (waitpid(pid, &status, WNOHANG) == pid) return pid = -1, WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    return -1;
  }
  ~Child() {
    if (pid > 0) kill(pid, SIGKILL), waitpid(pid, nullptr, 0);
  }
};

int RunCtl(const fs::path& store, const std::string& arguments) {
  const int status = std::system((std::string(VELAPO_CTL_EXE) + " --store " + store.string() + " -e " + kGuid + " " +
                                  arguments + " >/dev/null").c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// jackd on the dummy driver under `name`, the test's own, so that a user's
// server never meets it. A fixed name, not one per run: a server killed under
// a client may keep its slot in JACK's registry of eight servers, and JACK
// takes a dead server's slot back only for the same name. (Two runs side by
// side meet, and the second skips.) Empty when it answers, else why not.
std::string StartServer(Child& jackd, const fs::path& dir, const std::string& name) {
  jack_set_error_function([](const char*) {});  // the probes fail until it is up
  jack_set_info_function([](const char*) {});
  setenv("JACK_DEFAULT_SERVER", name.c_str(), 1);
  if (!jackd.Spawn({"jackd", "-n", name, "-d", "dummy", "-r", "48000", "-p", "1024"}, dir, "jackd")) {
    return "jackd is not installed";
  }
  for (int attempt = 0; attempt < 100; ++attempt, std::this_thread::sleep_for(50ms)) {
    if (jack_client_t* probe = jack_client_open("velapo-probe", JackNoStartServer, nullptr)) {
      return jack_client_close(probe), "";
    }
  }
  return "jackd did not answer: " + ReadText(dir / "jackd.err");
}

// The second client: a sine into velapo's inputs, its left output captured
// into a buffer sized beforehand.
class ToneClient {
 public:
  ~ToneClient() { Close(); }
  void Close() { m_client != nullptr && jack_client_close(m_client), m_client = nullptr; }
  bool Start(const std::string& host) {
    m_client = jack_client_open("velapo-tone", JackNoStartServer, nullptr);
    if (m_client == nullptr) return false;
    m_take = jack_port_register(m_client, "take", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
    for (int c = 0; c < 2; ++c) {
      const std::string name = "feed_" + std::to_string(c + 1);
      m_feed[c] = jack_port_register(m_client, name.c_str(), JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0);
    }
    jack_set_process_callback(m_client, &ToneClient::Process, this);
    jack_set_xrun_callback(m_client, &ToneClient::Xrun, this);
    if (jack_activate(m_client) != 0) return false;
    bool connected = jack_connect(m_client, (host + ":out_1").c_str(), jack_port_name(m_take)) == 0;
    for (int c = 0; c < 2; ++c) {
      connected &= jack_connect(m_client, jack_port_name(m_feed[c]), (host + ":in_" + std::to_string(c + 1)).c_str()) == 0;
    }
    return connected;
  }
  bool SetPeriod(uint32_t frames) { return jack_set_buffer_size(m_client, frames) == 0; }
  uint64_t Captured() const { return m_frames.load(); }
  // False when the server stops calling this client for 20 s (it drops a
  // client it finds too slow).
  bool WaitFor(double seconds) {
    const uint64_t until = std::min<uint64_t>(Captured() + uint64_t(seconds * kRate), m_capture.size());
    for (int i = 0; i < 4000 && Captured() < until; ++i) std::this_thread::sleep_for(5ms);
    return Captured() >= until;
  }
  std::vector<float> Capture() const { return {m_capture.begin(), m_capture.begin() + Captured()}; }
  // Periods the server missed: reported, or seen as a stalled cycle.
  uint32_t Xruns() const { return m_xruns.load(); }

 private:
  static int Xrun(void* self) {
    ++static_cast<ToneClient*>(self)->m_xruns;
    return 0;
  }
  static int Process(jack_nframes_t frames, void* self) {
    ToneClient& tone = *static_cast<ToneClient*>(self);
    // A cycle this late without a report makes velapo see a stale stream,
    // which it flushes: that too is the machine's doing.
    const auto now = std::chrono::steady_clock::now();
    if (tone.m_lastCall.time_since_epoch().count() != 0 && now - tone.m_lastCall > 100ms) ++tone.m_xruns;
    tone.m_lastCall = now;
    const uint64_t at = tone.m_frames.load(std::memory_order_relaxed);
    const bool room = at + frames <= tone.m_capture.size();
    const auto* take = static_cast<const float*>(jack_port_get_buffer(tone.m_take, frames));
    for (int c = 0; c < 2; ++c) {
      auto* feed = static_cast<float*>(jack_port_get_buffer(tone.m_feed[c], frames));
      for (jack_nframes_t f = 0; f < frames; ++f) {
        feed[f] = kToneLevel * float(std::sin(2 * M_PI * kToneHz * double(tone.m_phase + f) / kRate));
      }
    }
    if (room) std::copy_n(take, frames, tone.m_capture.begin() + at), tone.m_frames.store(at + frames);
    tone.m_phase += frames;
    return 0;
  }
  jack_client_t* m_client = nullptr;
  jack_port_t* m_feed[2]{};
  jack_port_t* m_take = nullptr;
  uint64_t m_phase = 0;
  std::chrono::steady_clock::time_point m_lastCall{};
  std::vector<float> m_capture = std::vector<float>(64 * kRate);  // the left output; slow steering leaves room
  std::atomic<uint64_t> m_frames{0};
  std::atomic<uint32_t> m_xruns{0};
};

double Db(const std::vector<float>& x, uint64_t from, uint64_t to, double reference) {
  double sum = 0;
  for (uint64_t i = from; i < to; ++i) sum += double(x[i]) * x[i];
  return 20 * std::log10(std::sqrt(sum / double(to - from)) / reference);
}

// One run: tone, a gain of -6 dB, the mode Movie, processing off and on, a
// period of 2048 frames, Ctrl-C; then the capture is checked step by step.
// How long a period takes is for bench/apo and `velapo-host live --stats`:
// what a loaded machine does to real time says nothing about velapo.
TEST(LiveHost, ARunFollowsItsSteeringWithoutGapsOrAllocationsAndEndsInOrder) {
  const fs::path dir = fs::temp_directory_path() / ("velapo-live-test-" + std::to_string(getpid()));
  fs::create_directories(dir / "store");
  Child jackd, host;
  ToneClient tone;
  if (const std::string why = StartServer(jackd, dir, "velapo-test-live"); !why.empty()) {
    fs::remove_all(dir);
    GTEST_SKIP() << "no JACK server: " << why;
  }
  const std::string store = (dir / "store").string();
  ASSERT_EQ(RunCtl(store, std::string("endpoints add ") + kGuid + " --config " VELAPO_EXAMPLES_DIR "/laptop.xml"), 0);
  ASSERT_TRUE(host.Spawn({VELAPO_HOST_EXE, "live", "--store", store, "--endpoint", kGuid, "--location", "MFX", "--name",
                          "velapo-live", "--stats", (dir / "stats.json").string()},
                         dir, "host"));
  ASSERT_TRUE(WaitForText(dir / "host.out", "Ctrl-C ends it")) << ReadText(dir / "host.err");
  ASSERT_TRUE(tone.Start("velapo-live"));
  enum Step { kGain, kMode, kOff, kOn, kPeriod, kEnd };
  const char* steps[] = {"settings set MFX-Volume:Gain-Level -600", "mode set Movie",
                         "settings global \"APO4-Process Enable\" 0", "settings global \"APO4-Process Enable\" 1"};
  uint64_t at[kEnd + 1]{};
  ASSERT_TRUE(tone.WaitFor(1.5)) << "the server stopped calling the test's client";
  const uint32_t missedAtStart = tone.Xruns();  // connecting clients may cost the server a period
  for (int step = kGain; step < kPeriod; ++step) {
    at[step] = tone.Captured();
    EXPECT_EQ(RunCtl(store, steps[step]), 0) << steps[step];
    ASSERT_TRUE(tone.WaitFor(1.5)) << "the server stopped calling the test's client after " << steps[step];
  }
  at[kPeriod] = tone.Captured();
  const uint32_t missedWhileSteered = tone.Xruns() - missedAtStart;
  ASSERT_TRUE(tone.SetPeriod(2048));
  ASSERT_TRUE(tone.WaitFor(1.5)) << "the server stopped calling the test's client after the period change";
  kill(host.pid, SIGINT);
  EXPECT_EQ(host.Wait(), 0) << ReadText(dir / "host.err");
  const std::vector<float> x = tone.Capture();
  at[kEnd] = x.size();
  nlohmann::json stats;
  std::ifstream(dir / "stats.json") >> stats;
  tone.Close();
  kill(jackd.pid, SIGTERM);
  jackd.Wait();
  ASSERT_TRUE(stats.is_object()) << "no summary written";
  EXPECT_EQ(RunCtl(store, "settings get MFX-Volume:Gain-Level --mode Music"), 0) << "the store is readable";
  EXPECT_EQ(stats["dropped_log_lines"], 0);
  EXPECT_EQ(stats["allocations"]["allocating_periods"].get<uint64_t>(), 0u) << stats.dump();
  fs::remove_all(dir);

  // The level over the half second before the next step; off, the tone as fed.
  const double rms = kToneLevel / std::sqrt(2.0);
  const auto level = [&](int step) { return Db(x, at[step + 1] - kRate / 2, at[step + 1], rms); };
  ASSERT_GT(x.size(), at[kPeriod]);
  EXPECT_NEAR(level(kGain) - Db(x, at[kGain] - kRate / 2, at[kGain], rms), -6.0, 0.5);
  EXPECT_NEAR(level(kOff), 0.0, 0.1);
  EXPECT_GT(std::fabs(level(kOn)), 1.0) << "processing came back on";
  // A new period size: a new object, which processes rather than passes.
  EXPECT_EQ(stats["restarts"], 1);
  EXPECT_EQ(stats["period_frames"], 2048);
  EXPECT_GT(std::fabs(level(kPeriod)), 1.0);

  // A sine of amplitude A moves at most 2 A sin(pi f / fs) from one sample to
  // the next, and a fade between chains changes A slowly; a gap, a repeated
  // period or an unfaded switch breaks that. A period the server missed (a
  // loaded machine, or a sanitizer's, does that whatever its clients do)
  // breaks it too, and its report comes late on another thread, so the seams
  // are judged only in a run the server kept whole.
  if (missedWhileSteered > 0) GTEST_SKIP() << "the server missed " << missedWhileSteered << " periods: seams not judged";
  const double most = 2 * std::sin(M_PI * kToneHz / kRate);
  const uint64_t cycle = kRate / kToneHz, from = at[kGain], to = at[kPeriod];
  std::vector<float> peaks(to / cycle + 1, 0.0f);  // the amplitude of each cycle
  for (uint64_t i = from; i < to; ++i) peaks[i / cycle] = std::max(peaks[i / cycle], std::fabs(x[i]));
  uint64_t jumps = 0, first = 0;
  for (uint64_t i = from + cycle; i + cycle < to; ++i) {
    const uint64_t c = i / cycle;
    const float peak = std::max({peaks[c - 1], peaks[c], peaks[c + 1]});
    if (std::fabs(x[i] - x[i - 1]) > most * peak * 1.1 + 1e-5 && jumps++ == 0) first = i;
  }
  EXPECT_EQ(jumps, 0u) << "first at " << double(first) / kRate << " s";
}

TEST(LiveServer, MissingOrGoneServerEndsTheRunWithCode3AndWhy) {
  const fs::path dir = fs::temp_directory_path() / ("velapo-live-server-" + std::to_string(getpid()));
  fs::create_directories(dir);
  setenv("JACK_DEFAULT_SERVER", "velapo-nobody", 1);
  Child lonely, jackd, host;
  ASSERT_TRUE(lonely.Spawn({VELAPO_HOST_EXE, "live", "-q"}, dir, "lonely"));
  EXPECT_EQ(lonely.Wait(), 3);
  EXPECT_NE(ReadText(dir / "lonely.err").find("no JACK server is running"), std::string::npos);
  if (const std::string why = StartServer(jackd, dir, "velapo-test-gone"); !why.empty()) {
    fs::remove_all(dir);
    GTEST_SKIP() << "no JACK server: " << why;
  }
  ASSERT_TRUE(host.Spawn({VELAPO_HOST_EXE, "live"}, dir, "host"));
  ASSERT_TRUE(WaitForText(dir / "host.out", "Ctrl-C ends it")) << ReadText(dir / "host.err");
  kill(jackd.pid, SIGTERM);
  EXPECT_EQ(host.Wait(), 3);
  jackd.Wait();
  EXPECT_NE(ReadText(dir / "host.err").find("the JACK server went away"), std::string::npos) << ReadText(dir / "host.err");
  fs::remove_all(dir);
}

}  // namespace
