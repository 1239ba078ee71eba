#pragma once
// An endpoint observer that records the codes it hears, and can hold the worker inside its first call until released.

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "platform/event.h"
#include "system/izorapoendpointnotify.h"

namespace velapo::test {

class EndpointRecorder : public IZORAPOEndpointNotify {
 public:
  void OnEndpointEvent(int32_t code) override {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_codes.push_back(code);
    m_changed.notify_all();
    if (m_holdFirst && m_codes.size() == 1) {
      lock.unlock();
      entered.Set();
      release.Wait(zor::os::kInfinite);
    }
  }
  void HoldFirst() { m_holdFirst = true; }
  // Waits until `count` codes were heard (or 10 s); returns what was heard,
  // with repeats of one code in a row counted once when `collapse` is set.
  std::vector<int32_t> WaitFor(size_t count, bool collapse = false) {
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto heard = [&] {
      std::vector<int32_t> codes;
      for (const int32_t code : m_codes) {
        if (!collapse || codes.empty() || codes.back() != code) codes.push_back(code);
      }
      return codes;
    };
    m_changed.wait_for(lock, std::chrono::seconds(10), [&] { return heard().size() >= count; });
    return heard();
  }

  zor::os::Event entered{zor::os::EventReset::Manual};
  zor::os::Event release{zor::os::EventReset::Manual};

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<int32_t> m_codes;
  bool m_holdFirst = false;
};

}  // namespace velapo::test
