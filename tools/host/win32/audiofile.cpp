// WAV through the system's RIFF functions (mmio, in winmm): they walk the
// chunks and bound every read by the chunk's size, so this file only checks
// the format record and converts samples.
#include "audiofile.h"

#include <windows.h>
#include <mmreg.h>
#include <mmsystem.h>

#include <cstring>
#include <filesystem>

namespace {

class MmioFile {
 public:
  MmioFile(const std::string& path, DWORD flags) {
    std::wstring wide = std::filesystem::path(path).wstring();
    m_handle = mmioOpenW(wide.data(), nullptr, flags);
  }
  ~MmioFile() {
    if (m_handle != nullptr) mmioClose(m_handle, 0);
  }
  MmioFile(const MmioFile&) = delete;
  MmioFile& operator=(const MmioFile&) = delete;
  HMMIO Get() const { return m_handle; }

 private:
  HMMIO m_handle = nullptr;
};

constexpr WORD kExtensible = 0xFFFE;

float Sample(const uint8_t* p, WORD bits, bool isFloat) {
  if (isFloat) {
    float value;
    std::memcpy(&value, p, sizeof value);
    return value;
  }
  switch (bits) {
    case 16:
      return float(int16_t(p[0] | (p[1] << 8))) / 32768.0f;
    case 24:
      return float(int32_t(uint32_t(p[0] << 8) | uint32_t(p[1] << 16) | uint32_t(p[2]) << 24) >> 8) /
             8388608.0f;
    default:
      return float(int32_t(uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 |
                           uint32_t(p[3]) << 24)) /
             2147483648.0f;
  }
}

}  // namespace

bool ReadAudioFile(const std::string& path, AudioClip& clip, std::string& error) {
  MmioFile file(path, MMIO_READ | MMIO_ALLOCBUF);
  if (file.Get() == nullptr) {
    error = "cannot read '" + path + "'";
    return false;
  }
  MMCKINFO riff{};
  riff.fccType = mmioFOURCC('W', 'A', 'V', 'E');
  MMCKINFO chunk{};
  chunk.ckid = mmioFOURCC('f', 'm', 't', ' ');
  WAVEFORMATEXTENSIBLE format{};
  if (mmioDescend(file.Get(), &riff, nullptr, MMIO_FINDRIFF) != MMSYSERR_NOERROR ||
      mmioDescend(file.Get(), &chunk, &riff, MMIO_FINDCHUNK) != MMSYSERR_NOERROR ||
      chunk.cksize < 16) {
    error = "unsupported format in '" + path + "': not a WAV file";
    return false;
  }
  const LONG formatBytes = LONG(std::min<DWORD>(chunk.cksize, sizeof format));
  if (mmioRead(file.Get(), reinterpret_cast<HPSTR>(&format), formatBytes) != formatBytes) {
    error = "unsupported format in '" + path + "': short format record";
    return false;
  }
  const WAVEFORMATEX& wave = format.Format;
  WORD tag = wave.wFormatTag;
  if (tag == kExtensible && formatBytes >= LONG(sizeof format)) tag = WORD(format.SubFormat.Data1);
  const bool isFloat = tag == WAVE_FORMAT_IEEE_FLOAT && wave.wBitsPerSample == 32;
  const bool isPcm = tag == WAVE_FORMAT_PCM &&
                     (wave.wBitsPerSample == 16 || wave.wBitsPerSample == 24 || wave.wBitsPerSample == 32);
  const WORD bytes = WORD(wave.wBitsPerSample / 8);
  if ((!isFloat && !isPcm) || wave.nChannels == 0 || wave.nSamplesPerSec == 0 ||
      wave.nBlockAlign != wave.nChannels * bytes) {
    error = "unsupported format in '" + path + "': tag " + std::to_string(wave.wFormatTag) + ", " +
            std::to_string(wave.wBitsPerSample) + " bits, " + std::to_string(wave.nChannels) + " channels";
    return false;
  }
  mmioAscend(file.Get(), &chunk, 0);
  chunk.ckid = mmioFOURCC('d', 'a', 't', 'a');
  if (mmioDescend(file.Get(), &chunk, &riff, MMIO_FINDCHUNK) != MMSYSERR_NOERROR) {
    error = "unsupported format in '" + path + "': no data chunk";
    return false;
  }
  const uint64_t frames = chunk.cksize / wave.nBlockAlign;
  if (frames * wave.nChannels > kMaxAudioFileSamples) {
    error = "unsupported format in '" + path + "': too long";
    return false;
  }
  std::vector<uint8_t> data(frames * wave.nBlockAlign);
  const LONG got = data.empty() ? 0 : mmioRead(file.Get(), reinterpret_cast<HPSTR>(data.data()), LONG(data.size()));
  if (got < 0) {
    error = "cannot read '" + path + "'";
    return false;
  }
  clip.rate = wave.nSamplesPerSec;
  clip.channels = wave.nChannels;
  const size_t samples = size_t(got) / bytes / clip.channels * clip.channels;
  clip.samples.resize(samples);
  for (size_t i = 0; i < samples; ++i) clip.samples[i] = Sample(&data[i * bytes], wave.wBitsPerSample, isFloat);
  return true;
}

bool WriteAudioFile(const std::string& path, const AudioClip& clip, std::string& error) {
  const std::string extension = std::filesystem::path(path).extension().string();
  if (extension != ".wav" && extension != ".WAV") {
    error = "cannot write '" + path + "': this build writes WAV files only";
    return false;
  }
  MmioFile file(path, MMIO_CREATE | MMIO_WRITE | MMIO_ALLOCBUF);
  if (file.Get() == nullptr) {
    error = "cannot write '" + path + "'";
    return false;
  }
  WAVEFORMATEX wave{};
  wave.wFormatTag = WAVE_FORMAT_IEEE_FLOAT;
  wave.nChannels = WORD(clip.channels);
  wave.nSamplesPerSec = clip.rate;
  wave.wBitsPerSample = 32;
  wave.nBlockAlign = WORD(clip.channels * 4);
  wave.nAvgBytesPerSec = clip.rate * wave.nBlockAlign;
  MMCKINFO riff{};
  riff.fccType = mmioFOURCC('W', 'A', 'V', 'E');
  MMCKINFO chunk{};
  chunk.ckid = mmioFOURCC('f', 'm', 't', ' ');
  const LONG dataBytes = LONG(clip.samples.size() * sizeof(float));
  bool ok = mmioCreateChunk(file.Get(), &riff, MMIO_CREATERIFF) == MMSYSERR_NOERROR &&
            mmioCreateChunk(file.Get(), &chunk, 0) == MMSYSERR_NOERROR &&
            mmioWrite(file.Get(), reinterpret_cast<const char*>(&wave), sizeof wave) == LONG(sizeof wave) &&
            mmioAscend(file.Get(), &chunk, 0) == MMSYSERR_NOERROR;
  chunk.ckid = mmioFOURCC('d', 'a', 't', 'a');
  ok = ok && mmioCreateChunk(file.Get(), &chunk, 0) == MMSYSERR_NOERROR &&
       mmioWrite(file.Get(), reinterpret_cast<const char*>(clip.samples.data()), dataBytes) == dataBytes &&
       mmioAscend(file.Get(), &chunk, 0) == MMSYSERR_NOERROR &&
       mmioAscend(file.Get(), &riff, 0) == MMSYSERR_NOERROR;
  if (!ok) error = "cannot write '" + path + "'";
  return ok;
}
