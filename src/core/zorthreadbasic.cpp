#include "core/zorthreadbasic.h"

#include "core/zorlog.h"

unsigned ZORThreadBasic::RunWorker(void* self) {
  auto* owner = static_cast<ZORThreadBasic*>(self);
  const bool succeeded = owner->m_pWorker->Run(*owner, owner->m_stopEvent);
  return succeeded ? kExitRunSucceeded : kExitRunFailed;
}

ZORThreadBasic::ZORThreadBasic() = default;

ZORThreadBasic::~ZORThreadBasic() { ZORThreadBasic::Stop(kDefaultStopWaitMs); }

bool ZORThreadBasic::Start(IZORThreadBasicWorker* worker) {
  if (m_thread.Holds()) {
    ZOR_LOG("thread %u is still held; Stop it first\n", m_thread.Id());
    return false;
  }
  if (worker != nullptr) m_pWorker = worker;
  if (m_pWorker == nullptr) {
    ZOR_LOG("no worker to run\n");
    return false;
  }
  m_stopEvent.Reset();
  return m_thread.Start(&ZORThreadBasic::RunWorker, this);
}

void ZORThreadBasic::Stop(uint32_t waitMs) {
  if (!m_thread.Holds()) return;
  m_stopEvent.Set();
  if (m_thread.Id() == zor::os::CurrentThreadId()) {
    // Waiting here would wait for ourselves; the owner's Stop collects the
    // thread once Run has returned.
    ZOR_LOG("called by its own worker; the stop event is set\n");
    return;
  }
  const uint32_t wait = waitMs == 0 ? kDefaultStopWaitMs : waitMs;
  if (!m_thread.Join(wait)) {
    const uint32_t threadId = m_thread.Id();
    if (m_thread.Terminate(kExitRunFailed)) {
      ZOR_LOG("thread %u ignored the stop event for %u ms and was terminated\n", threadId, wait);
    } else {
      ZOR_LOG("thread %u ignored the stop event for %u ms; waiting for it to end\n", threadId,
              wait);
      m_thread.Join(zor::os::kInfinite);
    }
  }
  m_pWorker = nullptr;
}
