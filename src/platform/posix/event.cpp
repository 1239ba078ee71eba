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

// The event is one atomic word that holds the signalled flag (bit 0) and the
// number of threads blocked in a wait (the other bits), so Reset and polling
// never block. A sleeping waiter registers under the registry lock;
// Set raises the flag with one compare-and-swap when the count is zero, and
// otherwise raises it under the registry lock and wakes the waiters. Flag and
// count change in one word, so a Set never misses a waiter that has just
// registered. Once a Set has made the flag visible it touches nothing more
// outside the registry lock, which any waiter must take before it leaves: a
// thread that saw the event signalled may destroy it at once.
struct Event::State {
  static constexpr uint32_t kSignalled = 1;
  static constexpr uint32_t kOneWaiter = 2;

  State(bool manualReset, bool signalledAtStart)
      : manual(manualReset), word(signalledAtStart ? kSignalled : 0) {}

  // Takes the signal: an auto-reset event is consumed by exactly one taker.
  bool TryTake() {
    uint32_t current = word.load();
    if (manual) return (current & kSignalled) != 0;
    while ((current & kSignalled) != 0) {
      if (word.compare_exchange_weak(current, current & ~kSignalled)) return true;
    }
    return false;
  }

  void Set() {
    uint32_t current = word.load();
    while (current < kOneWaiter) {
      if (word.compare_exchange_weak(current, current | kSignalled)) return;
    }
    const std::lock_guard<std::mutex> lock(registryMutex);
    word.fetch_or(kSignalled);
    // Every waiter looks again; for an auto-reset event only one wins the
    // flag and the others sleep on.
    for (WaitNode* node = waiters; node != nullptr; node = node->next) node->waiter->Notify();
  }

  void Register(WaitNode& node) {
    const std::lock_guard<std::mutex> lock(registryMutex);
    node.prev = nullptr;
    node.next = waiters;
    if (waiters != nullptr) waiters->prev = &node;
    waiters = &node;
    word.fetch_add(kOneWaiter);
  }

  void Unregister(WaitNode& node) {
    const std::lock_guard<std::mutex> lock(registryMutex);
    if (node.prev != nullptr) {
      node.prev->next = node.next;
    } else {
      waiters = node.next;
    }
    if (node.next != nullptr) node.next->prev = node.prev;
    word.fetch_sub(kOneWaiter);
  }

  const bool manual;
  std::atomic<uint32_t> word;
  std::mutex registryMutex;
  WaitNode* waiters = nullptr;  // guarded by registryMutex
};

Event::Event(EventReset reset, bool initiallySignalled)
    : m_state(std::make_unique<State>(reset == EventReset::Manual, initiallySignalled)) {}

Event::~Event() = default;

void Event::Set() { m_state->Set(); }

void Event::Reset() { m_state->word.fetch_and(~State::kSignalled); }

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
