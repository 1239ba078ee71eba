// The input monitors: their state table and edge cases, and, on Linux, what
// they read from a capture endpoint whose ALSA device is a file plugin over
// the null device, defined by an ALSA configuration this test writes, so
// that no sound card, kernel module or sound server takes part.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>
#include <vector>

#include "endpointfixture.h"
#include "monitor/zorvistapeakinputmonitor.h"
#include "monitor/zorvistawasapiinputmonitor.h"
#include "platform/waveformatrecord.h"

namespace {

using State = IZORAudioInputMonitor::State;

TEST(InputMonitorStates, TheCheckedChangesFollowTheTable) {
  // allowed[from][to], states 0 open, 1 closed, 2 running, 3 stopped, 4 new.
  constexpr bool allowed[5][5] = {
      {true, true, true, true, false},     {true, true, false, false, false},  {false, false, true, true, false},
      {false, true, true, true, false},    {true, true, true, true, true},
  };
  for (uint32_t from = 0; from < 5; ++from) {
    for (uint32_t to = 0; to < 5; ++to) {
      EXPECT_EQ(IZORAudioInputMonitor::CanChangeState(from, to), allowed[from][to]) << from << "->" << to;
    }
  }
}

TEST(InputMonitorFormats, ARecordBecomesAnExtensibleFloatFormatAndLatencyWholeMilliseconds) {
  const WAVEFORMATEXTENSIBLE format = ZORVistaWASAPIInputMonitor::FormatOfRecord({6, 44100, 32, false});
  EXPECT_EQ(format.Format.wFormatTag, 0xFFFE);
  EXPECT_EQ(format.Format.nChannels, 6);
  EXPECT_EQ(format.Format.nSamplesPerSec, 44100u);
  EXPECT_EQ(format.Format.nBlockAlign, 24);
  EXPECT_EQ(format.Format.nAvgBytesPerSec, 24u * 44100u);
  EXPECT_EQ(format.Format.cbSize, 22);
  EXPECT_EQ(format.Samples.wValidBitsPerSample, 32);
  EXPECT_EQ(format.dwChannelMask, 1u);
  EXPECT_TRUE(IsEqualGUID(format.SubFormat, kKSDATAFORMAT_SUBTYPE_IEEE_FLOAT));
  static_assert(sizeof(WAVEFORMATEXTENSIBLE) == 40);
  // Latency is rounded half up to whole milliseconds.
  const std::pair<REFERENCE_TIME, uint32_t> table[] = {
      {0, 0}, {4999, 0}, {5000, 1}, {100000, 10}, {104999, 10}, {105000, 11}, {30000000, 3000}};
  for (const auto& [latency, ms] : table) EXPECT_EQ(ZORVistaWASAPIInputMonitor::LatencyMsOf(latency), ms) << latency;
}

// Monitors that never opened: each operation as the table of edge cases says.
TEST(InputMonitorEdges, UnopenedMonitorsAnswerAsTheirStateAllows) {
  ZORVistaPeakInputMonitor peak;
  ZORVistaWASAPIInputMonitor capture;
  IZORAudioInputMonitor* const monitors[] = {&peak, &capture};
  for (IZORAudioInputMonitor* monitor : monitors) {
    EXPECT_EQ(monitor->GetMonitorState(), State::kNotInitialised);
    EXPECT_EQ(monitor->Reserved(), 1u);
    EXPECT_FALSE(monitor->Start());                 // no listener, no client
    EXPECT_TRUE(monitor->Stop());                   // no thread: stopped
    EXPECT_EQ(monitor->GetMonitorState(), State::kStopped);
    monitor->Close();
    EXPECT_EQ(monitor->GetMonitorState(), State::kClosed);
    EXPECT_TRUE(monitor->Stop());                   // closed to stopped is not a checked change
    EXPECT_EQ(monitor->GetMonitorState(), State::kClosed);
    MonitorFormat format{};
    EXPECT_FALSE(monitor->Open(u"no such device, surely", nullptr, &format));
  }
  uint32_t value = 7;
  peak.GetLatencyMs(&value);
  EXPECT_EQ(value, 0u);
  peak.GetBufferFrames(&value);
  EXPECT_EQ(value, 1u);
  MonitorFormat any{};
  EXPECT_TRUE(peak.CheckFormat(u"anything", &any));
}

TEST(WaveFormatRecords, OnlyConsistentPcmAndFloatRecordsAreRead) {
  uint8_t good[40];
  zor::os::WriteWaveFormatRecord({2, 48000, 32, true}, good);
  zor::os::WaveFormatRecord read;
  ASSERT_TRUE(zor::os::ParseWaveFormatRecord(good, read));
  EXPECT_EQ(read.channels, 2u);
  EXPECT_EQ(read.sampleRate, 48000u);
  EXPECT_TRUE(read.isFloat);
  struct Case {
    const char* what;
    size_t at;
    uint8_t value;
    size_t size;
  };
  const Case table[] = {
      {"short of the plain part", 0, 0xFE, 15},   {"extensible cut short", 0, 0xFE, 39},
      {"cbSize beyond the end", 16, 40, 40},      {"cbSize under 22", 16, 21, 40},
      {"valid bits not the container", 18, 24, 40}, {"sub-format not audio", 24, 2, 40},
      {"sub-format tail changed", 39, 0, 40},     {"no channels", 2, 0, 40},
      {"nine channels", 2, 9, 40},                {"block align wrong", 12, 7, 40},
      {"byte rate wrong", 8, 1, 40},              {"float of 16 bits", 14, 16, 40},
  };
  for (const Case& c : table) {
    uint8_t bad[40];
    std::memcpy(bad, good, sizeof bad);
    bad[c.at] = c.value;
    if (c.what == std::string("float of 16 bits")) bad[18] = 16;
    EXPECT_FALSE(zor::os::ParseWaveFormatRecord({bad, c.size}, read)) << c.what;
  }
  // A plain 16-bit PCM record of 16 bytes, no cbSize.
  const uint8_t pcm[16] = {1, 0, 1, 0, 0x44, 0xAC, 0, 0, 0x88, 0x58, 1, 0, 2, 0, 16, 0};
  ASSERT_TRUE(zor::os::ParseWaveFormatRecord(pcm, read));
  EXPECT_EQ(read.sampleRate, 44100u);
  EXPECT_FALSE(read.isFloat);
}

// Linux only: Wine headless lists no capture device, so there the system's
// own capture client is not tested.
#if !defined(_WIN32)

constexpr uint32_t kRate = 48000;
constexpr float kTonePeak = 0.5f;
constexpr uint32_t kRampFrames = 10 * kRate;

// Two ALSA capture devices reading generated files: a frame-counting ramp and a 1 kHz tone.
class AlsaFiles {
 public:
  AlsaFiles() {
    m_dir = std::filesystem::temp_directory_path() / ("velapo-alsa-" + std::to_string(::getpid()));
    std::filesystem::create_directories(m_dir);
    std::vector<float> ramp(2 * kRampFrames);
    for (uint32_t i = 0; i < ramp.size(); ++i) ramp[i] = static_cast<float>(i / 2);
    std::vector<float> tone(2 * kRate);
    for (uint32_t i = 0; i < kRate; ++i) {
      tone[2 * i] = tone[2 * i + 1] = kTonePeak * static_cast<float>(std::sin(2 * M_PI * 1000.0 * (i + 0.25) / kRate));
    }
    Save("ramp.raw", ramp);
    Save("tone.raw", tone);
    std::ofstream config(m_dir / "asound.conf");
    for (const char* name : {"ramp", "tone"}) {
      config << "pcm.velapo_" << name << " {\n  type file\n  slave.pcm { type null }\n  file \"/dev/null\"\n"
             << "  infile \"" << (m_dir / (std::string(name) + ".raw")).string() << "\"\n  format \"raw\"\n}\n";
    }
    config.close();
    ::setenv("ALSA_CONFIG_PATH", (m_dir / "asound.conf").c_str(), 1);
  }
  ~AlsaFiles() { std::filesystem::remove_all(m_dir); }

