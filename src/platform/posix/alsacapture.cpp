#include "platform/posix/alsacapture.h"

#include <alsa/asoundlib.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <mutex>
#include <vector>

#include "platform/comobject.h"
#include "platform/text.h"

namespace zor::os {
namespace {

constexpr HRESULT kExclusiveModeNotAllowed = MakeHresult(0x8889000Eu);  // AUDCLNT_E_EXCLUSIVE_MODE_NOT_ALLOWED
constexpr HRESULT kEventHandleNotExpected = MakeHresult(0x88890014u);   // AUDCLNT_E_EVENTHANDLE_NOT_EXPECTED
constexpr HRESULT kNotStopped = MakeHresult(0x88890005u);               // AUDCLNT_E_NOT_STOPPED
constexpr REFERENCE_TIME kUnitsPerSecond = 10000000;

// libasound prints its own complaints on stderr; ours are the HRESULTs.
void QuietAlsa(const char*, int, const char*, int, const char*, ...) {}
void SilenceAlsaOnce() {
  static std::once_flag once;
  std::call_once(once, [] { snd_lib_error_set_handler(&QuietAlsa); });
}

snd_pcm_format_t AlsaFormatOf(const WaveFormatRecord& format) {
  if (format.isFloat) return SND_PCM_FORMAT_FLOAT_LE;
  return format.bits == 16 ? SND_PCM_FORMAT_S16_LE : SND_PCM_FORMAT_S32_LE;
}

uint32_t FramesOf(REFERENCE_TIME duration, uint32_t rate) {
  return static_cast<uint32_t>(duration * rate / kUnitsPerSecond);
}

// One ALSA capture stream, non-blocking, that never runs ahead of the clock:
// a device that answers at once (ALSA's null device under a file plugin, as
// in the tests) is read at its rate, and a reader that falls more than a
// buffer behind loses the oldest frames, as it would on a device.
class AlsaStream {
 public:
  ~AlsaStream() { Close(); }

  HRESULT Open(const std::string& device, const WaveFormatRecord& format, uint32_t bufferFrames) {
    SilenceAlsaOnce();
    if (snd_pcm_open(&m_pcm, device.c_str(), SND_PCM_STREAM_CAPTURE, SND_PCM_NONBLOCK) < 0) {
      m_pcm = nullptr;
      return AUDCLNT_E_DEVICE_INVALIDATED;
    }
    snd_pcm_hw_params_t* params = nullptr;
    snd_pcm_hw_params_alloca(&params);
    snd_pcm_uframes_t ring = std::max<snd_pcm_uframes_t>(bufferFrames, 2 * FramesOf(kAlsaDefaultPeriod, format.sampleRate));
    if (snd_pcm_hw_params_any(m_pcm, params) < 0 ||
        snd_pcm_hw_params_set_access(m_pcm, params, SND_PCM_ACCESS_RW_INTERLEAVED) < 0 ||
        snd_pcm_hw_params_set_format(m_pcm, params, AlsaFormatOf(format)) < 0 ||
        snd_pcm_hw_params_set_channels(m_pcm, params, format.channels) < 0 ||
        snd_pcm_hw_params_set_rate(m_pcm, params, format.sampleRate, 0) < 0 ||
        snd_pcm_hw_params_set_buffer_size_near(m_pcm, params, &ring) < 0 || snd_pcm_hw_params(m_pcm, params) < 0) {
      Close();
      return AUDCLNT_E_UNSUPPORTED_FORMAT;
    }
    m_format = format;
    m_bufferFrames = bufferFrames;
    return S_OK;
  }

  void Close() {
    if (m_pcm) snd_pcm_close(m_pcm);
    m_pcm = nullptr;
  }

  bool Start() {
    if (!m_pcm || snd_pcm_prepare(m_pcm) < 0) return false;
    snd_pcm_start(m_pcm);
    m_epoch = Clock::now();
    m_taken = 0;
    return true;
  }
  void Stop() {
    if (m_pcm) snd_pcm_drop(m_pcm);
  }

