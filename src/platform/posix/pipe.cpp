#include "platform/pipe.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/registry.h"
#include "platform/text.h"

namespace zor::os {
namespace {

// The pipe thread looks at its events this often while a socket operation
// is pending: our events are no descriptors that poll could watch.
constexpr int kSliceMs = 10;
// sun_path less the abstract namespace's leading NUL.
constexpr size_t kMaxAbstractName = sizeof(sockaddr_un{}.sun_path) - 1;

bool KeepsByte(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '.' || c == '-';
}

uint64_t Fnv1a(std::string_view bytes) {
  uint64_t hash = 0xcbf29ce484222325ull;
  for (const char c : bytes) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 0x100000001b3ull;
  }
  return hash;
}

std::string Hex64(uint64_t value) {
  char digits[17];
  std::snprintf(digits, sizeof(digits), "%016llx", static_cast<unsigned long long>(value));
  return digits;
}

// The store root as every process spells it: symbolic links resolved where
// the directory exists.
std::string CanonicalRoot() {
  std::string root = RegistryRoot();
  if (char* real = ::realpath(root.c_str(), nullptr)) {
    root = real;
    std::free(real);
  }
  return root;
}

// "velapo.pipe." + 16 hex digits of the root + "." + the escaped name + "."
// + the instance. A name too long for the socket address keeps what fits
// and ends in "~" and a hash of the whole name.
sockaddr_un InstanceAddress(std::u16string_view name, uint32_t instance, socklen_t* length) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string escaped;
  for (const char c : Utf16ToUtf8(name)) {
    const auto byte = static_cast<unsigned char>(c);
    if (KeepsByte(byte)) {
      escaped += c;
    } else {
      escaped += '%';
      escaped += kHex[byte >> 4];
      escaped += kHex[byte & 0xF];
    }
  }
  const std::string prefix = "velapo.pipe." + Hex64(Fnv1a(CanonicalRoot())) + ".";
  const std::string suffix = "." + std::to_string(instance);
  if (prefix.size() + escaped.size() + suffix.size() > kMaxAbstractName) {
    const std::string hash = "~" + Hex64(Fnv1a(escaped));
    escaped.resize(kMaxAbstractName - prefix.size() - suffix.size() - hash.size());
    escaped += hash;
  }
  const std::string full = prefix + escaped + suffix;

  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path + 1, full.data(), full.size());
  *length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + full.size());
  return address;
}

// The same account or root, as Windows' default pipe security lets in.
bool PeerIsTrusted(int fd) {
  ucred credentials{};
  socklen_t size = sizeof(credentials);
  if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return false;
  return credentials.uid == ::geteuid() || credentials.uid == 0;
}

int NewSocket() { return ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }

int PollOne(int fd, short events, int timeoutMs) {
  pollfd entry{fd, events, 0};
  int result = 0;
  do {
    result = ::poll(&entry, 1, timeoutMs);
  } while (result < 0 && errno == EINTR);
  return result > 0 ? entry.revents : 0;
}

}  // namespace

struct PipeServer::State {
  enum class Pending { None, Accept, Receive };

  std::atomic<int> listenFd{-1};
  std::atomic<int> connectionFd{-1};
  std::atomic<bool> shutDown{false};
  Event* completion = nullptr;
  Pending pending = Pending::None;
  void* buffer = nullptr;
  uint32_t size = 0;
  uint32_t lastError = 0;

  PipeIo Fail(int error) {
    lastError = static_cast<uint32_t>(error);
    pending = Pending::None;
    return PipeIo::Failed;
  }

  // Not finished after all: the completion event waits for the socket again,
  // or the thread would spin on a signal that has nothing behind it.
  PipeIo StillPending(Pending what) {
    pending = what;
    completion->Reset();
    return PipeIo::Pending;
  }

  PipeIo Finish() {
    pending = Pending::None;
    completion->Set();  // as a finished overlapped operation signals its event
    return PipeIo::Done;
  }

