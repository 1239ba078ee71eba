#pragma once
// Audio files in and out of velapo-host: whole files as interleaved floats.
// Linux reads and writes every format libsndfile knows (WAV, FLAC, ...);
// Windows reads and writes WAV through the system's RIFF functions (mmio),
// 16, 24 and 32-bit PCM and 32-bit float. Output is always 32-bit float, as
// the engine hands it over, in the container the output name asks for.

#include <cstdint>
#include <string>
#include <vector>

struct AudioClip {
  uint32_t rate = 0;
  uint32_t channels = 0;
  std::vector<float> samples;  // interleaved

  uint64_t Frames() const { return channels == 0 ? 0 : samples.size() / channels; }
  double Seconds() const { return rate == 0 ? 0.0 : double(Frames()) / rate; }
};

// Files beyond this are refused rather than read into memory.
inline constexpr uint64_t kMaxAudioFileSamples = 1ull << 30;

// Reads the whole file. False, with `error` saying why ("cannot open ...",
// "unsupported format ..."), for a missing, unreadable or foreign file, one
// with no channels or rate, or one beyond kMaxAudioFileSamples.
bool ReadAudioFile(const std::string& path, AudioClip& clip, std::string& error);

// Writes `clip` as 32-bit float. False, with `error`, when the file cannot
// be made or the name's type is not one this platform writes.
bool WriteAudioFile(const std::string& path, const AudioClip& clip, std::string& error);
