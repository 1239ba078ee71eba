#include "audio/zorapoprocesschain.h"

#include <algorithm>
#include <array>

#include "audio/zorapoprocesswrapper.h"
#include "audio/zormixkernels.h"
#include "core/zorlog.h"

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

// Units of 10 ns per second: the unit of every latency figure.
constexpr int64_t kTimeUnitsPerSecond = 100000000;
constexpr size_t kWrapperReserve = 10;
constexpr uint32_t kCaptureRate = 16000;
constexpr std::array<uint32_t, 7> kRenderRates = {32000, 44100, 48000, 88200,
                                                  96000, 176400, 192000};

uint32_t FramesOfTime(uint64_t time, uint32_t rate) {
  return static_cast<uint32_t>(static_cast<int64_t>(rate) * static_cast<int64_t>(time) /
                               kTimeUnitsPerSecond);
}

}  // namespace

ZORAPOProcessChain::ZORAPOProcessChain() { m_wrappers.reserve(kWrapperReserve); }

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
  m_bPlayed = true;
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
    m_pad.Process(&output);
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
  m_pad.Process(&target);
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
  for (ZORAPOProcessWrapper* wrapper : m_wrappers) {
    delete wrapper;
  }
  m_wrappers.clear();
  m_wrappers.reserve(kWrapperReserve);
  // A chain built anew starts from one cushion, not one per build.
  m_resample.ResetFifo();
  m_resample.SetInternalRate(0);
  m_tuned.Close();
  m_bWatchTuning = false;
  m_chainControls.Clear();
  m_appliedValues.Clear();
  m_tunedValues.Clear();
  m_pad.SetDelay(0);
  m_bBuilt = false;
  m_bPlayed = false;
  m_bForeignStages = false;
  m_warmFrames = 0;
  m_warmChannels = 0;
  m_chainChannels = 0;
  m_internalRate = 0;
  m_sampleRate = 0;
  m_lastChain.inputLayout = ZORAPOWorkspace::kNoLayout;
  m_lastChain.outputLayout = ZORAPOWorkspace::kNoLayout;
  m_lastChain.sampleRate = 0;
}

bool ZORAPOProcessChain::IsSameBuild(const ZORAPOWorkspace& workspace) const {
  return m_lastChain.sampleRate != 0 && m_lastChain.sampleRate == workspace.sampleRate &&
         m_lastChain.inputLayout == workspace.inputLayout &&
         m_lastChain.outputLayout == workspace.outputLayout &&
         m_lastChain.endpoint.GetEndpointGuid() == workspace.endpoint.GetEndpointGuid() &&
         m_lastChain.endpoint.IsRender() == workspace.endpoint.IsRender() &&
         m_lastChain.mode.GetModeId() == workspace.mode.GetModeId();
}

bool ZORAPOProcessChain::LoadProcesses(const ZORAPOChainDesc& desc) {
  if (!desc.processes.empty() && !m_modulePin.IsLoaded()) {
    m_modulePin.Load();
  }
  for (const ZORAPOProcessDesc& process : desc.processes) {
    auto* wrapper = new ZORAPOProcessWrapper();
    if (!wrapper->Load(process.techId, process.instanceId, process.hook, 0)) {
      ZOR_LOG("VELAPOProcessChain::ConstructChain - cannot make %s (%s)\n",
              process.techId.c_str(), process.instanceId.c_str());
      delete wrapper;
      return false;
    }
    m_wrappers.push_back(wrapper);
    m_resample.AddProcess(wrapper);
  }
  return true;
}

