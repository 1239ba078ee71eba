#include "platform/pipe.h"

#include <windows.h>

#include <string>
#include <vector>

#include "platform/text.h"

namespace zor::os {
namespace {

// A message-type pipe, so that a packet stays a packet whatever the writer
// sends around it; remote clients are refused. The default security lets
// only this account, administrators and the system write.
constexpr DWORD kPipeOpenMode = PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED;
constexpr DWORD kPipeMode = PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT |
                            PIPE_REJECT_REMOTE_CLIENTS;
constexpr DWORD kDefaultTimeoutMs = 100;

// The account a process runs as, as its token's user (empty if unknown).
std::vector<BYTE> ProcessUser(HANDLE process) {
  HANDLE token = nullptr;
  if (!::OpenProcessToken(process, TOKEN_QUERY, &token)) return {};
  DWORD size = 0;
  ::GetTokenInformation(token, TokenUser, nullptr, 0, &size);
  std::vector<BYTE> user(size);
  if (size == 0 || !::GetTokenInformation(token, TokenUser, user.data(), size, &size)) user.clear();
  ::CloseHandle(token);
  return user;
}

// The pipe's default security keeps other accounts from writing, not from
// making an instance of the name: a writer talks only to a reader of its
// own account or the system, so no other account hears the microphone.
bool ReaderIsTrusted(HANDLE pipe) {
  ULONG pid = 0;
  if (!::GetNamedPipeServerProcessId(pipe, &pid)) return false;
  HANDLE process = ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid);
  if (process == nullptr) return false;
  const std::vector<BYTE> reader = ProcessUser(process);
  ::CloseHandle(process);
  const std::vector<BYTE> self = ProcessUser(::GetCurrentProcess());
  if (reader.empty() || self.empty()) return false;
  PSID readerSid = reinterpret_cast<const TOKEN_USER*>(reader.data())->User.Sid;
  PSID selfSid = reinterpret_cast<const TOKEN_USER*>(self.data())->User.Sid;
  return ::EqualSid(readerSid, selfSid) || ::IsWellKnownSid(readerSid, WinLocalSystemSid);
}

}  // namespace

struct PipeServer::State {
  enum class Pending { None, Connect, Read };

  HANDLE pipe = INVALID_HANDLE_VALUE;
  Event* completion = nullptr;
  OVERLAPPED overlapped{};
  Pending pending = Pending::None;
  void* buffer = nullptr;
  uint32_t size = 0;
  uint32_t lastError = 0;

  PipeIo Fail(DWORD error) {
    lastError = error;
    pending = Pending::None;
    return PipeIo::Failed;
  }

  void Arm() {
    overlapped = OVERLAPPED{};
    overlapped.hEvent = static_cast<HANDLE>(completion->NativeHandle());
  }

  // The rest of a message longer than the buffer is read and thrown away,
  // so that the next read starts at the next message. Returns its length.
  uint32_t DrainMessage() {
    uint32_t rest = 0;
    char scratch[512];
    for (;;) {
      OVERLAPPED drain{};
      drain.hEvent = overlapped.hEvent;
      DWORD got = 0;
      BOOL ok = ::ReadFile(pipe, scratch, sizeof(scratch), &got, &drain);
      DWORD error = ok ? ERROR_SUCCESS : ::GetLastError();
      if (!ok && error == ERROR_IO_PENDING) {
        ok = ::GetOverlappedResult(pipe, &drain, &got, TRUE);
        error = ok ? ERROR_SUCCESS : ::GetLastError();
      }
      rest += got;
      if (ok || error != ERROR_MORE_DATA) return rest;
    }
  }

  PipeIo ReadResult(BOOL ok, DWORD got, uint32_t* bytes) {
    if (ok) {
      *bytes = got;
      pending = Pending::None;
      return PipeIo::Done;
    }
    const DWORD error = ::GetLastError();
    if (error == ERROR_MORE_DATA) {
      *bytes = size + DrainMessage();
      ::SetEvent(overlapped.hEvent);
      pending = Pending::None;
      return PipeIo::Done;
    }
    if (error == ERROR_IO_PENDING || error == ERROR_IO_INCOMPLETE) {
      pending = Pending::Read;
      return PipeIo::Pending;
    }
    return Fail(error);
  }

