// ZORAPOProcessManager, the capture link: the pipe that carries a capture
// stream's audio to render streams, the pipe tap of the chains, and the
// search for the capture mutex that lets a render stream follow whether
// capture runs. Nothing in velapo switches the link on (SetPipeLink); while
// it is off none of this runs and the tap hears silence.
#include <string>

#include "core/zorlog.h"
#include "manager/zorapoprocessmanager.h"

void ZORAPOProcessManager::StopLink() {
  m_findMutex.Stop();
  m_pipe.StopPipe();
  m_captureMutex.Close();
  // A finding of an earlier link must not choose the next chain.
  m_captureFound = 0;
}

void ZORAPOProcessManager::StartLink() {
  if (!m_bPipeEnabled) {
    return;
  }
  if (m_bRenderEndpoint) {
    // The reader learns the rate from the first packet.
    m_pipe.OpenPipe(0, true);
  } else {
    // Render streams that follow capture look for this mutex.
    if (!m_captureMutex.IsOpen()) {
      m_captureMutex.Create(kCaptureMutexName);
    }
    m_pipe.OpenPipe(kZORCapturePipeRate, false);
  }
  m_pipe.StartPipe();
  ZOR_LOG("capture link: %s, pipe %s\n", m_bRenderEndpoint ? "reader" : "writer",
          m_pipe.IsRunning() ? "running" : "not running");
  if (m_bFollowCapture) {
    // Start tells the present state at once, so the chains PrepareChains
    // builds already follow it.
    m_findMutex.Configure(std::u16string(kCaptureMutexName), ZORFindMutex::kDefaultPollMs);
    m_findMutex.Start(this);
  }
}

void ZORAPOProcessManager::OnMutexChanged(ZORFindMutex& /*finder*/, bool present) {
  OnMutexFound(present);
}

// audio thread
void ZORAPOProcessManager::OnPipeData(bool isRender, IZORAudioData<float>& data) {
  // "Connected" is taken as the pipe's thread running: the reader then
  // delivers whatever reached it, silence before the first packet.
  if (!m_pipe.IsRunning()) {
    data.Clear();
    return;
  }
  if (!isRender) {
    // Folds the block to mono in place first: on the bypass path that is the
    // capture stream's own output.
    m_pipe.WritePipe(data);
    return;
  }
  if (!m_bInFadeChain) {
    m_pipe.ReadPipe(data);
    m_pipeAudio = data;
    return;
  }
  // The chain fading in hears the piece the active chain read, never a
  // second one, so both sides of the fade carry the same side channel.
  if (m_pipeAudio.GetFrames() != data.GetFrames() ||
      m_pipeAudio.GetSampleRate() != data.GetSampleRate()) {
    data.Clear();
    return;
  }
  const uint32_t role = data.GetChannelRole(0);
  data.Assign(m_pipeAudio);
  data.SetChannelRole(0, role);
}
