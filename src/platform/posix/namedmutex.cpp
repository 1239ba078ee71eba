#include "platform/namedmutex.h"

#include <pthread.h>
#include <sys/mman.h>

#include <atomic>
#include <cerrno>
#include <ctime>

#include "platform/posix/sharedobject.h"

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace zor::os {
namespace {

// The whole shared object: one pthread mutex, set up by its creator.
struct SharedMutexObject {
  pthread_mutex_t mutex;
};

bool InitialiseMutex(void* content, size_t) {
  pthread_mutexattr_t attributes;
  if (::pthread_mutexattr_init(&attributes) != 0) return false;
  const bool made =
      ::pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED) == 0 &&
      ::pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST) == 0 &&
      ::pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE) == 0 &&
      ::pthread_mutex_init(&static_cast<SharedMutexObject*>(content)->mutex, &attributes) == 0;
  ::pthread_mutexattr_destroy(&attributes);
  return made;
}

}  // namespace

struct NamedMutex::State {
  posix::SharedObjectHolder holder;
  SharedMutexObject* object = nullptr;
  // Who owns the mutex through this object, and how deep, so that Close can
  // let go of it before its memory is unmapped. Written by the owner only.
  std::atomic<pthread_t> owner{};
  std::atomic<uint32_t> depth{0};

  NamedMutex::OpenStatus Open(std::u16string_view name, bool create) {
    switch (holder.Open(posix::SharedObjectName(name, "x"), sizeof(SharedMutexObject), create,
                        &InitialiseMutex)) {
      case posix::SharedObjectHolder::Outcome::Created:
      case posix::SharedObjectHolder::Outcome::Opened:
        break;
      case posix::SharedObjectHolder::Outcome::AccessDenied:
        return OpenStatus::AccessDenied;
      default:
        return OpenStatus::Failed;
    }
    if (holder.FileSize() < sizeof(SharedMutexObject)) {
      holder.Close();
      return OpenStatus::Failed;
    }
    void* view = ::mmap(nullptr, sizeof(SharedMutexObject), PROT_READ | PROT_WRITE, MAP_SHARED,
                        holder.Descriptor(), 0);
    if (view == MAP_FAILED) {
      holder.Close();
      return OpenStatus::Failed;
    }
    object = static_cast<SharedMutexObject*>(view);
    return OpenStatus::Ok;
  }

  void Owned() {
    owner.store(::pthread_self(), std::memory_order_relaxed);
    depth.fetch_add(1, std::memory_order_relaxed);
  }
};

NamedMutex::NamedMutex() : m_state(std::make_unique<State>()) {}

NamedMutex::~NamedMutex() { Close(); }

NamedMutex::OpenStatus NamedMutex::Create(std::u16string_view name) {
  Close();
  return m_state->Open(name, true);
}

NamedMutex::OpenStatus NamedMutex::OpenExisting(std::u16string_view name) {
  Close();
  return m_state->Open(name, false);
}

bool NamedMutex::IsOpen() const { return m_state->object != nullptr; }

NamedMutex::Presence NamedMutex::Probe(std::u16string_view name) {
  // Joining and leaving again tells a held object from a leftover file; the
  // holder's protocol removes a file nobody holds on the way.
  posix::SharedObjectHolder probe;
  switch (probe.Open(posix::SharedObjectName(name, "x"), sizeof(SharedMutexObject), false)) {
    case posix::SharedObjectHolder::Outcome::Opened:
      return Presence::Present;
    case posix::SharedObjectHolder::Outcome::AccessDenied:
      return Presence::Denied;
    default:
      return Presence::Absent;
  }
}

NamedMutex::WaitResult NamedMutex::Wait(uint32_t timeoutMs) {
  if (m_state->object == nullptr) return WaitResult::Failed;
  pthread_mutex_t* mutex = &m_state->object->mutex;
  int result = 0;
  if (timeoutMs == 0) {
    // Uncontended, a robust try-lock is a compare-and-swap in user space.
    result = ::pthread_mutex_trylock(mutex);
  } else {
#if defined(__SANITIZE_THREAD__)
    // ThreadSanitizer follows pthread_mutex_timedlock but not clocklock;
    // only its builds pay for a deadline on the wall clock.
    constexpr clockid_t kClock = CLOCK_REALTIME;
#else
    constexpr clockid_t kClock = CLOCK_MONOTONIC;  // immune to clock changes
#endif
    timespec deadline{};
    ::clock_gettime(kClock, &deadline);
    deadline.tv_sec += static_cast<time_t>(timeoutMs / 1000);
    deadline.tv_nsec += static_cast<long>(timeoutMs % 1000) * 1000000L;
    if (deadline.tv_nsec >= 1000000000L) {
      deadline.tv_nsec -= 1000000000L;
      ++deadline.tv_sec;
    }
    do {
#if defined(__SANITIZE_THREAD__)
      result = ::pthread_mutex_timedlock(mutex, &deadline);
#else
      result = ::pthread_mutex_clocklock(mutex, kClock, &deadline);
#endif
    } while (result == EINTR);
  }
  switch (result) {
    case 0:
      m_state->Owned();
      return WaitResult::Acquired;
    case EOWNERDEAD:
      // As Windows hands over an abandoned mutex: owned, and usable again.
      ::pthread_mutex_consistent(mutex);
#if defined(__SANITIZE_THREAD__)
      // Its interceptors count only a plain success as taking the lock.
      __tsan_mutex_pre_lock(mutex, 0);
      __tsan_mutex_post_lock(mutex, 0, 0);
#endif
      m_state->Owned();
      return WaitResult::Abandoned;
    case EBUSY:
    case ETIMEDOUT:
      return WaitResult::TimedOut;
    default:
      return WaitResult::Failed;
  }
}

void NamedMutex::Release() {
  // Only the owner may release, and only as often as it waited.
  if (m_state->object == nullptr || m_state->depth.load(std::memory_order_relaxed) == 0 ||
      !::pthread_equal(m_state->owner.load(std::memory_order_relaxed), ::pthread_self())) {
    return;
  }
  m_state->depth.fetch_sub(1, std::memory_order_relaxed);
  ::pthread_mutex_unlock(&m_state->object->mutex);
}

void NamedMutex::Close() {
  if (m_state->object == nullptr) return;
  while (m_state->depth.load(std::memory_order_relaxed) > 0 &&
         ::pthread_equal(m_state->owner.load(std::memory_order_relaxed), ::pthread_self())) {
    Release();
  }
  ::munmap(m_state->object, sizeof(SharedMutexObject));
  m_state->object = nullptr;
  m_state->depth.store(0, std::memory_order_relaxed);
  m_state->holder.Close();
}

}  // namespace zor::os
