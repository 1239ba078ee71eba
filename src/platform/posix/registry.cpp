// The POSIX settings store: one directory per key, one record file per value,
// under a root directory that stands for HKEY_LOCAL_MACHINE. The layout and
// its rules are in docs/registry.md; registrystore.h holds the byte formats,
// registrywatch.h the change notification.
//
// Every change reaches the store by rename(2) of a finished file or
// directory, so readers in any process see a value or key whole or not at
// all, and a writer killed at any moment leaves at most a temporary file
// behind. Temporary entries are held under flock(2) while they are written;
// one whose lock is free belongs to a dead writer and is swept away.
#include "platform/registry.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>

#include "platform/posix/registrystore.h"
#include "platform/posix/registrywatch.h"

namespace zor::os {

namespace {

struct NameList {
  bool listed = false;
  std::vector<std::u16string> names;
};

}  // namespace

struct RegKey::State {
  std::string dir;
  uint32_t access = 0;

  std::mutex armedLock;
  std::vector<uint64_t> armed;  // guarded by armedLock

  // Enumeration lists the key's directory once, at index 0, and serves the
  // following indices from that list.
  NameList valueNames;
  NameList keyNames;
};

namespace {

namespace store = regstore;

std::mutex g_rootLock;
std::string g_root;  // guarded by g_rootLock
bool g_rootChosen = false;

RegStatus FromErrno(int error) {
  switch (error) {
    case 0:
      return RegStatus::Ok;
    case ENOENT:
    case ENOTDIR:
      return RegStatus::NotFound;
    case EACCES:
    case EPERM:
    case EROFS:
      return RegStatus::AccessDenied;
    case ENAMETOOLONG:
      return RegStatus::InvalidParameter;
    default:
      return RegStatus::IoFailed;
  }
}

bool DirExists(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// A missing entry in a key is NotFound while the key stands, KeyDeleted once
// the key itself is gone.
RegStatus MissingIn(const std::string& dir, int error) {
  if (error == ENOENT && !DirExists(dir)) return RegStatus::KeyDeleted;
  return FromErrno(error);
}

std::string RandomSuffix() {
  uint64_t bits = 0;
  if (::getrandom(&bits, sizeof(bits), GRND_NONBLOCK) != static_cast<ssize_t>(sizeof(bits))) {
    static std::atomic<uint64_t> counter{0};
    bits = (static_cast<uint64_t>(::getpid()) << 32) ^ counter.fetch_add(1);
  }
  char text[17];
  std::snprintf(text, sizeof(text), "%016llx", static_cast<unsigned long long>(bits));
  return text;
}

std::u16string_view UpToNul(std::u16string_view text) {
  const size_t nul = text.find(u'\0');
  return nul == std::u16string_view::npos ? text : text.substr(0, nul);
}

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd = -1) : m_fd(fd) {}
  ~FileDescriptor() {
    if (m_fd >= 0) ::close(m_fd);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return m_fd; }
  bool valid() const { return m_fd >= 0; }

 private:
  int m_fd;
};

bool WriteAll(int fd, std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes = bytes.subspan(static_cast<size_t>(written));
  }
  return true;
}

// Reads up to `limit` bytes of an open file from its start; `size` is the
// file's size when it was opened.
RegStatus ReadOpenFile(int fd, size_t limit, std::vector<uint8_t>& bytes, uint64_t& size) {
  struct stat info {};
  if (::fstat(fd, &info) != 0) return FromErrno(errno);
  if (!S_ISREG(info.st_mode)) return RegStatus::InvalidData;
  size = static_cast<uint64_t>(info.st_size);
  // A file larger than any record is damaged; don't read it.
  if (size > store::kMaxRecordSize) return RegStatus::InvalidData;
  bytes.resize(static_cast<size_t>(std::min<uint64_t>(size, limit)));
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t got = ::pread(fd, bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return FromErrno(errno);
    if (got == 0) return RegStatus::InvalidData;  // shrank under us: only an outside editor does that
    done += static_cast<size_t>(got);
  }
  return RegStatus::Ok;
}

