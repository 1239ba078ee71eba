#include "audio/zorapoprocesswrapper.h"

#include <algorithm>

#include "audio/zorapoprocesschain.h"

namespace {

constexpr uint32_t kSideChannelRole = IZORAudioData<float>::kSideChannelRole;
// A process that takes blocks of any size sees the host's, which come every
// 10 ms or so; the side channel is prepared for ten times that, and a longer
// one reaches the hooks in parts.
constexpr uint32_t kSideChannelBlocksPerSecond = 10;

bool Contains(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }

}  // namespace

ZORAPOProcessWrapper::~ZORAPOProcessWrapper() {
  m_tech = nullptr;
  m_library.DestroyProcess();
}

bool ZORAPOProcessWrapper::Load(const std::string& techId, const std::string& instanceId,
                                const std::string& /*hook*/, uint32_t /*flags*/) {
  m_name.clear();
  m_library.DestroyProcess();
  m_tech = nullptr;
  m_preHook = nullptr;
  m_postHook = nullptr;
  m_channels = 0;
  if (!m_library.CreateProcess(techId, instanceId) || m_library.GetProcess() == nullptr) {
    return false;
  }
  m_tech = m_library.GetProcess();
  m_name = instanceId;
  return true;
}

uint32_t ZORAPOProcessWrapper::GetTotalLatency() const {
  const uint32_t own = m_tech != nullptr ? m_tech->table->GetLatency(m_tech) : 0;
  return GetLatency() + own;
}

bool ZORAPOProcessWrapper::Init(uint32_t channels, uint32_t sampleRate) {
  m_channels = 0;
  m_sampleRate = 0;
  SetBlockSize(0, channels);
  if (m_tech == nullptr || m_tech->table->Init(m_tech, channels, sampleRate) == 0) return false;
  m_sampleRate = sampleRate;
  m_channels = channels;
  const uint32_t blockFrames = m_tech->table->GetBlockSize(m_tech);
  SetBlockSize(blockFrames, channels);

  // Everything ProcessBlock and the side channel use is sized here, for the
  // widest and longest block the chain can hand over, so that the audio
  // thread never allocates: the chain fits every block to the width it gave
  // Init, and block adaption hands over blocks of the process's size.
  m_nodes.assign(channels, ZORChannelNode{});
  m_sideChannelFrames = blockFrames != 0 ? blockFrames
                                         : std::max(sampleRate / kSideChannelBlocksPerSecond, 1u);
  m_sideChannel.Allocate(m_sideChannelFrames, 1, sampleRate);
  m_sideChannel.GetData(true, false);
  m_sideChannel.ReleaseData();
  return true;
}

void ZORAPOProcessWrapper::SetBypass(bool bypass) { m_bypass.exchange(bypass ? 1u : 0u); }

bool ZORAPOProcessWrapper::GetBypass() const { return m_bypass.load() != 0; }

// audio thread
void ZORAPOProcessWrapper::ProcessBlock(IZORAudioData<float>* data) {
  if (data == nullptr || m_tech == nullptr) return;
  const uint32_t frames = data->GetFrames();
  // The process was prepared for Init's channels; any beyond pass untouched.
  const uint32_t channels = std::min(data->GetChannels(), static_cast<uint32_t>(m_nodes.size()));
  float* base = data->GetData(true, false);
  for (uint32_t c = 0; c < channels; ++c) {
    ZORChannelNode& node = m_nodes[c];
    node.samples = base != nullptr ? base + static_cast<size_t>(frames) * c : nullptr;
    node.role = data->GetChannelRole(c);
    node.reserved = 0;
    node.next = c + 1 < channels ? &m_nodes[c + 1] : nullptr;
  }
  ZORProcessHook* hook = nullptr;
  if (m_preHook != nullptr || m_postHook != nullptr) {
    m_hookRecord.callback = &ZORAPOProcessWrapper::OnSideChannel;
    m_hookRecord.context = this;
    hook = &m_hookRecord;
  }
  ZORChannelNode* list = channels > 0 ? m_nodes.data() : nullptr;
  if (!m_bDry) {
    m_tech->table->Process(m_tech, list, list, frames, hook);
  }
  data->ReleaseData();
}

// audio thread
void VELTECH_CALL ZORAPOProcessWrapper::OnSideChannel(ZORChannelNode* nodes, uint32_t frames,
                                                      void* context) {
  auto* self = static_cast<ZORAPOProcessWrapper*>(context);
  if (nodes == nullptr || frames == 0 || self == nullptr) return;
  if (self->m_preHook == nullptr && self->m_postHook == nullptr) return;
  // Only a lone mono node of the side channel's role is a side channel.
  if (nodes->next != nullptr || nodes->role != kSideChannelRole || nodes->samples == nullptr) return;
  self->HandleSideChannel(*nodes, frames);
}