 private:
  void Save(const char* name, const std::vector<float>& samples) {
    std::ofstream out(m_dir / name, std::ios::binary);
    out.write(reinterpret_cast<const char*>(samples.data()), static_cast<std::streamsize>(samples.size() * 4));
  }
  std::filesystem::path m_dir;
};

// What a listener was given, with a share of each call it takes.
struct Collector : IZORAudioInputListener {
  explicit Collector(uint32_t count) : channels(count) {}
  void OnFormat(MonitorFormat* format) override { formats.push_back(*format); }  // on the caller's thread
  void OnReserved() override {}
  void OnData(const void* samples, uint32_t* frames) override {
    const std::lock_guard<std::mutex> lock(mutex);
    offered.push_back(*frames);
    uint32_t take = *frames;
    if (takeNothingFirst && ++calls == 1) take = 0;
    else if (takeHalf) take = std::max(1u, *frames / 2);
    const auto* floats = static_cast<const float*>(samples);
    received.insert(received.end(), floats, floats + take * channels);
    *frames = take;
  }
  bool WaitForFrames(size_t frames) {
    for (int i = 0; i < 4000; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(5))) {
      const std::lock_guard<std::mutex> lock(mutex);
      if (received.size() >= frames * channels) return true;
    }
    return false;
  }
  size_t Calls() {
    const std::lock_guard<std::mutex> lock(mutex);
    return offered.size();
  }