RegStatus ReadRecordFile(const std::string& path, store::Record& record, int& error) {
  const FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (!fd.valid()) {
    error = errno;
    return FromErrno(error);
  }
  std::vector<uint8_t> bytes;
  uint64_t size = 0;
  const RegStatus status = ReadOpenFile(fd.get(), store::kMaxRecordSize, bytes, size);
  if (status != RegStatus::Ok) return status;
  return store::DecodeRecord(bytes, record);
}

RegStatus ReadRecordName(const std::string& path, std::u16string& name) {
  const FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (!fd.valid()) return FromErrno(errno);
  std::vector<uint8_t> head;
  uint64_t size = 0;
  const RegStatus status = ReadOpenFile(
      fd.get(), store::kRecordHeaderSize + kMaxValueNameUnits * 2, head, size);
  if (status != RegStatus::Ok) return status;
  return store::DecodeRecordName(head, size, name);
}

// Removes a directory tree; used only on entries already renamed out of
// sight, so nobody reads them meanwhile.
void RemoveTree(int parentFd, const char* name) {
  const int fd = ::openat(parentFd, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW);
  if (fd >= 0) {
    if (DIR* listing = ::fdopendir(fd)) {
      std::vector<std::string> entries;
      while (const dirent* entry = ::readdir(listing)) {
        const std::string_view entryName = entry->d_name;
        if (entryName != "." && entryName != "..") entries.emplace_back(entryName);
      }
      for (const std::string& entry : entries) {
        if (::unlinkat(fd, entry.c_str(), 0) != 0 && (errno == EISDIR || errno == EPERM)) {
          RemoveTree(fd, entry.c_str());
        }
      }
      ::closedir(listing);  // closes fd
    } else {
      ::close(fd);
    }
  }
  ::unlinkat(parentFd, name, AT_REMOVEDIR);
}

void RemoveTree(const std::string& path) { RemoveTree(AT_FDCWD, path.c_str()); }

// Temporary entries whose writer died: their flock is free.
void SweepStaleTemporaries(const std::string& dir) {
  DIR* listing = ::opendir(dir.c_str());
  if (listing == nullptr) return;
  std::vector<std::string> candidates;
  while (const dirent* entry = ::readdir(listing)) {
    if (std::string_view(entry->d_name).starts_with(store::kTempPrefix)) {
      candidates.emplace_back(entry->d_name);
    }
  }
  ::closedir(listing);
  for (const std::string& name : candidates) {
    const std::string path = dir + "/" + name;
    const FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!fd.valid() || ::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) continue;
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0) continue;
    if (S_ISDIR(info.st_mode)) {
      RemoveTree(path);
    } else {
      ::unlink(path.c_str());
    }
  }
}

// Writes a finished file into `dir` under `finalName` by way of a locked
// temporary file, so the name shows the old content or the new, whole.
RegStatus ReplaceFile(const std::string& dir, const std::string& finalName,
                      std::span<const uint8_t> bytes, mode_t mode) {
  const std::string finalPath = dir + "/" + finalName;
  // A sweeper may take a temporary file for a dead writer's in the moment
  // between its creation and its lock; then the rename finds it gone, and
  // the write is simply done again.
  for (int attempt = 0; attempt < 3; ++attempt) {
    const std::string temp = dir + "/" + store::kTempPrefix + "." + RandomSuffix();
    const FileDescriptor fd(::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!fd.valid()) return MissingIn(dir, errno);
    // The data reaches the disk before the name does, so even a power cut
    // leaves the old value or the new one, not an empty file.
    if (::flock(fd.get(), LOCK_EX) != 0 || ::fchmod(fd.get(), mode) != 0 ||
        !WriteAll(fd.get(), bytes) || ::fdatasync(fd.get()) != 0) {
      const int error = errno;
      ::unlink(temp.c_str());
      return FromErrno(error);
    }
    if (::rename(temp.c_str(), finalPath.c_str()) == 0) return RegStatus::Ok;
    const int error = errno;
    ::unlink(temp.c_str());
    if (error != ENOENT) return FromErrno(error);
    if (!DirExists(dir)) return RegStatus::KeyDeleted;
  }
  return RegStatus::IoFailed;
}

