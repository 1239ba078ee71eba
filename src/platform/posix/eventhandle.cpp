#include "platform/eventhandle.h"

#include <map>
#include <memory>
#include <mutex>

#include "platform/event.h"

namespace zor::os {

namespace {

// Every live handle, so that a stale or foreign value is refused rather than
// followed. A handle is the address of its own slot.
struct HandleTable {
  std::mutex mutex;
  std::map<const void*, std::unique_ptr<std::shared_ptr<Event>>> handles;

  HANDLE Add(std::shared_ptr<Event> event) {
    auto slot = std::make_unique<std::shared_ptr<Event>>(std::move(event));
    HANDLE handle = slot.get();
    const std::lock_guard<std::mutex> lock(mutex);
    handles.emplace(handle, std::move(slot));
    return handle;
  }
  std::shared_ptr<Event> Find(HANDLE handle) {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = handles.find(handle);
    return found == handles.end() ? nullptr : *found->second;
  }
};

HandleTable& Table() {
  static HandleTable* const table = new HandleTable;  // outlives static destructors
  return *table;
}

}  // namespace

HANDLE CreateEventHandle(bool manualReset, bool initiallySignalled) {
  return Table().Add(
      std::make_shared<Event>(manualReset ? EventReset::Manual : EventReset::Auto, initiallySignalled));
}

uint32_t DuplicateEventHandle(HANDLE source, HANDLE* copy) {
  *copy = nullptr;
  std::shared_ptr<Event> event = Table().Find(source);
  if (!event) return kErrorInvalidHandle;
  *copy = Table().Add(std::move(event));
  return 0;
}

bool SetEventHandle(HANDLE handle) {
  const std::shared_ptr<Event> event = Table().Find(handle);
  if (event) event->Set();
  return event != nullptr;
}

bool ResetEventHandle(HANDLE handle) {
  const std::shared_ptr<Event> event = Table().Find(handle);
  if (event) event->Reset();
  return event != nullptr;
}

bool WaitEventHandle(HANDLE handle, uint32_t timeoutMs) {
  const std::shared_ptr<Event> event = Table().Find(handle);
  return event && event->Wait(timeoutMs);
}

bool CloseEventHandle(HANDLE handle) {
  std::unique_ptr<std::shared_ptr<Event>> slot;
  {
    HandleTable& table = Table();
    const std::lock_guard<std::mutex> lock(table.mutex);
    const auto found = table.handles.find(handle);
    if (found == table.handles.end()) return false;
    slot = std::move(found->second);
    table.handles.erase(found);
  }
  return true;  // the event itself goes outside the lock, with its last handle
}

}  // namespace zor::os