  void CancelPending() {
    if (pending == Pending::None || pipe == INVALID_HANDLE_VALUE) return;
    ::CancelIoEx(pipe, &overlapped);
    DWORD ignored = 0;
    ::GetOverlappedResult(pipe, &overlapped, &ignored, TRUE);
    pending = Pending::None;
  }
};

PipeServer::PipeServer() : m_state(std::make_unique<State>()) {}

PipeServer::~PipeServer() { Close(); }

bool PipeServer::Create(std::u16string_view name, uint32_t packetBytes, Event& completion) {
  Close();
  m_state->completion = &completion;
  const std::u16string terminated(name);
  m_state->pipe = ::CreateNamedPipeW(AsWinChars(terminated.c_str()), kPipeOpenMode, kPipeMode,
                                     kPipeInstances, packetBytes, packetBytes, kDefaultTimeoutMs,
                                     nullptr);
  if (m_state->pipe == INVALID_HANDLE_VALUE) {
    m_state->lastError = ::GetLastError();
    return false;
  }
  if (!ReaderIsTrusted(m_state->pipe)) {
    ::CloseHandle(m_state->pipe);
    m_state->pipe = INVALID_HANDLE_VALUE;
    m_state->lastError = ERROR_ACCESS_DENIED;
    return false;
  }
  return true;
}

bool PipeServer::IsOpen() const { return m_state->pipe != INVALID_HANDLE_VALUE; }

PipeIo PipeServer::Connect() {
  State& state = *m_state;
  if (state.pipe == INVALID_HANDLE_VALUE) return state.Fail(ERROR_INVALID_HANDLE);
  state.Arm();
  if (::ConnectNamedPipe(state.pipe, &state.overlapped)) {
    state.pending = State::Pending::None;
    return PipeIo::Done;
  }
  const DWORD error = ::GetLastError();
  if (error == ERROR_PIPE_CONNECTED) {
    ::SetEvent(state.overlapped.hEvent);
    state.pending = State::Pending::None;
    return PipeIo::Done;
  }
  if (error == ERROR_IO_PENDING) {
    state.pending = State::Pending::Connect;
    return PipeIo::Pending;
  }
  return state.Fail(error);
}

PipeIo PipeServer::Read(void* buffer, uint32_t size, uint32_t* bytes) {
  State& state = *m_state;
  if (state.pipe == INVALID_HANDLE_VALUE) return state.Fail(ERROR_INVALID_HANDLE);
  state.Arm();
  state.buffer = buffer;
  state.size = size;
  DWORD got = 0;
  const BOOL ok = ::ReadFile(state.pipe, buffer, size, &got, &state.overlapped);
  return state.ReadResult(ok, got, bytes);
}

int32_t PipeServer::Wait(Event* const* events, size_t count, uint32_t timeoutMs) {
  return WaitAny(events, count, timeoutMs);
}

PipeIo PipeServer::Complete(uint32_t* bytes) {
  State& state = *m_state;
  if (state.pending == State::Pending::None) return state.Fail(ERROR_INVALID_PARAMETER);
  DWORD got = 0;
  const BOOL ok = ::GetOverlappedResult(state.pipe, &state.overlapped, &got, FALSE);
  if (state.pending == State::Pending::Read) return state.ReadResult(ok, got, bytes);
  if (ok) {
    state.pending = State::Pending::None;
    return PipeIo::Done;
  }
  const DWORD error = ::GetLastError();
  if (error == ERROR_IO_INCOMPLETE) return PipeIo::Pending;
  return state.Fail(error);
}

void PipeServer::Disconnect() {
  if (m_state->pipe == INVALID_HANDLE_VALUE) return;
  m_state->CancelPending();
  ::DisconnectNamedPipe(m_state->pipe);
}

void PipeServer::Shutdown() {
  if (m_state->pipe != INVALID_HANDLE_VALUE) ::CancelIoEx(m_state->pipe, nullptr);
}

void PipeServer::Close() {
  if (m_state->pipe == INVALID_HANDLE_VALUE) return;
  m_state->CancelPending();
  ::CloseHandle(m_state->pipe);
  m_state->pipe = INVALID_HANDLE_VALUE;
}

uint32_t PipeServer::LastError() const { return m_state->lastError; }

struct PipeClient::State {
  HANDLE pipe = INVALID_HANDLE_VALUE;
  HANDLE written = nullptr;  // event of the overlapped write
  OVERLAPPED overlapped{};   // of the pending write, if any
  bool pending = false;
  uint32_t lastError = 0;

