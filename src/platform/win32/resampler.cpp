#include "platform/resampler.h"

#include <windows.h>
#include <mediaobj.h>
#include <objbase.h>

#include <cstring>

#include "platform/speexresampler.h"
#include "platform/win32/cmediabuffer.h"
#include "platform/win32/resamplermediatype.h"

namespace zor::os {
namespace {

// The system's audio resampler media object.
constexpr CLSID kResamplerClsid = {
    0xF447B69E, 0x1884, 0x4A7E, {0x80, 0x55, 0x34, 0x6F, 0x74, 0xD6, 0xED, 0xB3}};
constexpr uint32_t kBytesPerSample = 4;

// A buffer of `bytes` bytes with length 0: the long-lived one when it can
// serve, else a new one that replaces it. Null when none can be had.
CMediaBuffer* ArmBuffer(CMediaBuffer*& buffer, DWORD bytes) {
  if (buffer != nullptr && buffer->Rearm(bytes)) {
    return buffer;
  }
  if (buffer != nullptr) {
    buffer->Release();
    buffer = nullptr;
  }
  IMediaBuffer* created = nullptr;
  if (FAILED(CMediaBuffer::Create(bytes, &created))) {
    return nullptr;
  }
  buffer = static_cast<CMediaBuffer*>(created);
  return buffer;
}

}  // namespace

struct Resampler::State {
  State() = default;
  ~State() {
    ReleaseMediaObject();
    if (input != nullptr) input->Release();
    if (output != nullptr) output->Release();
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  void ReleaseMediaObject() {
    if (mediaObject != nullptr) {
      mediaObject->Release();
      mediaObject = nullptr;
    }
  }

  // Creates the object if there is none and sets both sides' types; the
  // object stays between set-ups while it takes the formats.
  bool SetUpMediaObject(uint32_t inputRate, uint32_t outputRate, uint32_t channels) {
    if (mediaObject == nullptr &&
        FAILED(::CoCreateInstance(kResamplerClsid, nullptr, CLSCTX_ALL, __uuidof(IMediaObject),
                                  reinterpret_cast<void**>(&mediaObject)))) {
      mediaObject = nullptr;
      mediaObjectUnavailable = true;
      return false;
    }
    mediaObject->FreeStreamingResources();
    if (!SetType(inputRate, channels, true) || !SetType(outputRate, channels, false) ||
        FAILED(mediaObject->AllocateStreamingResources())) {
      ReleaseMediaObject();
      return false;
    }
    return true;
  }

  bool SetType(uint32_t rate, uint32_t channels, bool isInput) {
    DMO_MEDIA_TYPE type{};
    if (FAILED(InitResamplerMediaType(type, rate, channels))) {
      return false;
    }
    const HRESULT result = isInput ? mediaObject->SetInputType(0, &type, 0)
                                   : mediaObject->SetOutputType(0, &type, 0);
    FreeResamplerMediaType(type);
    return SUCCEEDED(result);
  }

  // audio thread
  bool ConvertWithMediaObject(const float* in, uint32_t& inputSamples, float* out,
                              uint32_t& outputSamples) {
    inputSamples -= inputSamples % frameChannels;
    outputSamples -= outputSamples % frameChannels;
    DWORD status = 0;
    if (inputSamples != 0 && SUCCEEDED(mediaObject->GetInputStatus(0, &status)) &&
        (status & DMO_INPUT_STATUSF_ACCEPT_DATA) != 0) {
      CMediaBuffer* buffer = ArmBuffer(input, inputSamples * kBytesPerSample);
      BYTE* bytes = nullptr;
      if (buffer == nullptr || FAILED(buffer->GetBufferAndLength(&bytes, nullptr))) {
        inputSamples = 0;
        outputSamples = 0;
        return false;
      }
      std::memcpy(bytes, in, size_t{inputSamples} * kBytesPerSample);
      buffer->SetLength(inputSamples * kBytesPerSample);
      const HRESULT result = mediaObject->ProcessInput(0, buffer, 0, 0, 0);
      if (result == S_FALSE) {
        outputSamples = 0;
        return true;
      }
      if (FAILED(result)) {
        inputSamples = 0;
        outputSamples = 0;
        return false;
      }
    } else {
      inputSamples = 0;  // still busy with earlier input, or none: nothing consumed
    }

    CMediaBuffer* buffer = ArmBuffer(output, outputSamples * kBytesPerSample);
    if (buffer == nullptr) {
      outputSamples = 0;
      return false;
    }
    DMO_OUTPUT_DATA_BUFFER outputBuffer{};
    outputBuffer.pBuffer = buffer;
    DWORD outputStatus = 0;
    const HRESULT result = mediaObject->ProcessOutput(0, 1, &outputBuffer, &outputStatus);
    if (result == S_FALSE || FAILED(result)) {
      outputSamples = 0;
      return SUCCEEDED(result);
    }
    BYTE* bytes = nullptr;
    DWORD length = 0;
    buffer->GetBufferAndLength(&bytes, &length);
    // Whole frames only, and never more than was asked for.
    const uint32_t produced = length / (kBytesPerSample * frameChannels) * frameChannels;
    outputSamples = produced < outputSamples ? produced : outputSamples;
    std::memcpy(out, bytes, size_t{outputSamples} * kBytesPerSample);
    return true;
  }

  IMediaObject* mediaObject = nullptr;
  CMediaBuffer* input = nullptr;   // kept between calls; one reference each
  CMediaBuffer* output = nullptr;
  SpeexResampler speex;
  Engine engine = Engine::kNone;
  uint32_t frameChannels = 0;
  bool mediaObjectUnavailable = false;
};

Resampler::Resampler() = default;
Resampler::~Resampler() = default;

bool Resampler::SetFormat(uint32_t inputRate, uint32_t outputRate, uint32_t channels) {
  if (!m_state) {
    m_state = std::make_unique<State>();
  }
  State& state = *m_state;
  state.engine = Engine::kNone;
  state.frameChannels = 0;
  state.mediaObjectUnavailable = false;
  state.speex.Release();
  if (!ResamplerFormatInRange(inputRate, outputRate, channels)) {
    return false;
  }
  // The system's resampler when it is there and takes the format; speexdsp
  // when the object is missing (some editions ship without it) or refuses
  // the format (Wine's is a stub that refuses all).
  if (state.SetUpMediaObject(inputRate, outputRate, channels)) {
    state.engine = Engine::kMediaObject;
  } else if (state.speex.SetFormat(inputRate, outputRate, channels)) {
    state.engine = Engine::kSpeexDsp;
  } else {
    return false;
  }
  state.frameChannels = channels;
  return true;
}

// audio thread
bool Resampler::Convert(const float* input, uint32_t& inputSamples, float* output,
                        uint32_t& outputSamples) {
  const Engine engine = m_state ? m_state->engine : Engine::kNone;
  if (engine == Engine::kSpeexDsp) {
    return m_state->speex.Convert(input, inputSamples, output, outputSamples);
  }
  if (engine == Engine::kMediaObject && input != nullptr && output != nullptr) {
    return m_state->ConvertWithMediaObject(input, inputSamples, output, outputSamples);
  }
  inputSamples = 0;
  outputSamples = 0;
  return false;
}

Resampler::Engine Resampler::GetEngine() const {
  return m_state ? m_state->engine : Engine::kNone;
}

bool Resampler::MediaObjectUnavailable() const {
  return m_state && m_state->mediaObjectUnavailable;
}

uint32_t Resampler::GetInputLatency() const {
  return m_state && m_state->engine == Engine::kSpeexDsp ? m_state->speex.GetInputLatency() : 0;
}

}  // namespace zor::os