// audio thread
void ZORAPOProcessWrapper::HandleSideChannel(ZORChannelNode& node, uint32_t frames) {
  // In parts of the block Init prepared, so that no length makes it grow.
  for (uint32_t done = 0; done < frames && m_sideChannelFrames != 0;) {
    const uint32_t part = std::min(frames - done, m_sideChannelFrames);
    float* const target = node.samples + done;
    m_sideChannel.Allocate(part, 1, m_sampleRate);
    m_sideChannel.SetChannelRole(0, kSideChannelRole);
    if (m_preHook != nullptr) {
      float* samples = m_sideChannel.GetData(true, false);
      std::copy_n(target, part, samples);
      m_sideChannel.ReleaseData();
      m_preHook->OnChannelData(this, m_sideChannel);
    }
    if (m_postHook != nullptr) {
      m_postHook->OnChannelData(this, m_sideChannel);
      const float* samples = m_sideChannel.GetData(false, false);
      // A hook may have reshaped the block; never copy more than both hold.
      if (samples != nullptr && m_sideChannel.GetChannels() >= 1) {
        std::copy_n(samples, std::min(part, m_sideChannel.GetFrames()), target);
      }
      m_sideChannel.ReleaseData();
    }
    done += part;
  }
}

void ZORAPOProcessWrapper::SetHooks(IZORAPOProcessWrapperHook* preHook,
                                    IZORAPOProcessWrapperHook* postHook) {
  m_preHook = preHook;
  m_postHook = postHook;
}

bool ZORAPOProcessWrapper::TransferState(ZORAPOProcessWrapper& other) {
  if (m_tech == nullptr || other.m_tech == nullptr) return false;
  return m_tech->table->CopyState(m_tech, other.m_tech) != 0;
}

bool ZORAPOProcessWrapper::AcceptsTarget(const std::string& target) const {
  if (target.empty() || target == m_name) return true;
  // A process at an OSFX or OMFX position stands in for the SFX or MFX one,
  // and takes the values addressed to it. Both tests are made in turn.
  if (Contains(m_name, "OSFX") && Contains(target, "SFX")) return true;
  return Contains(m_name, "OMFX") && Contains(target, "MFX");
}

bool ZORAPOProcessWrapper::SetControl(const ZORUTSValue& value) {
  if (m_tech == nullptr || !AcceptsTarget(value.GetInstanceId())) return false;
  const std::string control = value.GetControlName();
  const std::string text = value.GetText();
  // GetLong answers -1 both for the number -1 and for text that is no
  // number; only the text tells them apart. A headphone's name may read like
  // a number and is still a name.
  bool asText = Contains(value.name, "Headphone Name");
  int32_t number = 0;
  if (!asText) {
    number = value.GetLong();
    asText = number == -1 && !Contains(text, "-1");
  }
  if (asText) return m_tech->table->SetControlString(m_tech, control.c_str(), text.c_str()) != 0;
  return m_tech->table->SetControlLong(m_tech, control.c_str(), number) != 0;
}

bool ZORAPOProcessWrapper::GetControl(ZORUTSValue& value) {
  if (m_tech == nullptr) return false;
  const std::string target = value.GetInstanceId();
  if (!target.empty() && target != m_name) return false;
  const std::string control = value.GetControlName();
  int32_t number = 0;
  if (m_tech->table->GetControlLong(m_tech, control.c_str(), &number) != 0) {
    value = ZORUTSValue(value.name, number);
    return true;
  }
  const char* text = nullptr;
  if (m_tech->table->GetControlString(m_tech, control.c_str(), &text) != 0) {
    value = ZORUTSValue(value.name, std::string(text != nullptr ? text : ""));
    return true;
  }
  return false;
}

uint32_t ZORAPOProcessWrapper::EnumControls(std::vector<ZORUTSControlInfo>& controls) {
  controls.clear();
  if (m_tech == nullptr) return 0;
  const ZORTechControl* first = nullptr;
  const int32_t count = m_tech->table->GetControls(m_tech, &first);
  if (count <= 0 || first == nullptr) return 0;
  controls.resize(static_cast<size_t>(count));
  for (size_t i = 0; i < controls.size(); ++i) controls[i].SetFromDescriptor(&first[i]);
  return static_cast<uint32_t>(count);
}

int32_t ZORAPOProcessWrapper::PassThroughFirst(uint32_t code, void* data, uint32_t size) {
  return m_tech != nullptr ? m_tech->table->PassThroughFirst(m_tech, code, data, size) : 0;
}

int32_t ZORAPOProcessWrapper::PassThroughSecond(uint32_t code, void* data, uint32_t size) {
  return m_tech != nullptr ? m_tech->table->PassThroughSecond(m_tech, code, data, size) : 0;
}
