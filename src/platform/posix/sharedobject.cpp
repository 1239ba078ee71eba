#include "platform/posix/sharedobject.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/text.h"

namespace zor::os::posix {
namespace {

constexpr size_t kMaxObjectName = 255;  // NAME_MAX of /dev/shm, with the '/'
constexpr size_t kHashDigits = 32;
constexpr char kGateName[] = "/velapo.gate";

bool KeepsByte(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '.' || c == '-';
}

uint64_t Fnv1a(std::string_view bytes, uint64_t basis, bool backwards) {
  uint64_t hash = basis;
  for (size_t i = 0; i < bytes.size(); ++i) {
    hash ^= static_cast<unsigned char>(bytes[backwards ? bytes.size() - 1 - i : i]);
    hash *= 0x100000001b3ull;
  }
  return hash;
}

// Opens an existing file, or creates it readable and writable by every
// account (the null DACL of the Windows objects). Creation with O_EXCL,
// then a plain open, keeps working where the kernel refuses O_CREAT on
// another account's file in a sticky directory (fs.protected_regular).
int OpenOrCreate(const char* objectName, int access, bool create) {
  for (int attempt = 0; attempt < 4; ++attempt) {
    const int fd = ::shm_open(objectName, access | O_CLOEXEC, 0);
    if (fd >= 0 || errno != ENOENT || !create) return fd;
    const int made = ::shm_open(objectName, access | O_CLOEXEC | O_CREAT | O_EXCL, 0666);
    if (made >= 0) {
      ::fchmod(made, 0666);  // past the umask
      return made;
    }
    if (errno != EEXIST) return -1;
  }
  return -1;
}

int FlockRetrying(int fd, int operation) {
  int result = 0;
  do {
    result = ::flock(fd, operation);
  } while (result != 0 && errno == EINTR);
  return result;
}

// The machine-wide gate around opening, creating and last closes.
class Gate {
 public:
  Gate() : m_fd(OpenOrCreate(kGateName, O_RDONLY, true)) {
    if (m_fd >= 0 && FlockRetrying(m_fd, LOCK_EX) != 0) {
      ::close(m_fd);
      m_fd = -1;
    }
  }
  ~Gate() {
    if (m_fd >= 0) ::close(m_fd);  // drops the lock
  }
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;
  bool IsHeld() const { return m_fd >= 0; }

 private:
  int m_fd;
};

}  // namespace

std::string SharedObjectName(std::u16string_view name, std::string_view kind) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  const std::string utf8 = Utf16ToUtf8(name);
  std::string result = "/velapo.";
  result += kind;
  result += '.';
  const size_t prefixSize = result.size();
  for (const char c : utf8) {
    const auto byte = static_cast<unsigned char>(c);
    if (KeepsByte(byte)) {
      result += c;
    } else {
      result += '%';
      result += kHex[byte >> 4];
      result += kHex[byte & 0xF];
    }
  }
  if (result.size() <= kMaxObjectName) return result;

  // Too long: keep what fits before the hash, never cutting an escape.
  size_t keep = kMaxObjectName - 1 - kHashDigits;
  for (size_t back = 1; back <= 2; ++back) {
    if (result[keep - back] == '%') keep -= back;
  }
  result.resize(std::max(keep, prefixSize));
  char digits[kHashDigits + 1];
  std::snprintf(digits, sizeof(digits), "%016llx%016llx",
                static_cast<unsigned long long>(Fnv1a(utf8, 0xcbf29ce484222325ull, false)),
                static_cast<unsigned long long>(Fnv1a(utf8, 0x84222325cbf29ce4ull, true)));
  result += '~';
  result += digits;
  return result;
}

SharedObjectHolder::Outcome SharedObjectHolder::Open(const std::string& objectName, size_t size,
                                                     bool create, Initialise initialise) {
  Close();
  if (size == 0) return Outcome::Failed;
  const Gate gate;
  if (!gate.IsHeld()) return Outcome::Failed;

  const int fd = OpenOrCreate(objectName.c_str(), O_RDWR, create);
  if (fd < 0) {
    if (errno == ENOENT) return Outcome::Absent;
    return errno == EACCES ? Outcome::AccessDenied : Outcome::Failed;
  }

  // Under the gate nobody else takes an exclusive lock, so this one
  // succeeds exactly when no process holds the object.
  if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
    if (!create) {
      ::shm_unlink(objectName.c_str());
      ::close(fd);
      return Outcome::Absent;
    }
    bool made = ::ftruncate(fd, 0) == 0 && ::ftruncate(fd, static_cast<off_t>(size)) == 0;
    if (made && initialise != nullptr) {
      void* content = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
      made = content != MAP_FAILED && initialise(content, size);
      if (content != MAP_FAILED) ::munmap(content, size);
    }
    // Exclusive to shared: the conversion is not atomic, but under the gate
    // nobody can take the object in between.
    if (!made || FlockRetrying(fd, LOCK_SH) != 0) {
      ::close(fd);
      return Outcome::Failed;
    }
    m_fd = fd;
    m_fileSize = size;
    m_objectName = objectName;
    return Outcome::Created;
  }

  // Held by others: join them. Should they all leave from here on, this
  // process simply became the last holder.
  struct stat info {};
  if (FlockRetrying(fd, LOCK_SH) != 0 || ::fstat(fd, &info) != 0 || info.st_size <= 0) {
    ::close(fd);
    return Outcome::Failed;
  }
  m_fd = fd;
  m_fileSize = static_cast<size_t>(info.st_size);
  m_objectName = objectName;
  return Outcome::Opened;
}

bool SharedObjectHolder::Exists(const std::string& objectName) {
  SharedObjectHolder probe;
  return probe.Open(objectName, 1, false) == Outcome::Opened;
}

void SharedObjectHolder::Close() {
  if (m_fd < 0) return;
  {
    const Gate gate;
    // A failed upgrade drops the shared lock, which is no loss on the way
    // out; a successful one means nobody else holds the object.
    if (gate.IsHeld() && ::flock(m_fd, LOCK_EX | LOCK_NB) == 0) ::shm_unlink(m_objectName.c_str());
    ::close(m_fd);
  }
  m_fd = -1;
  m_fileSize = 0;
  m_objectName.clear();
}

}  // namespace zor::os::posix
