#include "techprocess.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace veltech {
namespace {

TechProcess* Owner(ZORTechProcess* self) { return TechProcess::FromAbi(self); }

void VELTECH_METHOD Unused(ZORTechProcess*) {}

uint32_t VELTECH_METHOD GetBlockSizeOp(ZORTechProcess* self) { return Owner(self)->GetBlockSize(); }
uint32_t VELTECH_METHOD GetLatencyOp(ZORTechProcess* self) { return Owner(self)->GetLatency(); }
int32_t VELTECH_METHOD GetControlsOp(ZORTechProcess* self, const ZORTechControl** first) {
  return Owner(self)->GetControls(first);
}
ZORTechBool VELTECH_METHOD SetControlLongOp(ZORTechProcess* self, const char* name, int32_t value) {
  return Owner(self)->SetControlLong(name, value);
}
ZORTechBool VELTECH_METHOD SetControlStringOp(ZORTechProcess* self, const char* name, const char* value) {
  return Owner(self)->SetControlString(name, value);
}
ZORTechBool VELTECH_METHOD GetControlLongOp(ZORTechProcess* self, const char* name, int32_t* value) {
  return Owner(self)->GetControlLong(name, value);
}
ZORTechBool VELTECH_METHOD GetControlStringOp(ZORTechProcess* self, const char* name, const char** value) {
  return Owner(self)->GetControlString(name, value);
}
// veltech has no use for the pass-through operations; it answers 0.
int32_t VELTECH_METHOD PassThroughOp(ZORTechProcess*, uint32_t, void*, uint32_t) { return 0; }
ZORTechBool VELTECH_METHOD CopyStateOp(ZORTechProcess* self, ZORTechProcess* other) {
  const TechProcess* source = other != nullptr ? Owner(other) : nullptr;
  return source != nullptr && Owner(self)->CopyState(*source);
}
ZORTechBool VELTECH_METHOD InitOp(ZORTechProcess* self, uint32_t channels, uint32_t sampleRate) {
  try {
    return Owner(self)->Init(channels, sampleRate);
  } catch (const std::bad_alloc&) {
    return false;
  }
}
void VELTECH_METHOD ProcessOp(ZORTechProcess* self, ZORChannelNode* in, ZORChannelNode* out,
                              uint32_t frames, ZORProcessHook*) {
  Owner(self)->Process(in, out, frames);
}

const ZORTechProcessTable kTable = {
    Unused, Unused, Unused, Unused,
    GetBlockSizeOp, GetLatencyOp,
    Unused,
    GetControlsOp, SetControlLongOp, SetControlStringOp, GetControlLongOp, GetControlStringOp,
    PassThroughOp, PassThroughOp,
    Unused, Unused,
    CopyStateOp, InitOp, ProcessOp,
};

// The rates a process accepts; outside them the filters' designs lose their
// meaning or the delay lines their bounds.
constexpr uint32_t kLowestRate = 8000;
constexpr uint32_t kHighestRate = 384000;

}  // namespace

const ZORTechProcessTable& ProcessTable() { return kTable; }

TechProcess::TechProcess(const ControlTable& controls)
    : m_abi{{&kTable}, this},
      m_controls(controls),
      m_values(std::make_unique<std::atomic<int32_t>[]>(controls.Size())) {
  for (size_t i = 0; i < controls.Size(); ++i) m_values[i].store(controls.Definition(i).defaultValue);
}

TechProcess::~TechProcess() = default;

TechProcess* TechProcess::FromAbi(ZORTechProcess* process) {
  if (process == nullptr || process->table != &kTable) return nullptr;
  return reinterpret_cast<AbiObject*>(process)->owner;
}

int32_t TechProcess::GetControls(const ZORTechControl** first) const {
  if (first != nullptr) *first = m_controls.Records();
  return static_cast<int32_t>(m_controls.Size());
}

bool TechProcess::SetControlLong(const char* name, int32_t value) {
  const int32_t index = m_controls.Find(name);
  if (index == ControlTable::kNotFound) return false;
  const auto i = static_cast<size_t>(index);
  m_values[i].store(m_controls.Clamp(i, value), std::memory_order_relaxed);
  return true;
}

bool TechProcess::SetControlString(const char* name, const char* text) {
  const int32_t index = m_controls.Find(name);
  int32_t value = 0;
  if (index == ControlTable::kNotFound || !m_controls.ParseText(static_cast<size_t>(index), text, value)) {
    return false;
  }
  return SetControlLong(name, value);
}

bool TechProcess::GetControlLong(const char* name, int32_t* value) const {
  const int32_t index = m_controls.Find(name);
  if (index == ControlTable::kNotFound || value == nullptr) return false;
  *value = Control(static_cast<size_t>(index));
  return true;
}

bool TechProcess::GetControlString(const char* name, const char** text) const {
  const int32_t index = m_controls.Find(name);
  if (index == ControlTable::kNotFound || text == nullptr) return false;
  const auto i = static_cast<size_t>(index);
  const char* valueName = m_controls.ValueName(i, Control(i));
  if (valueName == nullptr) return false;
  *text = valueName;
  return true;
}

// audio thread
bool TechProcess::CopyState(const TechProcess& other) {
  // One table per kind: the same table is the same kind.
  if (&other == this || &other.m_controls != &m_controls || other.m_channels != m_channels ||
      other.m_sampleRate != m_sampleRate || m_sampleRate == 0) {
    return false;
  }
  TakeState(other);
  m_start = false;
  return true;
}

bool TechProcess::Init(uint32_t channels, uint32_t sampleRate) {
  m_channels = 0;
  m_sampleRate = 0;
  if (sampleRate < kLowestRate || sampleRate > kHighestRate) return false;
  m_channelPointers.assign(channels, nullptr);
  if (!Prepare(channels, sampleRate)) return false;
  m_channels = channels;
  m_sampleRate = sampleRate;
  m_start = true;
  return true;
}

// audio thread
void TechProcess::Process(ZORChannelNode* in, ZORChannelNode* out, uint32_t frames) {
  if (in != out) {
    for (ZORChannelNode *source = in, *target = out; source != nullptr && target != nullptr;
         source = source->next, target = target->next) {
      if (source->samples != nullptr && target->samples != nullptr && source->samples != target->samples) {
        std::copy_n(source->samples, frames, target->samples);
      }
    }
  }
  if (m_sampleRate == 0 || frames == 0) return;
  uint32_t count = 0;
  for (ZORChannelNode* node = out; node != nullptr && count < m_channels; node = node->next) {
    // A channel without samples breaks the order of those after it; leave
    // the whole block alone rather than process the wrong channels.
    if (node->samples == nullptr) return;
    m_channelPointers[count++] = node->samples;
  }
  Run(m_channelPointers.data(), count, frames);
}

uint32_t TechProcess::GlideFramesAt(uint32_t sampleRate) {
  return std::max<uint32_t>(1, static_cast<uint32_t>(std::lround(kGlideSeconds * sampleRate)));
}

}  // namespace veltech