// Splits a key path into its names. A trailing '\' is tolerated; empty names
// and names over kMaxKeyNameUnits are not.
RegStatus SplitPath(std::u16string_view path, std::vector<std::u16string_view>& names) {
  path = UpToNul(path);
  if (!path.empty() && path.back() == u'\\') path.remove_suffix(1);
  names.clear();
  if (path.empty()) return RegStatus::Ok;
  for (;;) {
    const size_t separator = path.find(u'\\');
    const std::u16string_view name = path.substr(0, separator);
    if (name.empty() || name.size() > kMaxKeyNameUnits) return RegStatus::InvalidParameter;
    names.push_back(name);
    if (separator == std::u16string_view::npos) return RegStatus::Ok;
    path.remove_prefix(separator + 1);
  }
}

// The directory of the existing subkey `name` of `dir`.
RegStatus FindSubKey(const std::string& dir, std::u16string_view name, std::string& found) {
  const std::u16string folded = store::FoldName(name);
  const std::string escaped = store::EscapeName(folded);
  const std::string path = dir + "/" + escaped;
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0) return MissingIn(dir, errno);
  if (!S_ISDIR(info.st_mode)) return RegStatus::InvalidData;
  if (escaped.find('~') != std::string::npos) {
    // A hashed file name: make sure it is this name's and not another's.
    std::u16string stored;
    if (ReadRecordName(path + "/" + store::kKeyNameFile, stored) != RegStatus::Ok ||
        store::FoldName(stored) != folded) {
      return RegStatus::InvalidData;
    }
  }
  found = path;
  return RegStatus::Ok;
}

