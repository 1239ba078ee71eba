#pragma once
// Helpers of the tech tests: where the test modules lie, the test module's
// call log, and a veltech process driven straight through its table.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "audio/zorapoprocesslibrary.h"
#include "platform/dynamiclibrary.h"
#include "veltech/veltech_abi.h"

namespace techtest {

inline std::filesystem::path TestDirectory() { return zor::os::ExecutablePath().parent_path(); }

// Points the loader at one of the tests' module directories while it lives.
class ModuleDirectory {
 public:
  explicit ModuleDirectory(const std::filesystem::path& directory) {
    ZORAPOProcessLibrary::SetModulePath((directory / "anchor").u16string().c_str());
  }
  ~ModuleDirectory() { ZORAPOProcessLibrary::SetModulePath(nullptr); }
  ModuleDirectory(const ModuleDirectory&) = delete;
  ModuleDirectory& operator=(const ModuleDirectory&) = delete;
};

inline std::filesystem::path TestModuleDirectory() { return TestDirectory() / "testmodule"; }
inline std::filesystem::path OrphanModuleDirectory() { return TestDirectory() / "orphanmodule"; }
inline std::filesystem::path MinimalModuleDirectory() { return TestDirectory() / "minimalmodule"; }

// The test module's call log; holding the module keeps the log alive between loads.
class TestModuleLog {
 public:
  TestModuleLog() {
    const std::filesystem::path file =
        TestModuleDirectory() / std::filesystem::path(ZORAPOProcessLibrary::ModuleFileName());
    EXPECT_TRUE(m_module.Load(file)) << file;
    m_take = reinterpret_cast<Take>(m_module.FindSymbol("VelTestTakeLog"));
    Lines();
  }
  // The lines logged since the last call.
  std::vector<std::string> Lines() {
    std::vector<std::string> lines;
    if (m_take == nullptr) return lines;
    std::vector<char> buffer(1 << 20);
    m_take(buffer.data(), static_cast<uint32_t>(buffer.size()));
    std::istringstream text(buffer.data());
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
  }

 private:
  using Take = uint32_t (*)(char*, uint32_t);
  zor::os::DynamicLibrary m_module;
  Take m_take = nullptr;
};

// Planar audio of a few channels.
using Channels = std::vector<std::vector<float>>;

// One veltech process, called through its operation table as the host calls it.
class Veltech {
 public:
  explicit Veltech(const std::string& techId) {
    ZORAPOProcessLibrary::SetModulePath(nullptr);
    if (m_library.CreateProcess(techId, "Test")) m_process = m_library.GetProcess();
  }
  ZORTechProcess* Get() const { return m_process; }
  const ZORTechProcessTable& Table() const { return *m_process->table; }

  bool Init(uint32_t channels, uint32_t rate) { return Table().Init(m_process, channels, rate) != 0; }
  bool Set(const char* name, int32_t value) { return Table().SetControlLong(m_process, name, value) != 0; }
  bool SetText(const char* name, const char* text) {
    return Table().SetControlString(m_process, name, text) != 0;
  }
  int32_t Value(const char* name) const {
    int32_t value = INT32_MIN;
    EXPECT_TRUE(Table().GetControlLong(m_process, name, &value)) << name;
    return value;
  }
  bool CopyStateFrom(const Veltech& other) { return Table().CopyState(m_process, other.m_process) != 0; }

  // Processes frames [offset, offset + frames) of every channel in place.
  void Run(Channels& audio, size_t offset, uint32_t frames) {
    std::vector<ZORChannelNode> nodes(audio.size());
    for (size_t c = 0; c < audio.size(); ++c) {
      nodes[c] = {audio[c].data() + offset, static_cast<uint32_t>(c), 0,
                  c + 1 < audio.size() ? &nodes[c + 1] : nullptr};
    }
    ZORChannelNode* list = nodes.empty() ? nullptr : nodes.data();
    Table().Process(m_process, list, list, frames, nullptr);
  }
  void RunAll(Channels& audio, uint32_t block) {
    const size_t frames = audio.empty() ? 0 : audio[0].size();
    for (size_t offset = 0; offset < frames; offset += block) {
      Run(audio, offset, static_cast<uint32_t>(std::min<size_t>(block, frames - offset)));
    }
  }

 private:
  ZORAPOProcessLibrary m_library;
  ZORTechProcess* m_process = nullptr;
};

inline constexpr double kPi = 3.14159265358979323846;

inline std::vector<float> Sine(double frequency, double amplitude, uint32_t rate, size_t frames,
                               double phase = 0.0) {
  std::vector<float> samples(frames);
  for (size_t i = 0; i < frames; ++i) {
    samples[i] = static_cast<float>(
        amplitude * std::sin(2.0 * kPi * frequency * static_cast<double>(i) / rate + phase));
  }
  return samples;
}

// The amplitude of `frequency` in samples[from, from + count), by correlation.
inline double AmplitudeAt(const std::vector<float>& samples, size_t from, size_t count, double frequency,
                          uint32_t rate) {
  double re = 0.0;
  double im = 0.0;
  for (size_t i = 0; i < count; ++i) {
    const double phase = 2.0 * kPi * frequency * static_cast<double>(from + i) / rate;
    re += samples[from + i] * std::cos(phase);
    im += samples[from + i] * std::sin(phase);
  }
  return 2.0 * std::hypot(re, im) / static_cast<double>(count);
}

inline double ToDecibels(double ratio) { return 20.0 * std::log10(ratio); }

// The largest change from one sample to the next in samples[from, end).
inline double LargestStep(const std::vector<float>& samples, size_t from) {
  double largest = 0.0;
  for (size_t i = std::max<size_t>(from, 1); i < samples.size(); ++i) {
    largest = std::max(largest, std::fabs(static_cast<double>(samples[i]) - samples[i - 1]));
  }
  return largest;
}

// Deterministic noise in [-amplitude, amplitude].
inline std::vector<float> Noise(size_t frames, double amplitude, uint32_t seed) {
  std::vector<float> samples(frames);
  uint32_t state = seed * 2654435761u + 1;
  for (float& sample : samples) {
    state = state * 1664525u + 1013904223u;
    sample = static_cast<float>(amplitude * ((state >> 8) / 8388608.0 - 1.0));
  }
  return samples;
}

}  // namespace techtest
