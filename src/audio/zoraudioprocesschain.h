#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "audio/izoraudioprocess.h"

// An ordered list of stages that is itself a stage. It doesn't own its
// stages: removing one or destroying the chain deletes nothing.
//
// The list is changed only by the thread that builds the chain while the
// chain isn't running; Process runs on the audio thread.
template <typename T>
class ZORAudioProcessChain : public IZORAudioProcess<T> {
 public:
  ZORAudioProcessChain() { m_processes.reserve(kReserved); }
  ~ZORAudioProcessChain() override = default;
  ZORAudioProcessChain(const ZORAudioProcessChain&) = delete;
  ZORAudioProcessChain& operator=(const ZORAudioProcessChain&) = delete;

  // Every stage is initialised, also after one failed, so that each stage
  // stands in a known state; true only if all of them succeeded.
  bool Init(uint32_t channels, uint32_t sampleRate) override {
    bool allGood = true;
    for (IZORAudioProcess<T>* process : m_processes) {
      allGood = process->Init(channels, sampleRate) && allGood;
    }
    return allGood;
  }
  void SetBypass(bool bypass) override { m_bypass = bypass; }
  bool GetBypass() const override { return m_bypass; }
  // The sum of the stages' latencies, bypassed or not: the bypass of a chain
  // doesn't change what its stages report.
  uint32_t GetLatency() const override {
    uint32_t latency = 0;
    for (const IZORAudioProcess<T>* process : m_processes) {
      latency += process->GetLatency();
    }
    return latency;
  }
  // Each stage in list order on the same block, unless bypassed. Audio
  // thread.
  void Process(IZORAudioData<T>* data) override {
    if (m_bypass) {
      return;
    }
    for (IZORAudioProcess<T>* process : m_processes) {
      process->Process(data);
    }
  }

  void AddProcess(IZORAudioProcess<T>* process) { m_processes.push_back(process); }
  // Removes the first entry equal to `process`, if there is one.
  void RemoveProcess(IZORAudioProcess<T>* process) {
    const auto found = std::find(m_processes.begin(), m_processes.end(), process);
    if (found != m_processes.end()) {
      m_processes.erase(found);
    }
  }
  uint32_t GetProcessCount() const { return static_cast<uint32_t>(m_processes.size()); }
  void ClearProcesses() {
    m_processes.clear();
    if (m_processes.capacity() < kReserved) {
      m_processes.reserve(kReserved);
    }
  }

 protected:
  // The stages in list order, for chains that run them otherwise.
  const std::vector<IZORAudioProcess<T>*>& Processes() const { return m_processes; }

 private:
  // Room for the usual chain, so that building one rarely reallocates.
  static constexpr size_t kReserved = 10;

  bool m_bypass = false;
  std::vector<IZORAudioProcess<T>*> m_processes;
};