  PipeIo TryAccept() {
    if (shutDown.load()) return Fail(ESHUTDOWN);
    const int fd = ::accept4(listenFd.load(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno == EAGAIN || errno == EWOULDBLOCK || errno == ECONNABORTED || errno == EINTR) {
        return StillPending(Pending::Accept);
      }
      return Fail(errno);
    }
    if (!PeerIsTrusted(fd)) {
      ::close(fd);  // another account: as if nobody had come
      return StillPending(Pending::Accept);
    }
    connectionFd.store(fd);
    return Finish();
  }

  PipeIo TryReceive(uint32_t* bytes) {
    if (shutDown.load()) return Fail(ESHUTDOWN);
    const int fd = connectionFd.load();
    if (fd < 0) return Fail(ENOTCONN);
    // MSG_TRUNC reports a longer message's whole length and drops its tail.
    const ssize_t received = ::recv(fd, buffer, size, MSG_DONTWAIT | MSG_TRUNC);
    if (received < 0) {
      if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) {
        return StillPending(Pending::Receive);
      }
      return Fail(errno);
    }
    if (received == 0 && (PollOne(fd, POLLIN | POLLRDHUP, 0) & (POLLHUP | POLLRDHUP)) != 0) {
      return Fail(EPIPE);  // the writer went: an empty message would leave it connected
    }
    *bytes = static_cast<uint32_t>(std::min<ssize_t>(received, UINT32_MAX));
    return Finish();
  }

  // Another writer at a busy instance is turned away, as a busy pipe
  // instance refuses a second client.
  void RefuseWaitingWriters() {
    const int listening = listenFd.load();
    if (listening < 0 || connectionFd.load() < 0) return;
    while (PollOne(listening, POLLIN, 0) & POLLIN) {
      const int fd = ::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) return;
      ::close(fd);
    }
  }
};

PipeServer::PipeServer() : m_state(std::make_unique<State>()) {}

PipeServer::~PipeServer() { Close(); }

bool PipeServer::Create(std::u16string_view name, uint32_t packetBytes, Event& completion) {
  Close();
  m_state->shutDown.store(false);
  m_state->completion = &completion;
  if (packetBytes == 0) return m_state->Fail(EINVAL) == PipeIo::Done;
  for (uint32_t instance = 0; instance < kPipeInstances; ++instance) {
    const int fd = NewSocket();
    if (fd < 0) return m_state->Fail(errno) == PipeIo::Done;
    socklen_t length = 0;
    const sockaddr_un address = InstanceAddress(name, instance, &length);
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), length) == 0 &&
        ::listen(fd, static_cast<int>(kPipeInstances)) == 0) {
      m_state->listenFd.store(fd);
      return true;
    }
    const int error = errno;
    ::close(fd);
    if (error != EADDRINUSE) return m_state->Fail(error) == PipeIo::Done;
  }
  m_state->Fail(EADDRINUSE);  // all instances are taken
  return false;
}

bool PipeServer::IsOpen() const { return m_state->listenFd.load() >= 0; }

PipeIo PipeServer::Connect() {
  if (m_state->listenFd.load() < 0) return m_state->Fail(EBADF);
  m_state->completion->Reset();
  if (m_state->connectionFd.load() >= 0) return m_state->Finish();  // still connected
  return m_state->TryAccept();
}

PipeIo PipeServer::Read(void* buffer, uint32_t size, uint32_t* bytes) {
  m_state->completion->Reset();
  m_state->buffer = buffer;
  m_state->size = size;
  return m_state->TryReceive(bytes);
}

int32_t PipeServer::Wait(Event* const* events, size_t count, uint32_t timeoutMs) {
  State& state = *m_state;
  int fd = -1;
  if (state.pending == State::Pending::Accept) fd = state.listenFd.load();
  if (state.pending == State::Pending::Receive) fd = state.connectionFd.load();
  if (fd < 0 || state.shutDown.load()) return WaitAny(events, count, timeoutMs);

  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    const int32_t signalled = WaitAny(events, count, 0);
    if (signalled != kWaitTimeout) return signalled;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) return kWaitTimeout;
    state.RefuseWaitingWriters();
    const int slice = static_cast<int>(std::min<int64_t>(left.count(), kSliceMs));
    if (PollOne(fd, POLLIN, slice) != 0) state.completion->Set();
  }
}

