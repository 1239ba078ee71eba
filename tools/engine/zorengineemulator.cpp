#include "engine/zorengineemulator.h"

#include <cstring>

#include "apo/zorapocreateinstance.h"

ZOREngineEmulator::ZOREngineEmulator(const Stream& stream)
    : m_stream(stream),
      m_fxProperties(new ZORTestPropertyStore()),
      m_devices(new ZORTestDeviceCollection(
          {(stream.renderEndpoint ? u"{0.0.0.00000000}." : u"{0.0.1.00000000}.") + stream.endpointGuid})),
      m_input(size_t{stream.maxFrames} * stream.inputChannels),
      m_output(size_t{stream.maxFrames} * stream.outputChannels) {
  if (!stream.endpointGuid.empty()) m_fxProperties->SetText(PKEY_AudioEndpoint_GUID, stream.endpointGuid);
}

ZOREngineEmulator::~ZOREngineEmulator() {
  if (m_locked) Unlock();
  Release();
  m_devices->Release();
  m_fxProperties->Release();
}

void ZOREngineEmulator::SetFormat(uint32_t inputChannels, uint32_t outputChannels, float rate) {
  m_stream.inputChannels = inputChannels;
  m_stream.outputChannels = outputChannels;
  m_stream.rate = rate;
  m_input.resize(size_t{m_stream.maxFrames} * inputChannels);
  m_output.resize(size_t{m_stream.maxFrames} * outputChannels);
}

HRESULT ZOREngineEmulator::Create(REFCLSID clsid) {
  Release();
  IUnknown* object = nullptr;
  const HRESULT hr = ZORAPOCreateInstance(clsid, nullptr, IID_IUnknown, reinterpret_cast<void**>(&object));
  if (FAILED(hr)) return hr;
  const HRESULT adopted = Adopt(object);
  object->Release();
  return adopted;
}

HRESULT ZOREngineEmulator::Adopt(IUnknown* object) {
  Release();
  HRESULT hr = object->QueryInterface(IID_IAudioProcessingObject, reinterpret_cast<void**>(&m_object));
  if (SUCCEEDED(hr)) hr = m_object->QueryInterface(IID_IAudioProcessingObjectRT, reinterpret_cast<void**>(&m_rt));
  if (SUCCEEDED(hr)) {
    hr = m_object->QueryInterface(IID_IAudioProcessingObjectConfiguration,
                                  reinterpret_cast<void**>(&m_configuration));
  }
  if (FAILED(hr)) Release();
  return hr;
}

HRESULT ZOREngineEmulator::Initialize() {
  APOInitSystemEffects2 block{};
  block.APOInit.cbSize = m_stream.newerBlock ? sizeof(APOInitSystemEffects2) : sizeof(APOInitSystemEffects);
  block.pAPOEndpointProperties = m_fxProperties;
  block.pAPOSystemEffectsProperties = m_fxProperties;
  block.pDeviceCollection = m_devices;
  block.nSoftwareIoDeviceInCollection = 0;
  block.AudioProcessingMode = m_stream.processingMode;
  block.InitializeForDiscoveryOnly = m_stream.discoveryOnly ? 1 : 0;
  return m_object->Initialize(block.APOInit.cbSize, reinterpret_cast<BYTE*>(&block));
}

HRESULT ZOREngineEmulator::NegotiateFormats() {
  IAudioMediaType* input = ZORTestMediaType::Create(ZORTestMediaType::Float(m_stream.inputChannels, m_stream.rate));
  IAudioMediaType* output = ZORTestMediaType::Create(ZORTestMediaType::Float(m_stream.outputChannels, m_stream.rate));
  IAudioMediaType* supported = nullptr;
  HRESULT hr = m_object->IsInputFormatSupported(nullptr, input, &supported);
  if (supported) supported->Release(), supported = nullptr;
  if (hr == S_OK) hr = m_object->IsOutputFormatSupported(input, output, &supported);
  if (supported) supported->Release();
  input->Release();
  output->Release();
  return hr;
}

