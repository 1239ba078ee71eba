#include "platform/event.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace zor::os {
namespace {

// One blocked WaitAny. It registers a node with every event it waits on, and
// a Set on any of them wakes it to look again.
struct Waiter {
  std::mutex mutex;
  std::condition_variable wake;
  bool notified = false;  // guarded by mutex

  void Notify() {
    {
      const std::lock_guard<std::mutex> lock(mutex);
      notified = true;
    }
    wake.notify_one();
  }
};

struct WaitNode {
  Waiter* waiter = nullptr;
  WaitNode* prev = nullptr;
  WaitNode* next = nullptr;
};

}  // namespace

// The signalled flag is the event's whole state for Set, Reset and polling,
// so those never block. Only a thread that has to sleep registers, and Set
// takes the registry lock only when someone has. Set stores the flag before
// it looks at the waiter count, and a waiter counts itself before it looks at
// the flag (all sequentially consistent), so at least one of the two sees the
// other and no Set is ever missed.
struct Event::State {
  State(bool manualReset, bool signalledAtStart) : manual(manualReset), signalled(signalledAtStart) {}

  // Takes the signal: an auto-reset event is consumed by exactly one taker.
  bool TryTake() {
    if (!signalled.load()) return false;
    if (manual) return true;
    bool expected = true;
    return signalled.compare_exchange_strong(expected, false);
  }

  void Register(WaitNode& node) {
    const std::lock_guard<std::mutex> lock(registryMutex);
    node.prev = nullptr;
    node.next = waiters;
    if (waiters != nullptr) waiters->prev = &node;
    waiters = &node;
    waiterCount.fetch_add(1);
  }

  void Unregister(WaitNode& node) {
    const std::lock_guard<std::mutex> lock(registryMutex);
    if (node.prev != nullptr) {
      node.prev->next = node.next;
    } else {
      waiters = node.next;
    }
    if (node.next != nullptr) node.next->prev = node.prev;
    waiterCount.fetch_sub(1);
  }

  void WakeWaiters() {
    // Every waiter looks again; for an auto-reset event only one wins the
    // flag and the others sleep on.
    const std::lock_guard<std::mutex> lock(registryMutex);
    for (WaitNode* node = waiters; node != nullptr; node = node->next) node->waiter->Notify();
  }

  const bool manual;
  std::atomic<bool> signalled;
  std::atomic<uint32_t> waiterCount{0};
  std::mutex registryMutex;
  WaitNode* waiters = nullptr;  // guarded by registryMutex
};

Event::Event(EventReset reset, bool initiallySignalled)
    : m_state(std::make_unique<State>(reset == EventReset::Manual, initiallySignalled)) {}

Event::~Event() = default;

void Event::Set() {
  m_state->signalled.store(true);
  if (m_state->waiterCount.load() != 0) m_state->WakeWaiters();
}

void Event::Reset() { m_state->signalled.store(false); }

bool Event::Wait(uint32_t timeoutMs) {
  if (timeoutMs == 0) return m_state->TryTake();  // the audio thread's poll
  Event* self = this;
  return WaitAny(&self, 1, timeoutMs) == 0;
}

bool Event::IsManualReset() const { return m_state->manual; }

int32_t WaitAny(Event* const* events, size_t count, uint32_t timeoutMs) {
  if (events == nullptr || count == 0 || count > kMaxWaitEvents) return kWaitTimeout;
  const auto takeLowest = [events, count]() -> int32_t {
    for (size_t i = 0; i < count; ++i) {
      if (events[i]->m_state->TryTake()) return static_cast<int32_t>(i);
    }
    return kWaitTimeout;
  };

  int32_t result = takeLowest();
  if (result != kWaitTimeout || timeoutMs == 0) return result;

  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  Waiter waiter;
  WaitNode nodes[kMaxWaitEvents];
  for (size_t i = 0; i < count; ++i) {
    nodes[i].waiter = &waiter;
    events[i]->m_state->Register(nodes[i]);
  }
  for (;;) {
    result = takeLowest();
    if (result != kWaitTimeout) break;
    std::unique_lock<std::mutex> lock(waiter.mutex);
    const auto notified = [&waiter] { return waiter.notified; };
    if (timeoutMs == kInfinite) {
      waiter.wake.wait(lock, notified);
    } else if (!waiter.wake.wait_until(lock, deadline, notified)) {
      lock.unlock();
      result = takeLowest();  // a Set that raced with the time-out still counts
      break;
    }
    waiter.notified = false;
  }
  for (size_t i = 0; i < count; ++i) events[i]->m_state->Unregister(nodes[i]);
  return result;
}

}  // namespace zor::os