// Finds or creates the subkey `name` of `dir`. A new key is built in a
// temporary directory with its name record and moved into place in one
// step; when another process got there first, its key is the one.
RegStatus MakeSubKey(const std::string& dir, std::u16string_view name, std::string& found,
                     bool& created) {
  created = false;
  const RegStatus existing = FindSubKey(dir, name, found);
  if (existing != RegStatus::NotFound) return existing;
  struct stat parent {};
  if (::stat(dir.c_str(), &parent) != 0) return MissingIn(dir, errno);
  // The set-group-ID bit too, which carries the key's group downwards.
  const mode_t mode = parent.st_mode & 02777;
  const std::string finalPath = dir + "/" + store::EscapeName(store::FoldName(name));
  const std::vector<uint8_t> nameRecord =
      store::EncodeRecord(static_cast<uint32_t>(RegType::None), UpToNul(name), {});
  for (int attempt = 0; attempt < 3; ++attempt) {
    const std::string temp = dir + "/" + store::kTempPrefix + "key." + RandomSuffix();
    if (::mkdir(temp.c_str(), 0700) != 0) return MissingIn(dir, errno);
    const FileDescriptor lock(::open(temp.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!lock.valid() || ::flock(lock.get(), LOCK_EX) != 0) {
      RemoveTree(temp);
      continue;  // swept away before we held it
    }
    RegStatus status = ReplaceFile(temp, store::kKeyNameFile, nameRecord, mode & 0666);
    if (status == RegStatus::Ok && ::chmod(temp.c_str(), mode) != 0) status = FromErrno(errno);
    if (status != RegStatus::Ok) {
      RemoveTree(temp);
      if (status == RegStatus::KeyDeleted) continue;
      return status;
    }
    // A key directory is never empty (it holds its name record), so plain
    // rename refuses to replace one too, where a file system lacks
    // RENAME_NOREPLACE.
    int moved = ::renameat2(AT_FDCWD, temp.c_str(), AT_FDCWD, finalPath.c_str(), RENAME_NOREPLACE);
    if (moved != 0 && (errno == EINVAL || errno == ENOSYS)) {
      moved = ::rename(temp.c_str(), finalPath.c_str());
    }
    if (moved == 0) {
      found = finalPath;
      created = true;
      return RegStatus::Ok;
    }
    const int error = errno;
    RemoveTree(temp);
    if (error == EEXIST || error == ENOTEMPTY) return FindSubKey(dir, name, found);
    return MissingIn(dir, error);
  }
  return RegStatus::IoFailed;
}

bool MakeRootDirectories(const std::string& root) {
  for (size_t at = 1; at <= root.size(); ++at) {
    if (at != root.size() && root[at] != '/') continue;
    const std::string part = root.substr(0, at);
    if (::mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) return false;
  }
  return DirExists(root);
}

RegStatus CheckFileAccess(const std::string& dir, uint32_t access) {
  int needed = 0;
  if ((access & (kKeyQueryValue | kKeyEnumerateSubKeys | kKeyNotify | kKeyReadControl)) != 0) {
    needed |= R_OK | X_OK;
  }
  if ((access & (kKeySetValue | kKeyCreateSubKey)) != 0) needed |= W_OK | X_OK;
  if (needed != 0 && ::faccessat(AT_FDCWD, dir.c_str(), needed, AT_EACCESS) != 0) {
    return FromErrno(errno);
  }
  return RegStatus::Ok;
}

RegStatus OpenFrom(const std::string& base, std::u16string_view path, uint32_t access, bool create,
                   RegKey::State& state, bool* created) {
  std::vector<std::u16string_view> names;
  if (const RegStatus status = SplitPath(path, names); status != RegStatus::Ok) return status;
  std::string dir = base;
  bool madeLast = false;
  for (const std::u16string_view name : names) {
    std::string next;
    const RegStatus status =
        create ? MakeSubKey(dir, name, next, madeLast) : FindSubKey(dir, name, next);
    if (status != RegStatus::Ok) return status;
    dir = std::move(next);
  }
  if (!DirExists(dir)) return names.empty() ? RegStatus::NotFound : RegStatus::KeyDeleted;
  if (const RegStatus status = CheckFileAccess(dir, access); status != RegStatus::Ok) return status;
  // Opening for creation is what a process does at its start: a good moment
  // to clear what earlier writers left when they died.
  if (create && (access & kKeySetValue) != 0) SweepStaleTemporaries(dir);
  state.dir = std::move(dir);
  state.access = access;
  if (created != nullptr) *created = madeLast;
  return RegStatus::Ok;
}

RegStatus ValuePath(const RegKey::State& state, std::u16string_view name, uint32_t needed,
                    std::string& path, std::u16string& folded) {
  if ((state.access & needed) != needed) return RegStatus::AccessDenied;
  name = UpToNul(name);
  if (name.size() > kMaxValueNameUnits) return RegStatus::InvalidParameter;
  folded = store::FoldName(name);
  path = state.dir + "/" + store::kValuePrefix + store::EscapeName(folded);
  return RegStatus::Ok;
}

// The names in a key, sorted by file name so every look gives one order.
RegStatus ListKey(const std::string& dir, bool values, std::vector<std::u16string>& names) {
  DIR* listing = ::opendir(dir.c_str());
  if (listing == nullptr) return errno == ENOENT ? RegStatus::KeyDeleted : FromErrno(errno);
  std::vector<std::string> files;
  while (const dirent* entry = ::readdir(listing)) {
    const char first = entry->d_name[0];
    if (first == '.' || (first == store::kValuePrefix) != values) continue;
    files.emplace_back(entry->d_name);
  }
  ::closedir(listing);
  std::sort(files.begin(), files.end());
  names.clear();
  for (const std::string& file : files) {
    const std::string path = dir + "/" + file;
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0 || S_ISDIR(info.st_mode) == values) continue;
    std::u16string name;
    const std::string recordPath = values ? path : path + "/" + store::kKeyNameFile;
    if (ReadRecordName(recordPath, name) == RegStatus::Ok) {
      names.push_back(std::move(name));
      continue;
    }
    // A damaged record still shows under its file name, so that readers
    // meet it and report it; only a hashed name is lost with its record.
    const std::string_view escaped = std::string_view(file).substr(values ? 1 : 0);
    if (values && escaped.empty()) {
      names.emplace_back();
    } else if (store::UnescapeName(escaped, name)) {
      names.push_back(std::move(name));
    }
  }
  return RegStatus::Ok;
}

}  // namespace

