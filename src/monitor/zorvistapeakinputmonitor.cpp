#include "monitor/zorvistapeakinputmonitor.h"

#include "core/zorlog.h"

namespace {
constexpr REFERENCE_TIME kBufferDuration = 10;  // raised by the device to its minimum
}

ZORVistaPeakInputMonitor::~ZORVistaPeakInputMonitor() { Close(); }

bool ZORVistaPeakInputMonitor::Open(const char16_t* name, IZORAudioInputListener* listener,
                                    MonitorFormat* format) {
  IMMDevice* const device = FindDevice(name);
  if (!device) return false;
  if (SUCCEEDED(device->Activate(IID_IAudioMeterInformation, CLSCTX_ALL, nullptr, m_pMeter.PutVoid()))) {
    UINT channels = 0;
    m_pMeter->GetMeteringChannelCount(&channels);
    ZOR_LOG("Number of channels: %d\n", static_cast<int>(channels));
  } else {
    m_pMeter.Reset();
  }
  if (FAILED(device->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, m_pClient.PutVoid()))) {
    m_pClient.Reset();
    return false;
  }
  WAVEFORMATEX* mixFormat = nullptr;
  if (SUCCEEDED(m_pClient->GetMixFormat(&mixFormat)) && mixFormat) {
    m_pClient->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, kBufferDuration, 0, mixFormat, nullptr);
    CoTaskMemFree(mixFormat);
  }
  m_pListener = listener;
  if (m_pListener && format) {
    format->channels = 1;
    format->bits = 32;
    format->isFloat = true;
    m_pListener->OnFormat(format);
  }
  m_pDevice = ZORComPtr<IMMDevice>(device);
  if (GetMonitorState() == kClosed || GetMonitorState() == kNotInitialised) ChangeState(kOpen);
  return true;
}

void ZORVistaPeakInputMonitor::Close() {
  Stop();
  m_pClient.Reset();
  m_pMeter.Reset();
  m_pListener = nullptr;
  ChangeState(kClosed);
}

void ZORVistaPeakInputMonitor::GetLatencyMs(uint32_t* latencyMs) {
  if (latencyMs) *latencyMs = 0;
}

void ZORVistaPeakInputMonitor::GetBufferFrames(uint32_t* frames) {
  if (frames) *frames = 1;
}

bool ZORVistaPeakInputMonitor::Start() {
  if (!m_pListener) return false;
  Stop();
  if (!m_pClient) return false;
  m_pClient->Start();
  if (!StartThread(&PeakReadThread)) return false;
  ChangeState(kRunning);
  return true;
}

bool ZORVistaPeakInputMonitor::Stop() {
  if (m_pClient) m_pClient->Stop();
  if (!StopThread()) return false;
  ChangeState(kStopped);
  return true;
}

unsigned ZORVistaPeakInputMonitor::PeakReadThread(void* self) {
  return static_cast<ZORVistaPeakInputMonitor*>(self)->ReadPeaks();
}

unsigned ZORVistaPeakInputMonitor::ReadPeaks() {
  if (!m_pMeter || !m_pClient) return 0xFFFFFFFFu;
  REFERENCE_TIME defaultPeriod = 0;
  REFERENCE_TIME minimumPeriod = 0;
  m_pClient->GetDevicePeriod(&defaultPeriod, &minimumPeriod);
  // The mean of the two periods, in ms.
  const auto waitMs = static_cast<uint32_t>((defaultPeriod + minimumPeriod) / 20000);
  while (!StopEvent().Wait(waitMs)) {
    if (!m_pListener) continue;
    float peak = 0.0f;
    if (FAILED(m_pMeter->GetPeakValue(&peak))) continue;  // skips one reading
    uint32_t frames = 1;
    m_pListener->OnData(&peak, &frames);
  }
  ZOR_LOG("Exiting thread normally.\n");
  return 0;
}