  PipeIo Fail(uint32_t error) {
    lastError = error;
    return PipeIo::Failed;
  }

  // A pending write that has not finished is taken back before its buffer
  // or handle goes.
  void Abandon() {
    if (!pending) return;
    DWORD ignored = 0;
    ::CancelIoEx(pipe, &overlapped);
    ::GetOverlappedResult(pipe, &overlapped, &ignored, TRUE);
    pending = false;
  }
};

PipeClient::PipeClient() : m_state(std::make_unique<State>()) {}

PipeClient::~PipeClient() {
  Close();
  if (m_state->written != nullptr) ::CloseHandle(m_state->written);
}

bool PipeClient::Open(std::u16string_view name, uint32_t /*slot: any free instance serves*/) {
  Close();
  const std::u16string terminated(name);
  m_state->pipe = ::CreateFileW(AsWinChars(terminated.c_str()), GENERIC_WRITE, 0, nullptr,
                                OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
  if (m_state->pipe == INVALID_HANDLE_VALUE) {
    m_state->lastError = ::GetLastError();
    return false;
  }
  if (!ReaderIsTrusted(m_state->pipe)) {
    ::CloseHandle(m_state->pipe);
    m_state->pipe = INVALID_HANDLE_VALUE;
    m_state->lastError = ERROR_ACCESS_DENIED;
    return false;
  }
  return true;
}

bool PipeClient::IsOpen() const { return m_state->pipe != INVALID_HANDLE_VALUE; }

PipeIo PipeClient::Send(const void* data, uint32_t size, uint32_t* sent) {
  State& state = *m_state;
  *sent = 0;
  if (state.pipe == INVALID_HANDLE_VALUE) return state.Fail(ERROR_INVALID_HANDLE);
  state.Abandon();
  if (state.written == nullptr) state.written = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (state.written == nullptr) return state.Fail(::GetLastError());
  state.overlapped = OVERLAPPED{};
  state.overlapped.hEvent = state.written;
  DWORD bytes = 0;
  if (::WriteFile(state.pipe, data, size, &bytes, &state.overlapped)) {
    *sent = bytes;
    return PipeIo::Done;
  }
  const DWORD error = ::GetLastError();
  if (error != ERROR_IO_PENDING) return state.Fail(error);
  state.pending = true;
  return PipeIo::Pending;
}

PipeIo PipeClient::Poll(uint32_t* sent) {
  State& state = *m_state;
  *sent = 0;
  if (!state.pending) return state.Fail(ERROR_INVALID_PARAMETER);
  DWORD bytes = 0;
  if (::GetOverlappedResult(state.pipe, &state.overlapped, &bytes, FALSE)) {
    state.pending = false;
    *sent = bytes;
    return PipeIo::Done;
  }
  const DWORD error = ::GetLastError();
  if (error == ERROR_IO_INCOMPLETE) return PipeIo::Pending;
  state.pending = false;
  return state.Fail(error);
}

PipeIo PipeClient::Finish(uint32_t timeoutMs, uint32_t* sent) {
  State& state = *m_state;
  *sent = 0;
  if (!state.pending) return state.Fail(ERROR_INVALID_PARAMETER);
  if (::WaitForSingleObject(state.written, timeoutMs) != WAIT_OBJECT_0) {
    state.Abandon();  // a stalled reader is a failed write, not a stuck writer
    return state.Fail(WAIT_TIMEOUT);
  }
  state.pending = false;
  DWORD bytes = 0;
  if (!::GetOverlappedResult(state.pipe, &state.overlapped, &bytes, FALSE)) return state.Fail(::GetLastError());
  *sent = bytes;
  return PipeIo::Done;
}

uint32_t PipeClient::Write(const void* data, uint32_t size, uint32_t timeoutMs) {
  uint32_t sent = 0;
  if (Send(data, size, &sent) == PipeIo::Pending) Finish(timeoutMs, &sent);
  return sent;
}

void PipeClient::Close() {
  m_state->Abandon();
  if (m_state->pipe != INVALID_HANDLE_VALUE) ::CloseHandle(m_state->pipe);
  m_state->pipe = INVALID_HANDLE_VALUE;
}

uint32_t PipeClient::LastError() const { return m_state->lastError; }

}  // namespace zor::os