HRESULT ZOREngineEmulator::Lock() {
  IAudioMediaType* input = ZORTestMediaType::Create(ZORTestMediaType::Float(m_stream.inputChannels, m_stream.rate));
  IAudioMediaType* output = ZORTestMediaType::Create(ZORTestMediaType::Float(m_stream.outputChannels, m_stream.rate));
  ZORTestConnection in(input, m_input.data(), m_stream.maxFrames);
  ZORTestConnection out(output, m_output.data(), m_stream.maxFrames);
  input->Release();
  output->Release();
  const HRESULT hr = m_configuration->LockForProcess(1, &in.entry, 1, &out.entry);
  if (SUCCEEDED(hr)) m_locked = true;
  return hr;
}

uint32_t ZOREngineEmulator::Process(const std::vector<float>& input, uint32_t flags, uint32_t outputFrames) {
  const size_t samples = input.size() < m_input.size() ? input.size() : m_input.size();
  std::memcpy(m_input.data(), input.data(), samples * sizeof(float));
  const uint32_t frames = static_cast<uint32_t>(samples / (m_stream.inputChannels ? m_stream.inputChannels : 1));
  m_inputProperty = {reinterpret_cast<UINT_PTR>(m_input.data()), frames, static_cast<APO_BUFFER_FLAGS>(flags),
                     APO_CONNECTION_PROPERTY_SIGNATURE};
  m_outputProperty = {reinterpret_cast<UINT_PTR>(m_output.data()), outputFrames == kSameFrames ? frames : outputFrames,
                      BUFFER_INVALID,
                      APO_CONNECTION_PROPERTY_SIGNATURE};
  APO_CONNECTION_PROPERTY* in = &m_inputProperty;
  APO_CONNECTION_PROPERTY* out = &m_outputProperty;
  m_rt->APOProcess(1, &in, 1, &out);
  return static_cast<uint32_t>(m_outputProperty.u32BufferFlags);
}

HRESULT ZOREngineEmulator::GetLatency(HNSTIME& latency) { return m_object->GetLatency(&latency); }

HRESULT ZOREngineEmulator::GetEffectsList(std::vector<GUID>& effects, HANDLE event) {
  effects.clear();
  IAudioSystemEffects2* list = nullptr;
  HRESULT hr = m_object->QueryInterface(IID_IAudioSystemEffects2, reinterpret_cast<void**>(&list));
  if (FAILED(hr)) return hr;
  GUID* ids = nullptr;
  UINT count = 0;
  hr = list->GetEffectsList(&ids, &count, event);
  list->Release();
  if (ids) effects.assign(ids, ids + count);
  CoTaskMemFree(ids);
  return hr;
}

HRESULT ZOREngineEmulator::Unlock() {
  m_locked = false;
  return m_configuration->UnlockForProcess();
}

void ZOREngineEmulator::Release() {
  for (IUnknown* held : {static_cast<IUnknown*>(m_rt), static_cast<IUnknown*>(m_configuration),
                         static_cast<IUnknown*>(m_object)}) {
    if (held) held->Release();
  }
  m_rt = nullptr;
  m_configuration = nullptr;
  m_object = nullptr;
  m_locked = false;
}

HRESULT ZOREngineEmulator::RunLifeCycle(REFCLSID clsid, const std::vector<float>& input, uint32_t buffers) {
  const HRESULT hr = Create(clsid);
  return SUCCEEDED(hr) ? RunLifeCycle(input, buffers) : hr;
}

HRESULT ZOREngineEmulator::RunLifeCycle(const std::vector<float>& input, uint32_t buffers) {
  HRESULT hr = Initialize();
  if (SUCCEEDED(hr)) hr = NegotiateFormats();
  if (SUCCEEDED(hr)) hr = Lock();
  if (FAILED(hr)) return hr;
  for (uint32_t i = 0; i < buffers; ++i) Process(input, BUFFER_VALID);
  HNSTIME latency = 0;
  hr = GetLatency(latency);
  std::vector<GUID> effects;
  // Capture objects have no effect list; the engine doesn't ask them.
  const HRESULT listed = GetEffectsList(effects, nullptr);
  if (SUCCEEDED(hr) && FAILED(listed) && listed != E_NOINTERFACE) hr = listed;
  const HRESULT unlocked = Unlock();
  return SUCCEEDED(hr) ? unlocked : hr;
}