bool ZORAPOProcessChain::ConstructChain(const ZORAPOWorkspace& workspace, uint32_t location) {
  m_location = location;
  if (workspace.inputLayout == 0 || workspace.inputLayout == ZORAPOWorkspace::kNoLayout ||
      workspace.outputLayout == 0 || workspace.outputLayout == ZORAPOWorkspace::kNoLayout ||
      workspace.sampleRate == 0) {
    m_bBuilt = false;
    return false;
  }
  if (IsSameBuild(workspace)) {
    // The processes stand as they are; forgetting what was sent makes the
    // next step send every value again, the cheapest full refresh.
    ZOR_LOG("ConstrucChain: m_lastChain == cd !!!\n");
    m_bBuilt = true;
    m_appliedValues.Clear();
    UpdateValues(true);
    return true;
  }

  ResetChain();
  ZOR_LOG("VELAPOProcessChain::ConstructChain - 0x%p\n", static_cast<void*>(this));
  const uint32_t inChannels = ChannelsFromLayout(workspace.inputLayout);
  const uint32_t outChannels = ChannelsFromLayout(workspace.outputLayout);
  // Only the stream and offload-stream locations run the stream's own width;
  // the others always run two channels.
  const bool streamLocation = location == 1 || location == 4;
  m_chainChannels = streamLocation ? std::max(inChannels, outChannels) : 2;
  m_sampleRate = workspace.sampleRate;
  m_internalRate = 0;
  m_bRender = workspace.endpoint.IsRender();

  ZORAPOChainDesc desc;
  if (!workspace.mode.GetChainDefinition().FindChain(workspace.inputLayout, workspace.outputLayout,
                                                     desc, m_bRender)) {
    return false;
  }
  if (!LoadProcesses(desc) || m_chainChannels == 0 || m_sampleRate == 0) {
    ResetChain();
    return false;
  }
  m_endpoint = workspace.endpoint;
  m_mode = workspace.mode;
  m_chainControls = desc.controls;

  m_internalRate = GetProcessingRate(m_sampleRate);
  m_resample.SetInternalRate(m_internalRate);
  // An upmixing chain at a stream location runs its processes at the input
  // width; the data passing through still has the output width.
  const uint32_t processWidth =
      streamLocation && outChannels >= 3 ? inChannels : m_chainChannels;
  m_bBuilt = m_resample.Init(processWidth, m_sampleRate);
  if (!m_bBuilt) {
    ResetChain();
    return false;
  }
  m_pad.Init(m_chainChannels, m_sampleRate);
  m_bWatchTuning = m_tuned.Open(m_endpoint, m_mode, true);
  UpdateValues(false);
  m_lastChain = workspace;
  ZOR_LOG("VELAPOProcessChain::ConstructChain : 0x%p SUCCESS - latency = %f\n",
          static_cast<void*>(this), static_cast<double>(GetLatencyTime()) / 1e8);
  return true;
}

uint32_t ZORAPOProcessChain::GetProcessingRate(uint32_t rate) const {
  if (!m_bRender) {
    return rate == kCaptureRate ? 0 : kCaptureRate;
  }
  uint32_t nearest = kRenderRates[0];
  for (const uint32_t supported : kRenderRates) {
    if (supported == rate) {
      return 0;
    }
    const auto distance = [rate](uint32_t r) { return r > rate ? r - rate : rate - r; };
    // Strictly nearer only: a tie keeps the earlier rate.
    if (distance(supported) < distance(nearest)) {
      nearest = supported;
    }
  }
  return nearest;
}

void ZORAPOProcessChain::LoadSettings() {
  m_bPublicLoaded = m_public.Open(m_endpoint.GetEndpointGuid().Guid(),
                                  m_endpoint.GetSettingsKeyPath(), m_mode, nullptr);
  m_bWatchTuning = m_tuned.Open(m_endpoint, m_mode, true);
  m_cachedModeId = m_mode.GetModeId();
  m_cachedEndpointId = m_endpoint.GetEndpointGuid().Text();
  m_bSettingsCached = true;
}

uint32_t ZORAPOProcessChain::UpdateValues(bool keepLatency) {
  if (!m_bBuilt) {
    return 2;
  }
  bool reset = true;
  bool updateLatency = true;
  if (!m_bSettingsCached || !(m_cachedModeId == m_mode.GetModeId()) ||
      m_cachedEndpointId != m_endpoint.GetEndpointGuid().Text()) {
    LoadSettings();
  } else if (keepLatency) {
    reset = false;
    updateLatency = false;
  }

  ZORUTSValueList values = m_mode.GetAllControls();
  int32_t tuningMode = 0;
  if (m_bWatchTuning) {
    tuningMode = m_tuned.GetTuningMode(true);
    m_tuned.ReadAll(m_tunedValues, true);
  }
  ZORUTSValueList publicValues;
  if (m_bPublicLoaded) {
    m_public.ReadAll(publicValues);
  }
  ZORAPOTunedSettings::StackOnto(tuningMode, m_tunedValues, publicValues, values);
  values.Merge(m_chainControls, MergeOverlay);
  if (tuningMode == 2) {
    reset = true;
  }
  if (!m_wrappers.empty()) {
    m_wrappers.front()->PassThroughSecond(reset ? 1u : 0u, nullptr, 0);
  }
  const bool applied = ApplyValues(values);
  if (updateLatency) {
    UpdateLatency();
  }
  return applied ? 1 : 0;
}

bool ZORAPOProcessChain::ApplyValues(const ZORUTSValueList& values) {
  bool differs = m_appliedValues.IsEmpty();
  for (auto it = values.begin(); !differs && it != values.end(); ++it) {
    const ZORUTSValue* sent = m_appliedValues.Find(it->first);
    differs = sent == nullptr || !(*sent == it->second);
  }
  if (!differs) {
    return false;
  }
  // One change sends everything: a process may read its controls as a set.
  for (ZORAPOProcessWrapper* wrapper : m_wrappers) {
    for (const auto& [name, value] : values) {
      wrapper->SetControl(value);
    }
  }
  m_appliedValues = values;
  return true;
}

