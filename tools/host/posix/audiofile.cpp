// libsndfile reads whatever it knows; the output's container follows the
// file name's extension (WAV unless it says otherwise).
#include "audiofile.h"

#include <sndfile.h>

#include <algorithm>
#include <cctype>
#include <filesystem>

namespace {

int OutputFormat(const std::string& path) {
  std::string extension = std::filesystem::path(path).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (extension == ".flac") return SF_FORMAT_FLAC | SF_FORMAT_PCM_24;  // FLAC holds no floats
  if (extension == ".aiff" || extension == ".aif") return SF_FORMAT_AIFF | SF_FORMAT_FLOAT;
  if (extension == ".caf") return SF_FORMAT_CAF | SF_FORMAT_FLOAT;
  return SF_FORMAT_WAV | SF_FORMAT_FLOAT;
}

}  // namespace

bool ReadAudioFile(const std::string& path, AudioClip& clip, std::string& error) {
  SF_INFO info{};
  SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
  if (file == nullptr) {
    error = "cannot read '" + path + "': " + sf_strerror(nullptr);
    return false;
  }
  const uint64_t samples = static_cast<uint64_t>(std::max<sf_count_t>(info.frames, 0)) *
                           static_cast<uint64_t>(std::max(info.channels, 0));
  if (info.channels <= 0 || info.samplerate <= 0 || samples > kMaxAudioFileSamples) {
    error = "unsupported format in '" + path + "': " + std::to_string(info.channels) + " channels at " +
            std::to_string(info.samplerate) + " Hz, " + std::to_string(info.frames) + " frames";
    sf_close(file);
    return false;
  }
  clip.rate = static_cast<uint32_t>(info.samplerate);
  clip.channels = static_cast<uint32_t>(info.channels);
  clip.samples.assign(samples, 0.0f);
  const sf_count_t read = sf_readf_float(file, clip.samples.data(), info.frames);
  sf_close(file);
  clip.samples.resize(static_cast<size_t>(std::max<sf_count_t>(read, 0)) * clip.channels);
  return true;
}

bool WriteAudioFile(const std::string& path, const AudioClip& clip, std::string& error) {
  SF_INFO info{};
  info.samplerate = static_cast<int>(clip.rate);
  info.channels = static_cast<int>(clip.channels);
  info.format = OutputFormat(path);
  SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
  if (file == nullptr) {
    error = "cannot write '" + path + "': " + sf_strerror(nullptr);
    return false;
  }
  const sf_count_t frames = static_cast<sf_count_t>(clip.Frames());
  const sf_count_t written = sf_writef_float(file, clip.samples.data(), frames);
  sf_close(file);
  if (written != frames) {
    error = "cannot write '" + path + "': the disk took " + std::to_string(written) + " of " +
            std::to_string(frames) + " frames";
    return false;
  }
  return true;
}