RegKey::RegKey() = default;
RegKey::~RegKey() { Close(); }
RegKey::RegKey(RegKey&& other) noexcept = default;

RegKey& RegKey::operator=(RegKey&& other) noexcept {
  if (this != &other) {
    Close();
    m_state = std::move(other.m_state);
  }
  return *this;
}

RegStatus RegKey::Open(std::u16string_view path, uint32_t access, RegKey& key) {
  const std::string root = RegistryRoot();
  auto state = std::make_unique<State>();
  const RegStatus status = DirExists(root) ? OpenFrom(root, path, access, false, *state, nullptr)
                                           : RegStatus::NotFound;
  key.Close();
  if (status == RegStatus::Ok) key.m_state = std::move(state);
  return status;
}

RegStatus RegKey::Create(std::u16string_view path, uint32_t access, RegKey& key, bool* created) {
  const std::string root = RegistryRoot();
  auto state = std::make_unique<State>();
  const RegStatus status = MakeRootDirectories(root)
                               ? OpenFrom(root, path, access, true, *state, created)
                               : FromErrno(errno);
  key.Close();
  if (status == RegStatus::Ok) key.m_state = std::move(state);
  return status;
}

RegStatus RegKey::OpenSubKey(std::u16string_view path, uint32_t access, RegKey& key) const {
  if (!m_state) return RegStatus::NotOpen;
  auto state = std::make_unique<State>();
  const RegStatus status = OpenFrom(m_state->dir, path, access, false, *state, nullptr);
  key.Close();
  if (status == RegStatus::Ok) key.m_state = std::move(state);
  return status;
}

RegStatus RegKey::CreateSubKey(std::u16string_view path, uint32_t access, RegKey& key,
                               bool* created) const {
  if (!m_state) return RegStatus::NotOpen;
  if ((m_state->access & kKeyCreateSubKey) == 0) return RegStatus::AccessDenied;
  auto state = std::make_unique<State>();
  const RegStatus status = OpenFrom(m_state->dir, path, access, true, *state, created);
  key.Close();
  if (status == RegStatus::Ok) key.m_state = std::move(state);
  return status;
}