PipeIo PipeServer::Complete(uint32_t* bytes) {
  switch (m_state->pending) {
    case State::Pending::Accept: return m_state->TryAccept();
    case State::Pending::Receive: return m_state->TryReceive(bytes);
    case State::Pending::None: break;
  }
  return m_state->Fail(EINVAL);
}

void PipeServer::Disconnect() {
  const int fd = m_state->connectionFd.exchange(-1);
  if (fd >= 0) ::close(fd);
  m_state->pending = State::Pending::None;
}

void PipeServer::Shutdown() {
  m_state->shutDown.store(true);
  for (const int fd : {m_state->listenFd.load(), m_state->connectionFd.load()}) {
    if (fd >= 0) ::shutdown(fd, SHUT_RDWR);
  }
}

void PipeServer::Close() {
  Disconnect();
  const int fd = m_state->listenFd.exchange(-1);
  if (fd >= 0) ::close(fd);  // the instance's name is free again
}

uint32_t PipeServer::LastError() const { return m_state->lastError; }

struct PipeClient::State {
  int fd = -1;
  uint32_t lastError = 0;
  // The message a pending Send still has to deliver.
  const void* data = nullptr;
  uint32_t size = 0;

  PipeIo Fail(uint32_t error) {
    lastError = error;
    data = nullptr;
    return PipeIo::Failed;
  }

  PipeIo TrySend(const void* message, uint32_t length, uint32_t* sent) {
    *sent = 0;
    if (fd < 0) return Fail(EBADF);
    const ssize_t result = ::send(fd, message, length, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (result >= 0) {
      data = nullptr;
      *sent = static_cast<uint32_t>(result);
      return PipeIo::Done;
    }
    if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) return Fail(static_cast<uint32_t>(errno));
    // Nothing went: the whole message is tried again once there is room.
    data = message;
    size = length;
    return PipeIo::Pending;
  }
};

PipeClient::PipeClient() : m_state(std::make_unique<State>()) {}

PipeClient::~PipeClient() { Close(); }

bool PipeClient::Open(std::u16string_view name, uint32_t slot) {
  Close();
  if (slot >= kPipeInstances) {
    m_state->lastError = EINVAL;
    return false;
  }
  const int fd = NewSocket();
  if (fd < 0) {
    m_state->lastError = static_cast<uint32_t>(errno);
    return false;
  }
  socklen_t length = 0;
  const sockaddr_un address = InstanceAddress(name, slot, &length);
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), length) != 0) {
    m_state->lastError = static_cast<uint32_t>(errno);
    ::close(fd);
    return false;
  }
  // A reader of another account gets none of this account's audio.
  if (!PeerIsTrusted(fd)) {
    m_state->lastError = EACCES;
    ::close(fd);
    return false;
  }
  m_state->fd = fd;
  return true;
}

bool PipeClient::IsOpen() const { return m_state->fd >= 0; }

PipeIo PipeClient::Send(const void* data, uint32_t size, uint32_t* sent) {
  return m_state->TrySend(data, size, sent);
}

PipeIo PipeClient::Poll(uint32_t* sent) {
  *sent = 0;
  if (m_state->data == nullptr) return m_state->Fail(EINVAL);
  return m_state->TrySend(m_state->data, m_state->size, sent);
}

PipeIo PipeClient::Finish(uint32_t timeoutMs, uint32_t* sent) {
  State& state = *m_state;
  *sent = 0;
  if (state.data == nullptr) return state.Fail(EINVAL);
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    PollOne(state.fd, POLLOUT, static_cast<int>(std::max<int64_t>(left.count(), 0)));
    const PipeIo result = state.TrySend(state.data, state.size, sent);
    if (result != PipeIo::Pending) return result;
    if (Clock::now() >= deadline) return state.Fail(ETIMEDOUT);  // a stalled reader is a failed write
  }
}

uint32_t PipeClient::Write(const void* data, uint32_t size, uint32_t timeoutMs) {
  uint32_t sent = 0;
  if (Send(data, size, &sent) == PipeIo::Pending) Finish(timeoutMs, &sent);
  return sent;
}

void PipeClient::Close() {
  if (m_state->fd >= 0) ::close(m_state->fd);
  m_state->fd = -1;
  m_state->data = nullptr;
}

uint32_t PipeClient::LastError() const { return m_state->lastError; }

}  // namespace zor::os