  // Reads up to `frames` frames into `out`, no more than the clock allows;
  // the number read. Frames the reader let fall more than a buffer behind
  // are dropped first and counted in `lost`.
  uint32_t Read(uint8_t* out, uint32_t frames, uint64_t& lost) {
    if (!m_pcm) return 0;
    const uint64_t due = Due();
    if (due > m_taken + m_bufferFrames) {
      const uint64_t behind = due - m_taken - m_bufferFrames;
      lost += behind;
      Skip(behind);
    }
    const uint64_t allowed = std::min<uint64_t>(frames, Due() - m_taken);
    uint32_t read = 0;
    while (read < allowed) {
      const snd_pcm_sframes_t got =
          snd_pcm_readi(m_pcm, out + static_cast<size_t>(read) * BlockAlign(), allowed - read);
      if (got == -EAGAIN || got == 0) break;
      if (got < 0) {
        // An overrun of the device itself: its lost frames are unknown here.
        ++lost;
        if (snd_pcm_recover(m_pcm, static_cast<int>(got), 1) < 0) break;
        snd_pcm_start(m_pcm);
        continue;
      }
      read += static_cast<uint32_t>(got);
    }
    m_taken += read;
    return read;
  }

  uint32_t Ready() {
    if (!m_pcm) return 0;
    const uint64_t due = Due() - m_taken;
    const snd_pcm_sframes_t available = snd_pcm_avail(m_pcm);
    if (available < 0) return static_cast<uint32_t>(std::min<uint64_t>(due, m_bufferFrames));
    return static_cast<uint32_t>(std::min<uint64_t>({due, static_cast<uint64_t>(available), m_bufferFrames}));
  }

  uint32_t BlockAlign() const { return m_format.channels * m_format.bits / 8; }
  const WaveFormatRecord& Format() const { return m_format; }
  uint64_t Position() const { return m_taken; }

 private:
  using Clock = std::chrono::steady_clock;

  uint64_t Due() const {
    const auto elapsed = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - m_epoch).count();
    return static_cast<uint64_t>(elapsed) * m_format.sampleRate / 1000000000u;
  }

  void Skip(uint64_t frames) {
    std::vector<uint8_t> scratch(static_cast<size_t>(std::min<uint64_t>(frames, 4096)) * BlockAlign());
    while (frames > 0) {
      const auto chunk = static_cast<snd_pcm_uframes_t>(std::min<uint64_t>(frames, 4096));
      const snd_pcm_sframes_t got = snd_pcm_readi(m_pcm, scratch.data(), chunk);
      if (got <= 0) break;
      frames -= static_cast<uint64_t>(got);
      m_taken += static_cast<uint64_t>(got);
    }
    m_taken += frames;  // what the device did not have is gone all the same
  }

  snd_pcm_t* m_pcm = nullptr;
  WaveFormatRecord m_format;
  uint32_t m_bufferFrames = 0;
  Clock::time_point m_epoch = Clock::now();
  uint64_t m_taken = 0;
};

WAVEFORMATEX* CoTaskMemFormat(const WaveFormatRecord& format) {
  uint8_t bytes[40];
  WriteWaveFormatRecord(format, bytes);
  auto* copy = static_cast<WAVEFORMATEX*>(CoTaskMemAlloc(sizeof bytes));
  if (copy) std::memcpy(copy, bytes, sizeof bytes);
  return copy;
}

bool RecordOf(const WAVEFORMATEX* format, WaveFormatRecord& record) {
  // The caller's record says its own length; a plain one has cbSize too.
  const auto* bytes = reinterpret_cast<const uint8_t*>(format);
  const size_t size = 18 + format->cbSize;
  return size <= 18 + 22 && ParseWaveFormatRecord({bytes, size}, record);
}


class AlsaAudioClient;

// The capture service of a client; it keeps its client alive.
class AlsaCaptureClient final : public ComObject<IAudioCaptureClient> {
 public:
  explicit AlsaCaptureClient(AlsaAudioClient* client);
  ~AlsaCaptureClient() override;
  HRESULT STDMETHODCALLTYPE GetBuffer(BYTE** data, UINT32* frames, DWORD* flags, UINT64* devicePosition,
                                      UINT64* counterPosition) override;
  HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 framesRead) override;
  HRESULT STDMETHODCALLTYPE GetNextPacketSize(UINT32* frames) override;

 private:
  AlsaAudioClient* m_client;
};

class AlsaAudioClient final : public ComObject<IAudioClient> {
 public:
  explicit AlsaAudioClient(AlsaCaptureEndpoint endpoint)
      : ComObject<IAudioClient>(IID_IAudioClient), m_endpoint(std::move(endpoint)) {}