RegStatus RegKey::DeleteSubKeyTree(std::u16string_view path) const {
  if (!m_state) return RegStatus::NotOpen;
  constexpr uint32_t kNeeded = kKeyDelete | kKeyEnumerateSubKeys | kKeyQueryValue;
  if ((m_state->access & kNeeded) != kNeeded) return RegStatus::AccessDenied;
  std::vector<std::u16string_view> names;
  if (const RegStatus status = SplitPath(path, names); status != RegStatus::Ok) return status;
  if (names.empty()) return RegStatus::InvalidParameter;  // a key cannot delete itself this way
  State target;
  const RegStatus status = OpenFrom(m_state->dir, path, 0, false, target, nullptr);
  if (status != RegStatus::Ok) return status;
  // Hold the tree's lock while it goes, so no sweeper removes it twice, and
  // move it out of sight first: watchers see one deletion, readers a key
  // that is there or not.
  const FileDescriptor lock(::open(target.dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!lock.valid() || ::flock(lock.get(), LOCK_EX) != 0) return FromErrno(errno);
  const std::string parent = target.dir.substr(0, target.dir.rfind('/'));
  const std::string doomed = parent + "/" + store::kTempPrefix + "del." + RandomSuffix();
  if (::rename(target.dir.c_str(), doomed.c_str()) != 0) return MissingIn(parent, errno);
  RemoveTree(doomed);
  return RegStatus::Ok;
}

RegStatus RegKey::Duplicate(RegKey& copy) const {
  if (!m_state) return RegStatus::NotOpen;
  auto state = std::make_unique<State>();
  state->dir = m_state->dir;
  state->access = m_state->access;
  copy.Close();
  copy.m_state = std::move(state);
  return RegStatus::Ok;
}

void RegKey::Close() {
  if (!m_state) return;
  {
    const std::lock_guard<std::mutex> lock(m_state->armedLock);
    for (const uint64_t id : m_state->armed) store::EndChangeNotification(id);
  }
  m_state.reset();
}

bool RegKey::IsOpen() const { return m_state != nullptr; }

uint32_t RegKey::Access() const { return m_state ? m_state->access : 0; }

RegStatus RegKey::QueryValue(std::u16string_view name, RegType& type, uint32_t& size) const {
  // A size is only worth giving once the whole record has checked out.
  std::vector<uint8_t> data;
  const RegStatus status = ReadValue(name, type, data);
  if (status == RegStatus::Ok) size = static_cast<uint32_t>(data.size());
  return status;
}

RegStatus RegKey::ReadValue(std::u16string_view name, RegType& type,
                            std::vector<uint8_t>& data) const {
  if (!m_state) return RegStatus::NotOpen;
  std::string path;
  std::u16string folded;
  if (const RegStatus status = ValuePath(*m_state, name, kKeyQueryValue, path, folded);
      status != RegStatus::Ok) {
    return status;
  }
  store::Record record;
  int error = 0;
  const RegStatus status = ReadRecordFile(path, record, error);
  if (status != RegStatus::Ok) return error != 0 ? MissingIn(m_state->dir, error) : status;
  if (store::FoldName(record.name) != folded) return RegStatus::InvalidData;
  type = static_cast<RegType>(record.type);
  data = std::move(record.data);
  return RegStatus::Ok;
}

RegStatus RegKey::WriteValue(std::u16string_view name, RegType type,
                             std::span<const uint8_t> data) const {
  if (!m_state) return RegStatus::NotOpen;
  std::string path;
  std::u16string folded;
  if (const RegStatus status = ValuePath(*m_state, name, kKeySetValue, path, folded);
      status != RegStatus::Ok) {
    return status;
  }
  if (data.size() > kMaxValueBytes) return RegStatus::InvalidParameter;
  // An existing value keeps the spelling it was created with.
  std::u16string stored(UpToNul(name));
  std::u16string existing;
  if (ReadRecordName(path, existing) == RegStatus::Ok) {
    if (store::FoldName(existing) != folded) return RegStatus::InvalidData;  // hash collision
    stored = std::move(existing);
  }
  struct stat key {};
  if (::stat(m_state->dir.c_str(), &key) != 0) return MissingIn(m_state->dir, errno);
  const std::vector<uint8_t> record = store::EncodeRecord(static_cast<uint32_t>(type), stored, data);
  return ReplaceFile(m_state->dir, path.substr(m_state->dir.size() + 1), record,
                     key.st_mode & 0666);
}

RegStatus RegKey::DeleteValue(std::u16string_view name) const {
  if (!m_state) return RegStatus::NotOpen;
  std::string path;
  std::u16string folded;
  if (const RegStatus status = ValuePath(*m_state, name, kKeySetValue, path, folded);
      status != RegStatus::Ok) {
    return status;
  }
  if (::unlink(path.c_str()) != 0) return MissingIn(m_state->dir, errno);
  return RegStatus::Ok;
}

namespace {

RegStatus EnumCached(const std::string& dir, bool values, uint32_t index,
                     NameList& list, std::u16string& name) {
  if (index == 0 || !list.listed) {
    list.listed = false;
    if (const RegStatus status = ListKey(dir, values, list.names); status != RegStatus::Ok) {
      return status;
    }
    list.listed = true;
  }
  if (index >= list.names.size()) return RegStatus::NoMoreItems;
  name = list.names[index];
  return RegStatus::Ok;
}

}  // namespace

RegStatus RegKey::EnumValue(uint32_t index, std::u16string& name) {
  if (!m_state) return RegStatus::NotOpen;
  if ((m_state->access & kKeyQueryValue) == 0) return RegStatus::AccessDenied;
  return EnumCached(m_state->dir, true, index, m_state->valueNames, name);
}

RegStatus RegKey::EnumSubKey(uint32_t index, std::u16string& name) {
  if (!m_state) return RegStatus::NotOpen;
  if ((m_state->access & kKeyEnumerateSubKeys) == 0) return RegStatus::AccessDenied;
  return EnumCached(m_state->dir, false, index, m_state->keyNames, name);
}

RegStatus RegKey::NotifyChange(bool watchSubtree, uint32_t filter, Event& event) {
  if (!m_state) return RegStatus::NotOpen;
  if ((m_state->access & kKeyNotify) == 0) return RegStatus::AccessDenied;
  constexpr uint32_t kAllFilters =
      kNotifyChangeName | kNotifyChangeAttributes | kNotifyChangeLastSet | kNotifyChangeSecurity;
  if (filter == 0 || (filter & ~kAllFilters) != 0) return RegStatus::InvalidParameter;
  const std::lock_guard<std::mutex> lock(m_state->armedLock);
  // Forget notifications that have fired, so a watcher that arms again
  // after every signal keeps this list short.
  std::erase_if(m_state->armed, [](uint64_t id) { return !store::IsChangeNotificationArmed(id); });
  uint64_t id = 0;
  const RegStatus status =
      store::ArmChangeNotification(m_state->dir, watchSubtree, filter, event, id);
  if (status == RegStatus::Ok) m_state->armed.push_back(id);
  return status;
}

RegSecurityResult RegKey::SetSecurity(std::u16string_view descriptor) {
  RegSecurityResult result;
  uint32_t mode = 0;
  if (!store::DescriptorToMode(UpToNul(descriptor), mode)) {
    result.conversionError = static_cast<uint32_t>(RegStatus::InvalidParameter);
    return result;
  }
  result.converted = true;
  if (!m_state) {
    result.status = RegStatus::NotOpen;
  } else if ((m_state->access & kKeyWriteDac) == 0) {
    result.status = RegStatus::AccessDenied;
  } else if (::chmod(m_state->dir.c_str(), mode) != 0) {
    result.status = MissingIn(m_state->dir, errno);
  } else {
    // Files written from now on take the key's bits; bring the present ones
    // along where this process owns them (others follow at their next write).
    if (DIR* listing = ::opendir(m_state->dir.c_str())) {
      while (const dirent* entry = ::readdir(listing)) {
        const std::string_view name = entry->d_name;
        if (name.starts_with(store::kValuePrefix) || name == store::kKeyNameFile) {
          ::fchmodat(::dirfd(listing), entry->d_name, mode & 0666, 0);
        }
      }
      ::closedir(listing);
    }
    result.status = RegStatus::Ok;
  }
  return result;
}

void SetRegistryRoot(std::string directory) {
  const std::lock_guard<std::mutex> lock(g_rootLock);
  g_root = std::move(directory);
  g_rootChosen = true;
}

std::string RegistryRoot() {
  {
    const std::lock_guard<std::mutex> lock(g_rootLock);
    if (g_rootChosen) return g_root;
  }
  return DefaultRegistryRoot();
}

std::string DefaultRegistryRoot() {
  if (::geteuid() == 0) return "/var/lib/velapo";
  const char* state = std::getenv("XDG_STATE_HOME");
  if (state != nullptr && state[0] == '/') return std::string(state) + "/velapo";
  const char* home = std::getenv("HOME");
  if (home != nullptr && home[0] == '/') return std::string(home) + "/.local/state/velapo";
  return "/var/lib/velapo";
}

}  // namespace zor::os
