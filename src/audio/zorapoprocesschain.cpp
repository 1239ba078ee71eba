#include "audio/zorapoprocesschain.h"

#include <algorithm>

#include "audio/zormixkernels.h"

namespace {

// Copies `frames` frames between interleaved stores of different widths,
// the narrower width per frame; what the target has beyond stays as it was.
// audio thread
void CopyFrames(const float* source, uint32_t sourceChannels, float* target,
                uint32_t targetChannels, uint32_t frames) {
  if (sourceChannels == targetChannels) {
    std::copy_n(source, static_cast<size_t>(frames) * sourceChannels, target);
    return;
  }
  const uint32_t channels = std::min(sourceChannels, targetChannels);
  for (uint32_t f = 0; f < frames; ++f) {
    std::copy_n(source, channels, target);
    source += sourceChannels;
    target += targetChannels;
  }
}

}  // namespace

ZORAPOProcessChain::ZORAPOProcessChain() = default;

ZORAPOProcessChain::~ZORAPOProcessChain() { ResetChain(); }

void ZORAPOProcessChain::OnChannelData(ZORAPOProcessWrapper* /*wrapper*/,
                                       IZORAudioData<float>& data) {
  if (m_pPipeHook != nullptr) {
    m_pPipeHook->OnPipeData(m_bRender, data);
  }
}

// audio thread
void ZORAPOProcessChain::Process(IZORAudioData<float>& input, IZORAudioData<float>& output,
                                 IZORAPOProcessChainPipeHook* hook) {
  m_pPipeHook = hook;
  if (m_bBypass || !m_bBuilt) {
    ProcessBypassed(input, output, hook);
    return;
  }

  const bool sameObject = &input == &output;
  if (input.GetChannels() == m_chainChannels && output.GetChannels() == m_chainChannels) {
    if (!sameObject) {
      output.Assign(input);
    }
    m_resample.Process(&output);
    return;
  }

  // Width fit: the tuned path runs at the chain's own channel count. It works
  // in the caller's output when that can take the chain's width, else in the
  // chain's own block, whose capacity outlives the call.
  const uint32_t outputChannels = output.GetChannels();
  const bool outputFits =
      !sameObject && (outputChannels == m_chainChannels || outputChannels == 0);
  IZORAudioData<float>& target = outputFits ? output : m_widthBuffer;
  const uint32_t frames = input.GetFrames();
  const uint32_t inputChannels = input.GetChannels();
  // Read the input before the target is reallocated: they may be one object.
  target.Allocate(frames, m_chainChannels, output.GetSampleRate());
  const float* source = input.GetData(false, true);
  float* chainData = target.GetData(true, true);
  if (source != nullptr && chainData != nullptr) {
    CopyFrames(source, inputChannels, chainData, m_chainChannels, frames);
  }
  input.ReleaseData();
  target.ReleaseData();

  m_resample.Process(&target);
  if (outputFits) {
    return;
  }

  // Back to the caller's width; output keeps its shape.
  const float* result = target.GetData(false, true);
  float* out = output.GetData(false, true);
  if (result != nullptr && out != nullptr) {
    CopyFrames(result, m_chainChannels, out, outputChannels,
               std::min(target.GetFrames(), output.GetFrames()));
  }
  target.ReleaseData();
  output.ReleaseData();
}

// audio thread
void ZORAPOProcessChain::ProcessBypassed(IZORAudioData<float>& input,
                                         IZORAudioData<float>& output,
                                         IZORAPOProcessChainPipeHook* hook) {
  if (&input != &output) {
    const uint32_t inputChannels = input.GetChannels();
    const uint32_t outputChannels = output.GetChannels();
    const uint32_t frames = input.GetFrames();
    output.Allocate(frames, outputChannels, output.GetSampleRate());
    const float* source = input.GetData(false, true);
    float* target = output.GetData(true, true);
    if (source != nullptr && target != nullptr) {
      if (const ZORMixKernel kernel = ZORFindMixKernel(inputChannels, outputChannels)) {
        kernel(source, target, frames);
      } else {
        // No fixed mix for this pair: the channels both sides have pass as
        // they are, the others stay silent.
        CopyFrames(source, inputChannels, target, outputChannels, frames);
      }
    }
    input.ReleaseData();
    output.ReleaseData();
  }

  m_delay.Process(&output);

  if (hook != nullptr && !m_bRender) {
    hook->OnPipeData(false, output);
  }
}

void ZORAPOProcessChain::ResetChain() {
  m_resample.ClearProcesses();
  // A chain built anew starts from one cushion, not one per build.
  m_resample.ResetFifo();
  m_resample.SetInternalRate(0);
  m_bBuilt = false;
  m_chainChannels = 0;
  m_internalRate = 0;
  m_sampleRate = 0;
}

void ZORAPOProcessChain::TakeOverState(ZORAPOProcessChain& /*other*/) {
  // State passes between the tech processes of two built chains; an unbuilt
  // chain has none to give or take.
}

void ZORAPOProcessChain::SetChainBypass(bool bypass) { m_bBypass = bypass; }

bool ZORAPOProcessChain::BuildFromStages(uint32_t chainChannels, uint32_t sampleRate,
                                         bool isRender,
                                         std::span<IZORAudioProcess<float>* const> stages,
                                         uint32_t internalRate) {
  ResetChain();
  for (IZORAudioProcess<float>* stage : stages) {
    m_resample.AddProcess(stage);
  }
  m_chainChannels = chainChannels;
  m_sampleRate = sampleRate;
  m_internalRate = internalRate;
  m_bRender = isRender;
  m_resample.SetInternalRate(internalRate);
  if (!m_resample.Init(chainChannels, sampleRate)) {
    ResetChain();
    return false;
  }
  m_bBuilt = true;
  return true;
}
