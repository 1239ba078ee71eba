#include "platform/debugoutput.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string_view>
#include <thread>

#include "platform/debugoutputbackend.h"

namespace zor::os {
namespace {

// The installed sink is published as a record that output calls enter and
// leave with a count. Installing swaps the current record and then waits
// until the replaced one is left, so a sink's context is never used after it
// was replaced. Records are never freed, since an output call may still hold
// a stale pointer to one; they are reused, which is safe because a call only
// reads the binding after seeing its record current.
struct SinkRecord {
  DebugSinkBinding binding;
  std::atomic<uint32_t> users{0};
  SinkRecord* nextFree = nullptr;
};

constinit SinkRecord g_defaultRecord{};
constinit std::atomic<SinkRecord*> g_current{&g_defaultRecord};
SinkRecord* g_freeRecords = nullptr;  // guarded by InstallMutex()

std::mutex& InstallMutex() {
  static std::mutex mutex;  // not constant-initialisable everywhere
  return mutex;
}

class SinkEntry {
 public:
  SinkEntry() {
    for (;;) {
      m_record = g_current.load();
      m_record->users.fetch_add(1);
      if (g_current.load() == m_record) return;
      m_record->users.fetch_sub(1);
    }
  }
  ~SinkEntry() { m_record->users.fetch_sub(1); }
  SinkEntry(const SinkEntry&) = delete;
  SinkEntry& operator=(const SinkEntry&) = delete;

  const DebugSinkBinding& Binding() const { return m_record->binding; }

 private:
  SinkRecord* m_record;
};

}  // namespace

void DebugOutputNarrow(const char* text) {
  if (text == nullptr) return;
  const SinkEntry entry;
  if (entry.Binding().sink != nullptr) {
    detail::ForwardNarrowToSink(entry.Binding(), text);
  } else {
    detail::WriteDefaultNarrow(text);
  }
}

void DebugOutputWide(const char16_t* text) {
  if (text == nullptr) return;
  const SinkEntry entry;
  const DebugSinkBinding& binding = entry.Binding();
  if (binding.sink != nullptr) {
    detail::WithUtf8Line(std::u16string_view(text), [&binding](const char* utf8) {
      binding.sink(binding.context, utf8, true);
    });
  } else {
    detail::WriteDefaultWide(text);
  }
}

DebugSinkBinding ExchangeDebugSink(DebugSink sink, void* context) {
  const std::lock_guard<std::mutex> lock(InstallMutex());
  SinkRecord* fresh = &g_defaultRecord;
  if (sink != nullptr) {
    fresh = g_freeRecords;
    if (fresh != nullptr) {
      g_freeRecords = fresh->nextFree;
    } else {
      fresh = new SinkRecord;  // lives for the rest of the process
    }
    fresh->binding = DebugSinkBinding{sink, context};
  }
  SinkRecord* replaced = g_current.exchange(fresh);
  if (replaced == fresh) return fresh->binding;  // the default, again
  // Calls inside the replaced sink are short; calls that arrive now retry on
  // the fresh record, so this ends.
  while (replaced->users.load() != 0) std::this_thread::yield();
  const DebugSinkBinding previous = replaced->binding;
  if (replaced != &g_defaultRecord) {
    replaced->nextFree = g_freeRecords;
    g_freeRecords = replaced;
  }
  return previous;
}

void SetDebugSink(DebugSink sink, void* context) { ExchangeDebugSink(sink, context); }

}  // namespace zor::os
