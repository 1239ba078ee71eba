#include "apostage.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "apo/zoraporegproperties.h"
#include "hostendpoint.h"
#include "platform/text.h"

namespace {

std::string LocationName(uint32_t location) {
  static const char* const kNames[] = {"LFX", "SFX", "MFX", "EFX", "OSFX", "OMFX"};
  return location < std::size(kNames) ? kNames[location] : "location " + std::to_string(location);
}

std::string Hex(HRESULT hr) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(hr));
  return text;
}

}  // namespace

ApoStage::ApoStage(std::string modulePath) : m_modulePath(std::move(modulePath)) {}

ApoStage::~ApoStage() { Stop(); }

bool ApoStage::Start(HostEndpoint& endpoint, uint32_t location, HostFormat& format, std::string& error) {
  m_module = HostModule::Load(m_modulePath, error);
  if (m_module == nullptr) return false;
  const ZORAPOModuleClass* entry = m_module->FindClass(location);
  if (entry == nullptr) {
    error = "the module has no effect class at location " + std::to_string(location);
    return false;
  }
  m_module->FollowStoreRoot();
  ZOREngineEmulator::Stream stream;
  stream.endpointGuid = zor::os::Utf8ToUtf16(endpoint.GuidText());
  stream.inputChannels = format.channelsIn;
  stream.outputChannels = format.channelsOut;
  stream.rate = static_cast<float>(format.rate);
  stream.maxFrames = std::max<uint32_t>(1, format.rate);  // a second: any buffer length fits
  m_engine = std::make_unique<ZOREngineEmulator>(stream);

  IUnknown* object = nullptr;
  HRESULT hr = m_module->CreateObject(entry->clsid, &object);
  if (SUCCEEDED(hr)) hr = m_engine->Adopt(object);
  if (object != nullptr) object->Release();
  const char* step = "creating the object";
  if (SUCCEEDED(hr)) step = "Initialize", hr = m_engine->Initialize();
  if (SUCCEEDED(hr)) step = "the format talks", hr = m_engine->NegotiateFormats();
  if (SUCCEEDED(hr)) step = "LockForProcess", hr = m_engine->Lock();
  if (hr != S_OK) {
    error = "the " + LocationName(location) + " effect object refused " + std::to_string(format.channelsIn) +
            " channels of 32-bit float at " + std::to_string(format.rate) + " Hz: " + step + " answered " + Hex(hr) +
            (format.channelsIn == 1 ? " (the render objects take 2, 4, 6 or 8 channels)" : "");
    m_engine.reset();
    return false;
  }
  m_channelsIn = format.channelsIn;
  m_channelsOut = format.channelsOut;
  m_input.assign(size_t(format.rate) * format.channelsIn, 0.0f);
  return true;
}

uint32_t ApoStage::Process(const float* input, float* output, uint32_t frames, bool silent) {
  // The emulator takes a buffer's length from its input's size: resize
  // within the capacity Start reserved, which allocates nothing.
  m_input.resize(size_t(frames) * m_channelsIn);
  std::memcpy(m_input.data(), input, m_input.size() * sizeof(float));
  m_engine->Process(m_input, silent ? BUFFER_SILENT : BUFFER_VALID);
  const uint32_t written = std::min(m_engine->OutputFrames(), frames);
  std::memcpy(output, m_engine->Output().data(), size_t(written) * m_channelsOut * sizeof(float));
  return written;
}

int64_t ApoStage::Latency() const {
  HNSTIME latency = 0;
  return m_engine && SUCCEEDED(m_engine->GetLatency(latency)) ? latency : 0;
}

std::vector<std::string> ApoStage::Effects() const {
  std::vector<GUID> effects;
  std::vector<std::string> names;
  if (m_engine && SUCCEEDED(m_engine->GetEffectsList(effects, nullptr))) {
    for (const GUID& effect : effects) names.push_back(zor::os::Utf16ToUtf8(zor::com::GuidText(effect)));
  }
  return names;
}

void ApoStage::Stop() {
  if (m_engine) {
    m_engine->Unlock();
    m_engine.reset();
  }
}
