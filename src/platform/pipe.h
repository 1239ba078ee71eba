#pragma once
// A named pipe that carries whole packets from writers in other processes to
// a reader, with the overlapped style of a Windows pipe server: an operation
// either finishes at once or is pending, the caller waits on its events
// together with the pipe's completion event, and then collects the result
// without blocking.
//
// Each reader object is one instance of the pipe; at most kPipeInstances
// exist for one name, and one more Create fails. An instance serves one
// writer at a time. A writer holds one connection to one instance.
// Packets stay packets: a read returns one whole message, however long, and
// never the start of the next one.
//
// Only the same account or root may meet: a reader refuses writers of other
// accounts, and a writer refuses readers of other accounts.
//
// Windows: message-type named pipes with overlapped I/O. POSIX: one
// Unix-domain SOCK_SEQPACKET socket per instance in the abstract namespace,
// its name made from the store root (platform/registry.h) and the pipe name,
// so processes sharing a root meet and tests with temporary roots never do;
// see docs/pipe.md.
//
// Nothing here belongs on the audio thread. Each object is used by one
// thread, except Shutdown, which any thread may call to make a stuck thread's
// pipe calls fail.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "platform/event.h"

namespace zor::os {

inline constexpr uint32_t kPipeInstances = 5;

enum class PipeIo {
  Done,     // finished now; a read's byte count is valid
  Pending,  // under way; wait, then Complete
  Failed,   // LastError says why
};

// The reader's end: one instance of the pipe.
class PipeServer {
 public:
  PipeServer();
  // As Close.
  ~PipeServer();
  PipeServer(const PipeServer&) = delete;
  PipeServer& operator=(const PipeServer&) = delete;

  // Makes one instance of the pipe `name` for messages of `packetBytes`.
  // `completion` is the manual-reset event that pending operations signal
  // when they finish; it must outlive this object's open instance. False
  // when all instances are taken or the system refuses.
  bool Create(std::u16string_view name, uint32_t packetBytes, Event& completion);
  bool IsOpen() const;

  // Starts waiting for a writer. Done: a writer is connected.
  PipeIo Connect();
  // Starts reading one message into buffer[0..size). Done sets *bytes to
  // the message's length, which exceeds `size` for a longer message (its
  // tail is discarded, never left for the next read).
  PipeIo Read(void* buffer, uint32_t size, uint32_t* bytes);
  // Waits until one of `events` is signalled or timeoutMs pass; the events
  // should include the completion event, which is then signalled as soon
  // as the pending operation can finish. Returns WaitAny's result.
  int32_t Wait(Event* const* events, size_t count, uint32_t timeoutMs);
  // Collects the pending operation without waiting: Done (a read's length
  // in *bytes, as Read gives it), Pending, or Failed.
  PipeIo Complete(uint32_t* bytes);
  // Drops the connected writer, if any; the instance stays.
  void Disconnect();

  // Makes every call on this instance fail from now on, from any thread,
  // without freeing anything another thread may still use.
  void Shutdown();
  void Close();
  // The system's code for the last failure (Windows error numbers, errno).
  uint32_t LastError() const;

  struct State;

 private:
  std::unique_ptr<State> m_state;
};

// A writer's connection to one instance.
class PipeClient {
 public:
  PipeClient();
  ~PipeClient();
  PipeClient(const PipeClient&) = delete;
  PipeClient& operator=(const PipeClient&) = delete;

  // Connects to a free instance of `name`; `slot` (0..kPipeInstances-1) is
  // the writer's own number for this connection, which POSIX uses to pick
  // the instance. False, silently, when no reader listens there.
  bool Open(std::u16string_view name, uint32_t slot);
  bool IsOpen() const;
  // Starts sending one message without waiting. Done: *sent bytes went.
  // Pending: the pipe has no room yet; `data` must stay as it is until
  // Finish. Failed: LastError says why.
  PipeIo Send(const void* data, uint32_t size, uint32_t* sent);
  // Looks at a pending Send without waiting: Done (with *sent), still
  // Pending, or Failed.
  PipeIo Poll(uint32_t* sent);
  // Waits at most timeoutMs for a pending Send: Done (with *sent) or
  // Failed. A message that found no room in time is abandoned, so a
  // stalled reader is a failed write, never a stuck writer.
  PipeIo Finish(uint32_t timeoutMs, uint32_t* sent);
  // Send, then Finish: the bytes sent, `size` unless it failed.
  uint32_t Write(const void* data, uint32_t size, uint32_t timeoutMs);
  void Close();
  uint32_t LastError() const;

  struct State;

 private:
  std::unique_ptr<State> m_state;
};

}  // namespace zor::os