  const uint32_t channels;
  bool takeHalf = false, takeNothingFirst = false;
  int calls = 0;
  std::mutex mutex;
  std::vector<uint32_t> offered;
  std::vector<float> received;
  std::vector<MonitorFormat> formats;
};

class AlsaCaptureEndpoints : public velapo::test::EndpointStore {
 protected:
  static void SetUpTestSuite() { s_files = new AlsaFiles; }
  static void TearDownTestSuite() { delete s_files; }

  void SetUp() override {
    EndpointStore::SetUp();
    m_ramp = AddCapture(u"Ramp Microphone", u"velapo_ramp");
    m_tone = AddCapture(u"Tone Microphone", u"velapo_tone");
    m_broken = AddCapture(u"Broken Microphone", u"velapo_no_such_device");
  }
  std::u16string AddCapture(std::u16string_view name, std::u16string_view alsaDevice) {
    const std::u16string guid = velapo::test::FreshEndpointGuid();
    const std::u16string key = Endpoint(guid, false);
    WriteDword(key, u"DeviceState", DEVICE_STATE_ACTIVE);
    WriteText(key + u"\\Properties", zor::com::PropertyKeyText(PKEY_Device_FriendlyName), name);
    WriteText(key + u"\\Properties", u"{7a8b74c8-fa66-4460-8542-d6119c59e9d4},16", alsaDevice);
    return u"{0.0.1.00000000}." + guid;
  }
  // Checks that the frames counted by the ramp come whole and in order.
  static void ExpectRampInOrder(const std::vector<float>& received, size_t frames) {
    ASSERT_GE(received.size(), 2 * frames);
    size_t wrong = 0;
    for (size_t i = 0; i < 2 * frames; ++i) wrong += received[i] != static_cast<float>(i / 2) ? 1 : 0;
    EXPECT_EQ(wrong, 0u);
  }

  static AlsaFiles* s_files;
  std::u16string m_ramp, m_tone, m_broken;
};
AlsaFiles* AlsaCaptureEndpoints::s_files = nullptr;

