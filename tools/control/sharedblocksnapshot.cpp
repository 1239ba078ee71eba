#include "control/sharedblocksnapshot.h"

#include <cstring>

#include "platform/namedmutex.h"
#include "platform/text.h"
#include "values/zorsharedmemory.h"

namespace {

constexpr uint32_t kMutexWaitMs = 500;

}  // namespace

ControlResult SharedBlockSnapshot::Take(std::u16string_view name, uint32_t size,
                                        std::u16string_view mutexSuffix,
                                        std::vector<uint8_t>& bytes) {
  const std::string narrow = zor::os::Utf16ToUtf8(name);
  bytes.clear();
  if (!ZORSharedMemory::Exists(name)) {
    return ControlResult::Failure("no shared block named " + narrow + " (no process holds one)");
  }
  ZORSharedMemory block;
  // The block may go between the look and the join; then this makes a new,
  // empty one for a moment, which reads as empty and goes with the snapshot.
  if (!block.Create(name, size, false)) {
    return ControlResult::Failure("cannot open the shared block " + narrow);
  }
  const auto* view = static_cast<const uint8_t*>(block.MapView());
  if (!view) return ControlResult::Failure("cannot map the shared block " + narrow);
  zor::os::NamedMutex mutex;
  const std::u16string mutexName = std::u16string(name) + std::u16string(mutexSuffix);
  bool locked = false;
  if (mutex.OpenExisting(mutexName) == zor::os::NamedMutex::OpenStatus::Ok) {
    const auto waited = mutex.Wait(kMutexWaitMs);
    // An abandoned mutex is ours now too; the content may be half-written,
    // which the decoder reports.
    locked = waited == zor::os::NamedMutex::WaitResult::Acquired ||
             waited == zor::os::NamedMutex::WaitResult::Abandoned;
  }
  bytes.resize(block.GetSize());
  std::memcpy(bytes.data(), view, bytes.size());
  if (locked) mutex.Release();
  return ControlResult::Success(locked ? "" : "copied without the block's mutex");
}
