// Mutex discovery: what one probe costs the poller, and the delay from a
// mutex's creation to the notifier hearing of it at the default poll of
// 300 ms (expected: half a poll on average, never more than one).
#include <benchmark/benchmark.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <random>
#include <string>
#include <thread>

#include "platform/namedmutex.h"
#include "system/zorfindmutex.h"

namespace {

using Clock = std::chrono::steady_clock;

const std::u16string kName = u"Global\\velapo-findmutex-bench";

void BM_FindMutexProbe(benchmark::State& state) {
  zor::os::NamedMutex held;
  if (state.range(0) != 0 && held.Create(kName) != zor::os::NamedMutex::OpenStatus::Ok) {
    state.SkipWithError("could not create the mutex");
    return;
  }
  ZORFindMutex finder;
  finder.Configure(kName);
  for (auto _ : state) {
    benchmark::DoNotOptimize(finder.Check(false));
  }
}
BENCHMARK(BM_FindMutexProbe)->Arg(0)->Arg(1)->ArgName("present");

class Waiter : public IZORFindMutexNotify {
 public:
  void OnMutexChanged(ZORFindMutex&, bool present) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (present) {
      m_heard = Clock::now();
      m_present = true;
      m_changed.notify_all();
    }
  }
  Clock::time_point WaitPresent() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(lock, std::chrono::seconds(5), [&] { return m_present; });
    m_present = false;
    return m_heard;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_present = false;
  Clock::time_point m_heard;
};

// Creation at a random phase of the poll; the manual time is the delay.
void BM_FindMutexDiscoveryDelay(benchmark::State& state) {
  std::mt19937 random(11);
  std::uniform_int_distribution<int> phase(0, static_cast<int>(ZORFindMutex::kDefaultPollMs));
  Waiter waiter;
  ZORFindMutex finder;
  finder.Configure(kName);
  if (!finder.Start(&waiter)) {
    state.SkipWithError("the poller did not start");
    return;
  }
  for (auto _ : state) {
    std::this_thread::sleep_for(std::chrono::milliseconds(phase(random)));
    zor::os::NamedMutex mutex;
    const Clock::time_point created = Clock::now();
    mutex.Create(kName);
    const Clock::time_point heard = waiter.WaitPresent();
    state.SetIterationTime(std::chrono::duration<double>(heard - created).count());
    mutex.Close();
    // Let the poller see it gone before the next round.
    std::this_thread::sleep_for(std::chrono::milliseconds(ZORFindMutex::kDefaultPollMs + 50));
  }
  finder.Stop();
}
BENCHMARK(BM_FindMutexDiscoveryDelay)->UseManualTime()->Iterations(12)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
