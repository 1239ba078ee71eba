#include "core/zorthreadbasic.h"

#include "core/zorlog.h"

namespace {

// What the thread needs, owned by the thread: a thread that is given up on
// POSIX runs on after its ZORThreadBasic is gone.
struct ThreadBody {
  std::shared_ptr<zor::os::Event> stopEvent;
  IZORThreadBasicWorker* worker;
  ZORThreadBasic* owner;
};

unsigned RunWorker(void* arg) {
  const std::unique_ptr<ThreadBody> body(static_cast<ThreadBody*>(arg));
  const bool succeeded = body->worker->Run(*body->owner, *body->stopEvent);
  return succeeded ? ZORThreadBasic::kExitRunSucceeded : ZORThreadBasic::kExitRunFailed;
}

}  // namespace

ZORThreadBasic::ZORThreadBasic()
    : m_stopEvent(std::make_shared<zor::os::Event>(zor::os::EventReset::Manual, false)) {}

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
  m_stopEvent->Reset();
  auto* body = new ThreadBody{m_stopEvent, m_pWorker, this};
  if (!m_thread.Start(&RunWorker, body)) {
    delete body;
    return false;
  }
  return true;
}

void ZORThreadBasic::Stop(uint32_t waitMs) {
  if (!m_thread.Holds()) return;
  m_stopEvent->Set();
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
      ZOR_LOG("thread %u ignored the stop event for %u ms and was abandoned; it runs on unowned\n",
              threadId, wait);
    }
  }
  m_pWorker = nullptr;
}
