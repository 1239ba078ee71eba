#include "livehost.h"

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

#include "apostage.h"
#include "config/zorapoconfigurationfile.h"
#include "hostapp.h"
#include "hostendpoint.h"
#include "jackclient.h"
#include "liveengine.h"
#include "platform/debugoutput.h"
#include "platform/registry.h"

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<bool> g_bStop{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the signal handler needs a lock-free flag");

extern "C" void OnStopSignal(int) { g_bStop.store(true); }

// The engine's log lines go to the file the user named, except those written
// on the callback's thread: a write there is a system call that may block,
// so they are only counted.
void WriteLogLine(void* context, const char* line, bool) {
  if (LiveEngine::OnAudioThread()) {
    LiveEngine::CountDroppedLogLine();
    return;
  }
  if (context != nullptr) std::fputs(line, static_cast<std::FILE*>(context));
}

class LiveLog {
 public:
  explicit LiveLog(const std::string& path) {
    if (!path.empty()) m_file = std::fopen(path.c_str(), "w");
    zor::os::SetDebugSink(&WriteLogLine, m_file);
  }
  ~LiveLog() {
    zor::os::SetDebugSink(nullptr, nullptr);
    if (m_file != nullptr) std::fclose(m_file);
  }
  LiveLog(const LiveLog&) = delete;
  LiveLog& operator=(const LiveLog&) = delete;
  bool Failed(const std::string& path) const { return !path.empty() && m_file == nullptr; }

 private:
  std::FILE* m_file = nullptr;
};

// Ctrl-C and SIGTERM only raise a flag; the main thread ends the run in
// order, so a store value or shared block is never left half written by us.
// JACK's threads, made while the signals are blocked, never take them.
class StopSignals {
 public:
  StopSignals() {
    struct sigaction action {};
    action.sa_handler = &OnStopSignal;
    sigemptyset(&action.sa_mask);
    // A second Ctrl-C ends the program at once, as a crash would.
    action.sa_flags = SA_RESETHAND;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    sigemptyset(&m_set);
    sigaddset(&m_set, SIGINT);
    sigaddset(&m_set, SIGTERM);
  }
  void BlockForNewThreads() { pthread_sigmask(SIG_BLOCK, &m_set, nullptr); }
  void Unblock() { pthread_sigmask(SIG_UNBLOCK, &m_set, nullptr); }

 private:
  sigset_t m_set{};
};

// What the server tells, on JACK's threads, for the main loop to act on.
class LiveListener final : public IJackListener {
 public:
  explicit LiveListener(LiveEngine& engine) : m_engine(engine) {}
  void OnProcess(const float* const* inputs, float* const* outputs, uint32_t frames) override {
    m_engine.Process(inputs, outputs, frames);
  }
  void OnBufferSize(uint32_t frames) override { m_frames.store(frames); }
  void OnSampleRate(uint32_t rate) override { m_rate.store(rate); }
  void OnXrun() override { m_engine.CountXrun(); }
  void OnShutdown(const std::string& reason) override {
    {
      const std::lock_guard<std::mutex> hold(m_reasonLock);
      m_reason = reason;
    }
    m_bGone.store(true);
  }

  std::atomic<uint32_t> m_frames{0};
  std::atomic<uint32_t> m_rate{0};
  std::atomic<bool> m_bGone{false};
  std::string Reason() {
    const std::lock_guard<std::mutex> hold(m_reasonLock);
    return m_reason;
  }

 private:
  LiveEngine& m_engine;
  std::mutex m_reasonLock;
  std::string m_reason;
};

// The stream's effect object, made and started for a rate and period size,
// and taken down again, always on the main thread.
class LiveStream {
 public:
  LiveStream(LiveEngine& engine, HostEndpoint& endpoint, const LiveOptions& options)
      : m_engine(engine), m_endpoint(endpoint), m_module(options.module), m_location(options.location),
        m_channels(options.channels) {}
  ~LiveStream() { Stop(); }

  bool Start(uint32_t rate, uint32_t frames, std::string& error) {
    auto stage = std::make_unique<ApoStage>(m_module);
    HostFormat format{rate, m_channels, m_channels};
    if (!stage->Start(m_endpoint, m_location, format, error)) return false;
    if (format.channelsIn != m_channels || format.channelsOut != m_channels || format.rate != rate) {
      error = "the effect object would not take the server's format";
      return false;
    }
    m_stage = std::move(stage);
    m_rate = rate;
    m_frames = frames;
    m_engine.Install(m_stage.get(), frames);
    return true;
  }

  // A new rate or period size from the server: the engine's way, a new
  // object initialised and locked for the new format, while the callback
  // passes audio through. False, with `error`, when the new object does not
  // start; the audio then passes until the next change.
  bool Follow(uint32_t rate, uint32_t frames, std::string& error) {
    if (rate == m_rate && frames == m_frames && m_stage) return true;
    if (!Stop()) {
      error = "the callback did not let go of the effect object";
      return false;
    }
    ++m_restarts;
    return Start(rate, frames, error);
  }

  // False when the callback holds on to the stage (it is then left alone).
  bool Stop() {
    IHostStage* withdrawn = nullptr;
    if (!m_engine.Withdraw(withdrawn, std::chrono::seconds(2))) {
      (void)m_stage.release();
      return false;
    }
    if (m_stage) m_stage->Stop();
    m_stage.reset();
    return true;
  }

  uint32_t Rate() const { return m_rate; }
  uint32_t Frames() const { return m_frames; }
  uint32_t Restarts() const { return m_restarts; }

 private:
  LiveEngine& m_engine;
  HostEndpoint& m_endpoint;
  const std::string m_module;
  const uint32_t m_location;
  const uint32_t m_channels;
  std::unique_ptr<ApoStage> m_stage;
  uint32_t m_rate = 0;
  uint32_t m_frames = 0;
  uint32_t m_restarts = 0;
};

nlohmann::json Summary(const LiveMeasures& m, uint32_t rate, uint32_t frames, uint32_t restarts, double seconds) {
  const double periodMicros = rate == 0 ? 0 : 1e6 * frames / rate;
  auto share = [&](double micros) { return periodMicros > 0 ? micros / periodMicros : 0.0; };
  return {{"rate", rate},
          {"period_frames", frames},
          {"seconds", seconds},
          {"periods", m.periods},
          {"processed_periods", m.processedPeriods},
          {"silent_periods", m.silentPeriods},
          {"restarts", restarts},
          {"xruns", m.xruns},
          {"allocations",
           {{"first_periods", m.firstAllocations},
            {"steady", m.steadyAllocations},
            {"allocating_periods", m.allocatingPeriods}}},
          {"dropped_log_lines", m.droppedLogLines},
          {"callback_us", {{"median", m.medianMicros}, {"p99", m.p99Micros}, {"max", m.maxMicros}}},
          {"callback_share", {{"median", share(m.medianMicros)}, {"p99", share(m.p99Micros)}, {"max", share(m.maxMicros)}}}};
}

// Written whole or not at all: a reader never sees half a summary.
bool WriteSummary(const std::string& path, const nlohmann::json& summary) {
  const std::string temporary = path + ".part";
  {
    std::ofstream file(temporary);
    file << summary.dump(2) << '\n';
    if (!file) return false;
  }
  std::error_code error;
  std::filesystem::rename(temporary, path, error);
  return !error;
}

}  // namespace

