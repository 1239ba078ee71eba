#include "control/tuningsession.h"

#include "platform/text.h"

ControlResult TuningSession::Open(const ControlEndpoint& endpoint, const ZORAPOOperatingMode& mode) {
  Close();
  m_modeText = ControlEndpoint::ModeText(mode.GetModeId());
  m_blockName = zor::os::Utf16ToUtf8(
      ZORAPOTunedSettings::BlockName(endpoint.Info().GetEndpointGuid().Text(), mode.GetModeId()));
  if (!m_tuned.Open(endpoint.Info(), mode, false)) {
    return ControlResult::Failure("cannot create or join the shared block " + m_blockName);
  }
  m_controls = mode.GetAllControls();
  // Bring in what another tool left, so the first write keeps it.
  ZORUTSValueList current;
  m_tuned.ReadAll(current, true);
  return ControlResult::Success("tuning " + m_modeText + " through " + m_blockName);
}

void TuningSession::Close() {
  if (m_tuned.IsOpen()) m_tuned.Close();
}

ControlResult TuningSession::SetValue(const std::string& name, const std::string& text) {
  if (!IsOpen()) return ControlResult::Failure("no tuning block is open");
  if (!m_controls.Find(name)) {
    return ControlResult::Failure("'" + name + "' is not a control of " + m_modeText);
  }
  if (!m_tuned.WriteControl(ZORUTSValue(name, text))) {
    return ControlResult::Failure("cannot write " + name + " into " + m_blockName +
                                  " (its mutex is held, or the block is full)");
  }
  return ControlResult::Success(name + " = " + text);
}

ControlResult TuningSession::SetTuningMode(int32_t tuningMode) {
  if (!IsOpen()) return ControlResult::Failure("no tuning block is open");
  const std::string name(zor::os::Utf16ToUtf8(ZORAPOTunedSettings::kTuningModeName));
  if (!m_tuned.WriteControl(ZORUTSValue(name, std::to_string(tuningMode)))) {
    return ControlResult::Failure("cannot write " + name + " into " + m_blockName);
  }
  return ControlResult::Success(name + " = " + std::to_string(tuningMode));
}

ControlResult TuningSession::Read(ZORUTSValueList& values) {
  if (!IsOpen()) return ControlResult::Failure("no tuning block is open");
  if (!m_tuned.ReadAll(values, true)) {
    return ControlResult::Failure("cannot read " + m_blockName);
  }
  return ControlResult::Success();
}