// Every ramp frame arrives in order whether the listener takes all, half or none of a packet.
TEST_F(AlsaCaptureEndpoints, TheCaptureMonitorDeliversEveryFrameInOrder) {
  enum Take { kAll, kHalf, kNothingFirst };
  for (const Take take : {kAll, kHalf, kNothingFirst}) {
    ZORVistaWASAPIInputMonitor monitor;
    Collector listener(2);
    listener.takeHalf = take == kHalf;
    listener.takeNothingFirst = take == kNothingFirst;
    MonitorFormat format{2, kRate, 32, true};
    if (take == kAll) format = {};  // zero: filled from the mix format, the listener not told
    ASSERT_TRUE(monitor.Open(take == kAll ? u"ramp MICROPHONE" : m_ramp.c_str(), &listener, &format));  // name or id
    EXPECT_EQ(monitor.GetMonitorState(), State::kOpen);
    EXPECT_EQ(format.channels, 2u);
    EXPECT_EQ(format.sampleRate, kRate);
    EXPECT_EQ(format.bits, 32u);
    EXPECT_TRUE(format.isFloat);
    EXPECT_TRUE(listener.formats.empty());
    uint32_t latency = 0, frames = 0;
    monitor.GetLatencyMs(&latency);
    monitor.GetBufferFrames(&frames);
    EXPECT_EQ(latency, 10u);
    EXPECT_EQ(frames, kRate / 10);  // the 10-unit request raised to the minimum buffer
    ASSERT_TRUE(monitor.Start());
    EXPECT_EQ(monitor.GetMonitorState(), State::kRunning);
    ASSERT_TRUE(listener.WaitForFrames(kRate / 4));
    if (take == kAll) {
      monitor.Close();  // from running, through stopped
      EXPECT_EQ(monitor.GetMonitorState(), State::kClosed);
    } else {
      ASSERT_TRUE(monitor.Stop());
      EXPECT_EQ(monitor.GetMonitorState(), State::kStopped);
    }
    const size_t calls = listener.Calls();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(listener.Calls(), calls);
    ExpectRampInOrder(listener.received, kRate / 4);
    ASSERT_GE(listener.offered.size(), 3u);
    const uint32_t first = listener.offered[0], rest = take == kHalf ? first - first / 2 : first;
    EXPECT_TRUE(take == kAll || listener.offered[1] == rest) << take << ": " << listener.offered[1];
  }
}

TEST_F(AlsaCaptureEndpoints, ThePeakMonitorReadsTheTonesPeak) {
  ZORVistaPeakInputMonitor monitor;
  Collector listener(1);
  MonitorFormat format{2, kRate, 16, false};
  ASSERT_TRUE(monitor.Open(u"Tone Microphone", &listener, &format));
  ASSERT_EQ(listener.formats.size(), 1u);
  EXPECT_EQ(listener.formats[0].channels, 1u);
  EXPECT_EQ(listener.formats[0].bits, 32u);
  EXPECT_TRUE(listener.formats[0].isFloat);
  ASSERT_TRUE(monitor.Start());
  ASSERT_TRUE(listener.WaitForFrames(20));
  monitor.Close();
  const std::vector<float> readings(listener.received.begin() + 5, listener.received.end());
  ASSERT_NE(std::count(readings.begin(), readings.end(), 0.0f), static_cast<ptrdiff_t>(readings.size()));
  for (const float level : readings) {
    if (level == 0.0f) continue;  // a round with no frames yet
    EXPECT_NEAR(20.0 * std::log10(level / kTonePeak), 0.0, 0.1);
  }
}

TEST_F(AlsaCaptureEndpoints, FormatsAndDevicesTheClientRefusesAreAnsweredFalse) {
  ZORVistaWASAPIInputMonitor capture;
  MonitorFormat stereo{2, kRate, 32, true};
  EXPECT_TRUE(capture.CheckFormat(u"Ramp Microphone", &stereo));
  MonitorFormat odd{2, kRate, 24, true};
  EXPECT_FALSE(capture.CheckFormat(u"Ramp Microphone", &odd));
  EXPECT_FALSE(capture.CheckFormat(u"Broken Microphone", &stereo));
  Collector listener(2);
  MonitorFormat zero{};
  // The broken device opens a client whose Initialize fails; Start finds no stream.
  ZORVistaPeakInputMonitor peak;
  EXPECT_FALSE(peak.Open(u"Nobody's Microphone", &listener, &zero));
  std::vector<std::u16string> ids;
  EXPECT_TRUE(capture.EnumDevices([](LPCWSTR id, void* all) {
    static_cast<std::vector<std::u16string>*>(all)->push_back(zor::com::FromComText(id));
  }, &ids));
  EXPECT_NE(std::find(ids.begin(), ids.end(), m_broken), ids.end());
}

#endif

}  // namespace
