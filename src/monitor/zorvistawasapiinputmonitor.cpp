#include "monitor/zorvistawasapiinputmonitor.h"

#include "core/zorlog.h"

namespace {

constexpr REFERENCE_TIME kBufferDuration = 10;  // raised by the device to its minimum
constexpr DWORD kSpeakerFrontLeft = 1;

bool IsFloatFormat(const WAVEFORMATEX& format) {
  if (format.wFormatTag == WAVE_FORMAT_IEEE_FLOAT) return true;
  if (format.wFormatTag != WAVE_FORMAT_EXTENSIBLE || format.cbSize < 22) return false;
  const auto& extensible = reinterpret_cast<const WAVEFORMATEXTENSIBLE&>(format);
  return IsEqualGUID(extensible.SubFormat, kKSDATAFORMAT_SUBTYPE_IEEE_FLOAT);
}

}  // namespace

ZORVistaWASAPIInputMonitor::~ZORVistaWASAPIInputMonitor() { Close(); }

WAVEFORMATEXTENSIBLE ZORVistaWASAPIInputMonitor::FormatOfRecord(const MonitorFormat& format) {
  WAVEFORMATEXTENSIBLE result{};
  result.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
  result.Format.nChannels = static_cast<WORD>(format.channels);
  result.Format.nSamplesPerSec = format.sampleRate;
  result.Format.wBitsPerSample = static_cast<WORD>(format.bits);
  result.Format.nBlockAlign = static_cast<WORD>(format.channels * format.bits / 8);
  result.Format.nAvgBytesPerSec = result.Format.nBlockAlign * format.sampleRate;
  result.Format.cbSize = 22;
  result.Samples.wValidBitsPerSample = static_cast<WORD>(format.bits);
  result.dwChannelMask = kSpeakerFrontLeft;
  result.SubFormat = kKSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
  return result;
}

uint32_t ZORVistaWASAPIInputMonitor::LatencyMsOf(REFERENCE_TIME latency) {
  return static_cast<uint32_t>(static_cast<float>(latency) / 10000.0 + 0.5);
}

bool ZORVistaWASAPIInputMonitor::CheckFormat(const char16_t* name, MonitorFormat* format) {
  IMMDevice* const device = FindDevice(name);
  if (!device || !format) return false;
  ZORComPtr<IAudioClient> client;
  if (FAILED(device->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, client.PutVoid()))) return false;
  const WAVEFORMATEXTENSIBLE wanted = FormatOfRecord(*format);
  const bool works = SUCCEEDED(client->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, kBufferDuration, 0,
                                                  &wanted.Format, nullptr));
  client.Reset();
  Close();
  return works;
}

bool ZORVistaWASAPIInputMonitor::Open(const char16_t* name, IZORAudioInputListener* listener,
                                      MonitorFormat* format) {
  IMMDevice* const device = FindDevice(name);
  if (!device || !format) return false;
  if (FAILED(device->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, m_pClient.PutVoid()))) {
    m_pClient.Reset();
    return false;
  }
  HRESULT initialized = E_FAIL;
  if (format->channels * format->sampleRate * format->bits == 0) {
    WAVEFORMATEX* mixFormat = nullptr;
    if (FAILED(m_pClient->GetMixFormat(&mixFormat)) || !mixFormat) return false;
    format->channels = mixFormat->nChannels;
    format->sampleRate = mixFormat->nSamplesPerSec;
    format->bits = mixFormat->wBitsPerSample;
    format->isFloat = IsFloatFormat(*mixFormat);
    initialized = m_pClient->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, kBufferDuration, 0, mixFormat, nullptr);
    CoTaskMemFree(mixFormat);
  } else {
    const WAVEFORMATEXTENSIBLE wanted = FormatOfRecord(*format);
    initialized = m_pClient->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, kBufferDuration, 0, &wanted.Format, nullptr);
  }
  if (SUCCEEDED(initialized)) {
    UINT32 frames = 0;
    if (SUCCEEDED(m_pClient->GetBufferSize(&frames))) m_bufferFrames = frames;
    REFERENCE_TIME latency = 0;
    if (SUCCEEDED(m_pClient->GetStreamLatency(&latency))) m_latencyMs = LatencyMsOf(latency);
  }
  if (SUCCEEDED(m_pClient->GetService(IID_IAudioCaptureClient, m_pCaptureClient.PutVoid()))) {
    m_pListener = listener;
  } else {
    m_pCaptureClient.Reset();
  }
  m_pDevice = ZORComPtr<IMMDevice>(device);
  if (GetMonitorState() == kClosed || GetMonitorState() == kNotInitialised) ChangeState(kOpen);
  return true;
}

void ZORVistaWASAPIInputMonitor::Close() {
  Stop();
  m_pCaptureClient.Reset();
  m_pClient.Reset();
  m_pListener = nullptr;
  ChangeState(kClosed);
}

void ZORVistaWASAPIInputMonitor::GetLatencyMs(uint32_t* latencyMs) {
  if (latencyMs) *latencyMs = m_latencyMs;
}

void ZORVistaWASAPIInputMonitor::GetBufferFrames(uint32_t* frames) {
  if (frames) *frames = m_bufferFrames;
}

bool ZORVistaWASAPIInputMonitor::Start() {
  if (!m_pListener && !m_pCaptureClient) return false;
  Stop();
  if (!m_pClient) return false;
  m_pClient->Start();
  if (!StartThread(&CaptureReadThread)) return false;
  ChangeState(kRunning);
  return true;
}

bool ZORVistaWASAPIInputMonitor::Stop() {
  if (m_pClient) m_pClient->Stop();
  if (!StopThread()) return false;
  ChangeState(kStopped);
  return true;
}

unsigned ZORVistaWASAPIInputMonitor::CaptureReadThread(void* self) {
  return static_cast<ZORVistaWASAPIInputMonitor*>(self)->ReadPackets();
}

unsigned ZORVistaWASAPIInputMonitor::ReadPackets() {
  if (!m_pClient || !m_pCaptureClient) return 0xFFFFFFFFu;
  REFERENCE_TIME defaultPeriod = 0;
  REFERENCE_TIME minimumPeriod = 0;
  m_pClient->GetDevicePeriod(&defaultPeriod, &minimumPeriod);
  const auto waitMs = static_cast<uint32_t>(minimumPeriod / 20000);  // half the minimum period
  while (!StopEvent().Wait(waitMs)) {
    if (!m_pListener) continue;
    UINT32 packet = 0;
    if (FAILED(m_pCaptureClient->GetNextPacketSize(&packet))) continue;
    while (packet > 0) {
      BYTE* data = nullptr;
      UINT32 frames = 0;
      DWORD flags = 0;
      if (FAILED(m_pCaptureClient->GetBuffer(&data, &frames, &flags, nullptr, nullptr))) break;
      uint32_t taken = frames;
      m_pListener->OnData(data, &taken);
      if (taken > frames) taken = frames;
      m_pCaptureClient->ReleaseBuffer(taken);
      if (taken == 0) break;  // a listener that takes nothing waits for the next round
      if (taken < frames) {
        packet = frames - taken;  // the rest comes again at once
        continue;
      }
      if (FAILED(m_pCaptureClient->GetNextPacketSize(&packet))) break;
    }
  }
  ZOR_LOG("Exiting thread normally.\n");
  return 0;
}
