#pragma once
// A mutex with a name that every process on the machine can open, with the
// rules of a Windows named mutex:
//   - whoever opens the name first creates it, not owned; it is initialised
//     exactly once in its life;
//   - it is recursive: the owning thread may wait again and must release as
//     often;
//   - a thread or process that ends while owning it abandons it: the next
//     wait gets it with Abandoned, owns it, and the mutex works on as before;
//   - it lives while some process holds it open.
// Windows: CreateMutexW with a null DACL. POSIX: a robust, process-shared,
// recursive pthread mutex alone in a small shared object (see
// docs/sharedmemory.md).
//
// Wait(0) and Release on an uncontended mutex make no system call on POSIX
// (one each on Windows), so the audio thread may try-lock; nothing else here
// belongs there. Any thread may wait and release; Create, OpenExisting and
// Close belong to the owner of this object.

#include <cstdint>
#include <memory>
#include <string_view>

namespace zor::os {

class NamedMutex {
 public:
  enum class OpenStatus { Ok, AccessDenied, Failed };
  // What a look at a name finds, without joining the mutex.
  enum class Presence {
    Present,  // some process holds a mutex of that name open
    Denied,   // an object of that name exists, but this account may not open it
    Absent,
  };
  enum class WaitResult {
    Acquired,
    Abandoned,  // owned now, but the previous owner ended while holding it
    TimedOut,
    Failed,     // no mutex open, or the system refused
  };

  NamedMutex();
  // As Close.
  ~NamedMutex();
  NamedMutex(const NamedMutex&) = delete;
  NamedMutex& operator=(const NamedMutex&) = delete;

  // Creates the mutex or opens the existing one of that name. A mutex
  // already held by this object is closed first.
  OpenStatus Create(std::u16string_view name);
  // Opens an existing mutex only, with full access.
  OpenStatus OpenExisting(std::u16string_view name);
  bool IsOpen() const;

  // Whether a mutex of that name exists now. On POSIX only a live holder
  // keeps it: the object of a process killed while it held the mutex reads
  // absent. Any thread; makes a few system calls.
  static Presence Probe(std::u16string_view name);

  // Waits up to timeoutMs; 0 only tries. Audio thread with 0.
  WaitResult Wait(uint32_t timeoutMs);
  // Audio thread.
  void Release();

  // Lets go of the mutex. On POSIX, levels the calling thread still owns
  // through this object are released first, since the memory they live in
  // goes away; Windows would keep them until the thread ends.
  void Close();

  struct State;

 private:
  std::unique_ptr<State> m_state;
};

}  // namespace zor::os