  HRESULT STDMETHODCALLTYPE Initialize(AUDCLNT_SHAREMODE shareMode, DWORD flags, REFERENCE_TIME duration,
                                       REFERENCE_TIME, const WAVEFORMATEX* format, LPCGUID) override {
    const std::lock_guard<std::mutex> lock(m_lock);
    if (m_initialized) return AUDCLNT_E_ALREADY_INITIALIZED;
    if (!format) return E_POINTER;
    if (shareMode != AUDCLNT_SHAREMODE_SHARED) return kExclusiveModeNotAllowed;
    if (flags != 0 || duration < 0) return E_INVALIDARG;  // no event, loopback or other modes here
    WaveFormatRecord record;
    if (!RecordOf(format, record)) return AUDCLNT_E_UNSUPPORTED_FORMAT;
    // As in shared mode elsewhere, a short request gets the device's minimum.
    const REFERENCE_TIME buffer = std::max(duration, kAlsaMinimumBuffer);
    const HRESULT opened = m_stream.Open(m_endpoint.device, record, FramesOf(buffer, record.sampleRate));
    if (FAILED(opened)) return opened;
    m_bufferFrames = FramesOf(buffer, record.sampleRate);
    m_packetFrames = FramesOf(kAlsaDefaultPeriod, record.sampleRate);
    m_packet.assign(static_cast<size_t>(m_bufferFrames) * m_stream.BlockAlign(), 0);
    m_initialized = true;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetBufferSize(UINT32* frames) override {
    if (!frames) return E_POINTER;
    const std::lock_guard<std::mutex> lock(m_lock);
    if (!m_initialized) return AUDCLNT_E_NOT_INITIALIZED;
    *frames = m_bufferFrames;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetStreamLatency(REFERENCE_TIME* latency) override {
    if (!latency) return E_POINTER;
    const std::lock_guard<std::mutex> lock(m_lock);
    if (!m_initialized) return AUDCLNT_E_NOT_INITIALIZED;
    *latency = kAlsaDefaultPeriod;  // a packet is handed on once whole
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetCurrentPadding(UINT32* frames) override {
    if (!frames) return E_POINTER;
    const std::lock_guard<std::mutex> lock(m_lock);
    if (!m_initialized) return AUDCLNT_E_NOT_INITIALIZED;
    *frames = m_pending + (m_running ? m_stream.Ready() : 0);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE IsFormatSupported(AUDCLNT_SHAREMODE shareMode, const WAVEFORMATEX* format,
                                              WAVEFORMATEX** closest) override {
    if (!format) return E_POINTER;
    if (closest) *closest = nullptr;
    if (shareMode != AUDCLNT_SHAREMODE_SHARED) return kExclusiveModeNotAllowed;
    WaveFormatRecord record;
    if (!RecordOf(format, record)) return AUDCLNT_E_UNSUPPORTED_FORMAT;
    AlsaStream probe;
    return SUCCEEDED(probe.Open(m_endpoint.device, record, FramesOf(kAlsaMinimumBuffer, record.sampleRate)))
               ? S_OK
               : AUDCLNT_E_UNSUPPORTED_FORMAT;
  }
  HRESULT STDMETHODCALLTYPE GetMixFormat(WAVEFORMATEX** format) override {
    if (!format) return E_POINTER;
    *format = CoTaskMemFormat(m_endpoint.mixFormat);
    return *format ? S_OK : E_OUTOFMEMORY;
  }
  HRESULT STDMETHODCALLTYPE GetDevicePeriod(REFERENCE_TIME* defaultPeriod, REFERENCE_TIME* minimumPeriod) override {
    if (!defaultPeriod && !minimumPeriod) return E_POINTER;
    if (defaultPeriod) *defaultPeriod = kAlsaDefaultPeriod;
    if (minimumPeriod) *minimumPeriod = kAlsaMinimumPeriod;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Start() override {
    const std::lock_guard<std::mutex> lock(m_lock);
    if (!m_initialized) return AUDCLNT_E_NOT_INITIALIZED;
    if (m_running) return kNotStopped;
    if (!m_stream.Start()) return AUDCLNT_E_DEVICE_INVALIDATED;
    m_running = true;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Stop() override {
    const std::lock_guard<std::mutex> lock(m_lock);
    if (!m_initialized) return AUDCLNT_E_NOT_INITIALIZED;
    if (!m_running) return S_FALSE;
    m_stream.Stop();
    m_running = false;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Reset() override {
    const std::lock_guard<std::mutex> lock(m_lock);
    if (!m_initialized) return AUDCLNT_E_NOT_INITIALIZED;
    if (m_running) return kNotStopped;
    m_pending = 0;
    m_offset = 0;
    m_inBuffer = false;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetEventHandle(HANDLE) override { return kEventHandleNotExpected; }
  HRESULT STDMETHODCALLTYPE GetService(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    {
      const std::lock_guard<std::mutex> lock(m_lock);
      if (!m_initialized) return AUDCLNT_E_NOT_INITIALIZED;
    }
    if (!IsEqualIID(riid, IID_IAudioCaptureClient)) return E_NOINTERFACE;
    *ppv = static_cast<IAudioCaptureClient*>(new AlsaCaptureClient(this));
    return S_OK;
  }

  // ---- The capture service's calls ----

  HRESULT NextPacket(UINT32* frames) {
    if (!frames) return E_POINTER;
    const std::lock_guard<std::mutex> lock(m_lock);
    if (m_pending == 0 && !m_inBuffer) Fill();
    *frames = m_pending;
    return S_OK;
  }

  HRESULT Buffer(BYTE** data, UINT32* frames, DWORD* flags, UINT64* devicePosition, UINT64* counterPosition) {
    if (!data || !frames || !flags) return E_POINTER;
    const std::lock_guard<std::mutex> lock(m_lock);
    *data = nullptr;
    *frames = 0;
    *flags = 0;
    if (m_inBuffer) return AUDCLNT_E_OUT_OF_ORDER;
    if (m_pending == 0) Fill();
    if (m_pending == 0) return AUDCLNT_S_BUFFER_EMPTY;
    *data = m_packet.data() + static_cast<size_t>(m_offset) * m_stream.BlockAlign();
    *frames = m_pending;
    if (m_discontinuity) *flags |= AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY;
    m_discontinuity = false;
    if (devicePosition) *devicePosition = m_packetPosition + m_offset;
    if (counterPosition) {
      *counterPosition = static_cast<UINT64>(
          std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
              .count() /
          100);
    }
    m_inBuffer = true;
    return S_OK;
  }

  // Takes any part of the packet: what is not released comes first in the
  // next GetBuffer.
  HRESULT ReleaseFrames(UINT32 framesRead) {
    const std::lock_guard<std::mutex> lock(m_lock);
    if (!m_inBuffer) return AUDCLNT_E_OUT_OF_ORDER;
    if (framesRead > m_pending) return AUDCLNT_E_INVALID_SIZE;
    m_inBuffer = false;
    m_offset += framesRead;
    m_pending -= framesRead;
    return S_OK;
  }

 private:
  // A whole period of frames, when the device has one.
  void Fill() {
    if (!m_running || m_stream.Ready() < m_packetFrames) return;
    uint64_t lost = 0;
    m_pending = m_stream.Read(m_packet.data(), m_packetFrames, lost);
    m_packetPosition = m_stream.Position() - m_pending;
    m_offset = 0;
    if (lost > 0) m_discontinuity = true;
  }

  const AlsaCaptureEndpoint m_endpoint;
  std::mutex m_lock;
  AlsaStream m_stream;
  bool m_initialized = false;
  bool m_running = false;
  uint32_t m_bufferFrames = 0;
  uint32_t m_packetFrames = 0;
  std::vector<uint8_t> m_packet;
  uint32_t m_pending = 0;
  uint32_t m_offset = 0;
  uint64_t m_packetPosition = 0;
  bool m_inBuffer = false;
  bool m_discontinuity = false;
};

AlsaCaptureClient::AlsaCaptureClient(AlsaAudioClient* client)
    : ComObject<IAudioCaptureClient>(IID_IAudioCaptureClient), m_client(client) { m_client->AddRef(); }
AlsaCaptureClient::~AlsaCaptureClient() { m_client->Release(); }
HRESULT AlsaCaptureClient::GetBuffer(BYTE** data, UINT32* frames, DWORD* flags, UINT64* devicePosition,
                                     UINT64* counterPosition) {
  return m_client->Buffer(data, frames, flags, devicePosition, counterPosition);
}
HRESULT AlsaCaptureClient::ReleaseBuffer(UINT32 framesRead) { return m_client->ReleaseFrames(framesRead); }
HRESULT AlsaCaptureClient::GetNextPacketSize(UINT32* frames) { return m_client->NextPacket(frames); }

// ALSA has no endpoint meter: this one runs a capture of its own from the
// moment it is made, and answers the peak of what came since the last read.
class AlsaMeter final : public ComObject<IAudioMeterInformation> {
 public:
  AlsaMeter() : ComObject<IAudioMeterInformation>(IID_IAudioMeterInformation) {}
  HRESULT Open(const AlsaCaptureEndpoint& endpoint) {
    const uint32_t frames = FramesOf(kAlsaMinimumBuffer, endpoint.mixFormat.sampleRate);
    const HRESULT opened = m_stream.Open(endpoint.device, endpoint.mixFormat, frames);
    if (FAILED(opened)) return opened;
    m_scratch.resize(static_cast<size_t>(frames) * m_stream.BlockAlign());
    m_peaks.assign(endpoint.mixFormat.channels, 0.0f);
    return m_stream.Start() ? S_OK : AUDCLNT_E_DEVICE_INVALIDATED;
  }

  HRESULT STDMETHODCALLTYPE GetPeakValue(float* peak) override {
    if (!peak) return E_POINTER;
    const std::lock_guard<std::mutex> lock(m_lock);
    Drain();
    *peak = *std::max_element(m_peaks.begin(), m_peaks.end());
    std::fill(m_peaks.begin(), m_peaks.end(), 0.0f);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetMeteringChannelCount(UINT* count) override {
    if (!count) return E_POINTER;
    *count = static_cast<UINT>(m_peaks.size());
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetChannelsPeakValues(UINT32 count, float* peaks) override {
    if (!peaks) return E_POINTER;
    if (count != m_peaks.size()) return E_INVALIDARG;
    const std::lock_guard<std::mutex> lock(m_lock);
    Drain();
    std::copy(m_peaks.begin(), m_peaks.end(), peaks);
    std::fill(m_peaks.begin(), m_peaks.end(), 0.0f);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE QueryHardwareSupport(DWORD* mask) override {
    if (!mask) return E_POINTER;
    *mask = 0;  // all in software
    return S_OK;
  }

 private:
  // One read of at most a buffer: the stream drops anything older, and a loop until caught up
  // could chase the clock for ever on a starved thread and never hand a reading back.
  void Drain() {
    const WaveFormatRecord& format = m_stream.Format();
    const uint32_t capacity = static_cast<uint32_t>(m_scratch.size() / m_stream.BlockAlign());
    uint64_t lost = 0;
    const uint32_t read = m_stream.Read(m_scratch.data(), capacity, lost);
    for (uint32_t sample = 0; sample < read * format.channels; ++sample) {
      float& peak = m_peaks[sample % format.channels];
      peak = std::max(peak, std::fabs(SampleAt(sample)));
    }
  }

  float SampleAt(uint32_t index) const {
    const WaveFormatRecord& format = m_stream.Format();
    const uint8_t* at = m_scratch.data() + static_cast<size_t>(index) * (format.bits / 8);
    if (format.isFloat) {
      float value;
      std::memcpy(&value, at, sizeof value);
      return std::isfinite(value) ? value : 0.0f;
    }
    if (format.bits == 16) {
      int16_t value;
      std::memcpy(&value, at, sizeof value);
      return static_cast<float>(value) / 32768.0f;
    }
    int32_t value;
    std::memcpy(&value, at, sizeof value);
    return static_cast<float>(static_cast<double>(value) / 2147483648.0);
  }

  std::mutex m_lock;
  AlsaStream m_stream;
  std::vector<uint8_t> m_scratch;
  std::vector<float> m_peaks;
};

}  // namespace

AlsaCaptureEndpoint AlsaCaptureEndpointOf(IPropertyStore* properties) {
  AlsaCaptureEndpoint endpoint;
  if (!properties) return endpoint;
  ZORPropVariant device;
  if (SUCCEEDED(properties->GetValue(kPKEY_VelApo_AlsaDevice, device.Put())) && device.Get().vt == VT_LPWSTR &&
      device.Get().pwszVal && device.Get().pwszVal[0] != 0) {
    endpoint.device = Utf16ToUtf8(com::FromComText(device.Get().pwszVal));
  }
  ZORPropVariant format;
  WaveFormatRecord record;
  if (SUCCEEDED(properties->GetValue(kPKEY_VelApo_MixFormat, format.Put())) && format.Get().vt == VT_BLOB &&
      ParseWaveFormatRecord({format.Get().blob.pBlobData, format.Get().blob.cbSize}, record)) {
    endpoint.mixFormat = record;
  }
  return endpoint;
}

HRESULT CreateAlsaCaptureObject(const AlsaCaptureEndpoint& endpoint, REFIID riid, void** ppv) {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  if (IsEqualIID(riid, IID_IAudioClient)) {
    *ppv = static_cast<IAudioClient*>(new AlsaAudioClient(endpoint));
    return S_OK;
  }
  if (IsEqualIID(riid, IID_IAudioMeterInformation)) {
    auto* meter = new AlsaMeter;
    const HRESULT opened = meter->Open(endpoint);
    if (FAILED(opened)) {
      meter->Release();
      return opened;
    }
    *ppv = static_cast<IAudioMeterInformation*>(meter);
    return S_OK;
  }
  return E_NOINTERFACE;
}

}  // namespace zor::os