bool LiveHostBuilt() { return true; }

int RunLive(const LiveOptions& options, std::ostream& out, std::ostream& err) {
  std::string error;
  auto fail = [&](int code) {
    err << "velapo-host: " << error << '\n';
    return code;
  };
  StopSignals signals;
  const LiveLog log(options.log);
  if (log.Failed(options.log)) {
    error = "cannot write the log '" + options.log + "'";
    return fail(kExitCannotWrite);
  }

  HostEndpoint endpoint;
  ZORAPOConfigurationFile config;
  if (!endpoint.Open(options.store, options.endpoint, options.config, options.location, config, error)) {
    return fail(kExitBadInput);
  }

  LiveEngine engine(options.channels);
  LiveListener listener(engine);
  JackClient client;
  signals.BlockForNewThreads();
  if (!client.Open(options.clientName, options.channels, listener, error)) {
    signals.Unblock();
    return fail(kExitNoServer);
  }
  LiveStream stream(engine, endpoint, options);
  if (!stream.Start(client.SampleRate(), client.BufferSize(), error)) {
    signals.Unblock();
    return fail(kExitBadInput);
  }
  const bool activated = client.Activate(error);
  signals.Unblock();
  if (!activated) return fail(kExitNoServer);
  if (options.connect && !client.ConnectToPlayback(error)) err << "velapo-host: " << error << '\n';
  if (!options.quiet) {
    out << "velapo-host: '" << client.Name() << "' runs " << options.locationName << " at " << stream.Rate()
        << " Hz, " << stream.Frames() << " frames, " << options.channels << " channels; Ctrl-C ends it\n"
        << "velapo-host: steer it with velapo-ctl --store " << zor::os::RegistryRoot() << " -e "
        << endpoint.GuidText() << std::endl;
  }

  const Clock::time_point start = Clock::now();
  const auto limit = std::chrono::duration<double>(options.seconds);
  bool serverGone = false;
  while (!g_bStop.load()) {
    if (listener.m_bGone.load()) {
      serverGone = true;
      err << "velapo-host: the JACK server went away (" << listener.Reason() << "); stopping" << std::endl;
      break;
    }
    if (options.seconds > 0 && Clock::now() - start >= limit) break;
    const uint32_t rate = listener.m_rate.load(), frames = listener.m_frames.load();
    if ((rate != 0 && rate != stream.Rate()) || (frames != 0 && frames != stream.Frames())) {
      if (!stream.Follow(rate != 0 ? rate : stream.Rate(), frames != 0 ? frames : stream.Frames(), error)) {
        err << "velapo-host: " << error << "; the audio passes unprocessed\n";
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  client.Close();
  stream.Stop();

  const nlohmann::json summary = Summary(engine.Measures(), stream.Rate(), stream.Frames(), stream.Restarts(), seconds);
  if (!options.quiet) {
    out << "velapo-host: " << summary["periods"] << " periods in " << seconds << " s, " << summary["xruns"]
        << " xruns, callback median " << summary["callback_us"]["median"] << " us (p99 "
        << summary["callback_us"]["p99"] << ", max " << summary["callback_us"]["max"] << "), "
        << summary["allocations"]["steady"] << " allocations in steady state" << std::endl;
  }
  if (!options.stats.empty() && !WriteSummary(options.stats, summary)) {
    error = "cannot write '" + options.stats + "'";
    return fail(kExitCannotWrite);
  }
  return serverGone ? kExitNoServer : kExitOk;
}