bool ZORAPOProcessChain::TuningChanged() {
  if (!m_bWatchTuning) {
    return false;
  }
  ZORUTSValueList current;
  m_tuned.ReadAll(current, true);
  if (!m_tunedValues.ReplaceIfChanged(current)) {
    return false;
  }
  ZOR_LOG("VELAPOProcessChain::TuningChanged(0x%p)\n", static_cast<void*>(this));
  return true;
}

void ZORAPOProcessChain::UpdateLatency() {
  m_latencyFrames = 0;
  if (m_bBypass) {
    m_latencyFrames = FramesOfTime(m_minLatency, m_sampleRate);
    m_delay.SetDelay(m_latencyFrames);
    m_pad.SetDelay(0);
    return;
  }
  m_delay.SetDelay(0);
  const uint32_t rate = m_internalRate != 0 ? m_internalRate : m_sampleRate;
  m_latencyFrames = FramesOfTime(m_minLatency, rate);
  const uint32_t natural = GetNaturalLatency();
  uint32_t padFrames = 0;
  if (m_latencyFrames > natural) {
    // The pad runs at the stream's rate, after the way back.
    padFrames = static_cast<uint32_t>(static_cast<uint64_t>(m_latencyFrames - natural) *
                                      m_sampleRate / rate);
  } else {
    m_latencyFrames = natural;
  }
  m_pad.SetDelay(padFrames);
}

uint64_t ZORAPOProcessChain::GetLatencyTime() const {
  uint32_t rate = m_bBypass || m_internalRate == 0 ? m_sampleRate : m_internalRate;
  if (rate == 0) {
    return 0;
  }
  // Rounded up, so that the figure turns back into the same frame count at
  // this rate: every chain of the stream then pads to exactly one length.
  const uint64_t units = static_cast<uint64_t>(m_latencyFrames) * kTimeUnitsPerSecond;
  return (units + rate - 1) / rate;
}

uint32_t ZORAPOProcessChain::GetNaturalLatency() const {
  // The stages report their block adaption; the processes' own delay (a
  // limiter's look-ahead) comes on top.
  uint32_t frames = m_resample.GetLatency();
  for (const ZORAPOProcessWrapper* wrapper : m_wrappers) {
    frames += wrapper->GetTotalLatency() - wrapper->ZORAudioProcessBlock::GetLatency();
  }
  return frames;
}

void ZORAPOProcessChain::Warm(uint32_t frames, uint32_t inChannels, uint32_t outChannels,
                              uint32_t sampleRate) {
  const uint32_t channels = inChannels << 16 | outChannels;
  if (m_bPlayed || m_bForeignStages || frames == 0 ||
      (frames <= m_warmFrames && channels == m_warmChannels)) {
    return;
  }
  for (ZORAPOProcessWrapper* wrapper : m_wrappers) {
    wrapper->SetDry(true);
  }
  const std::vector<float> silence(size_t{frames} * inChannels, 0.0f);
  ZORAudioDataFloat input;
  ZORAudioDataFloat output;
  if (inChannels == outChannels) {
    input.AssignMemory(silence.data(), frames, inChannels, true, sampleRate);
    Process(input, input, nullptr);
  }
  input.AssignMemory(silence.data(), frames, inChannels, true, sampleRate);
  output.Allocate(frames, outChannels, sampleRate);
  Process(input, output, nullptr);
  for (ZORAPOProcessWrapper* wrapper : m_wrappers) {
    wrapper->SetDry(false);
    wrapper->Rewind();
  }
  // Silence went through the delay lines, which held silence: they hold
  // the same as before.
  m_resample.Rewind();
  m_bPlayed = false;
  m_warmFrames = frames;
  m_warmChannels = channels;
}

void ZORAPOProcessChain::TakeOverState(ZORAPOProcessChain& other) {
  for (ZORAPOProcessWrapper* wrapper : m_wrappers) {
    for (ZORAPOProcessWrapper* from : other.m_wrappers) {
      if (wrapper->TransferState(*from)) {
        break;
      }
    }
  }
}

void ZORAPOProcessChain::SetChainBypass(bool bypass) {
  m_bBypass = bypass;
  UpdateLatency();
}

bool ZORAPOProcessChain::BuildFromStages(uint32_t chainChannels, uint32_t sampleRate,
                                         bool isRender,
                                         std::span<IZORAudioProcess<float>* const> stages,
                                         uint32_t internalRate) {
  ResetChain();
  for (IZORAudioProcess<float>* stage : stages) {
    m_resample.AddProcess(stage);
  }
  m_bForeignStages = true;
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
