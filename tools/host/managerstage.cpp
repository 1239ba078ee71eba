#include "managerstage.h"

#include "audio/zorapoprocesswrapper.h"
#include "hostendpoint.h"

bool ManagerStage::Start(HostEndpoint& endpoint, uint32_t location, HostFormat& format, std::string& error) {
  m_manager = std::make_unique<ZORAPOProcessManager>();
  if (!m_manager->SetEndpointInfo(endpoint.Info(), location)) {
    error = "the configuration '" + endpoint.ConfigPath() + "' does not load";
    m_manager.reset();
    return false;
  }
  // The manager works with any width on either side; the output keeps the input's.
  format.channelsOut = format.channelsOut != 0 ? format.channelsOut : format.channelsIn;
  m_manager->SetClientEvent(&m_switched);
  m_manager->Initialize(format.channelsIn, format.channelsOut, format.rate, 0, location);
  return true;
}

uint32_t ManagerStage::Process(const float* input, float* output, uint32_t frames, bool silent) {
  uint32_t framesIn = frames;
  uint32_t framesOut = frames;
  m_manager->Process(input, &framesIn, output, &framesOut, silent);
  return framesOut;
}

std::string ManagerStage::ActiveChain() const {
  if (!m_manager) return "none";
  const ZORAPOProcessChain* chain = m_manager->GetChainPointers().active;
  if (chain == nullptr || !chain->IsBuilt()) return "none built (audio passes unprocessed)";
  std::string text;
  for (size_t i = 0; i < chain->GetProcessCount(); ++i) {
    text += (i ? " -> " : "") + chain->GetProcess(i)->GetName();
  }
  return text.empty() ? "empty" : text;
}
