#pragma once
// What the POSIX shared memory and named mutex have in common: the mapping
// of Windows object names onto shm_open names, and one holder of a named
// object with the lifetime rules of a Windows kernel object.
//
// Protocol (docs/sharedmemory.md): every holder keeps a shared flock on the
// object's file. Opening, creating and the last close run under one
// machine-wide gate (an exclusive flock on "/velapo.gate"), so that:
//   - a file that nobody holds counts as absent: its next opener truncates
//     it to zero and sets the size again, which zero-fills it;
//   - the creator initialises the content before it takes its shared lock
//     and leaves the gate, so no one sees a half-made object;
//   - the last holder's Close removes the file; a killed holder's locks go
//     with it, and the next opener finds no holder.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zor::os::posix {

// The shm_open name for `name`: "/velapo.<kind>." then the name's UTF-8
// bytes with every byte outside [A-Za-z0-9_.-] written as %XX. Case is
// kept, as Windows object names are case-sensitive. A result over 255 bytes
// keeps a prefix of the escaped name and ends in "~" and 32 hex digits of a
// hash of the whole name ("~" never comes out of the escaping).
std::string SharedObjectName(std::u16string_view name, std::string_view kind);

class SharedObjectHolder {
 public:
  enum class Outcome { Created, Opened, Absent, AccessDenied, Failed };
  // Runs in the creator, under the gate, on the freshly zeroed content.
  using Initialise = bool (*)(void* content, size_t size);

  SharedObjectHolder() = default;
  ~SharedObjectHolder() { Close(); }
  SharedObjectHolder(const SharedObjectHolder&) = delete;
  SharedObjectHolder& operator=(const SharedObjectHolder&) = delete;

  // Joins the object, or with `create` makes it when nobody holds it. Only
  // Created and Opened leave the object held.
  Outcome Open(const std::string& objectName, size_t size, bool create,
               Initialise initialise = nullptr);
  // Whether some process holds the object. Removes a file nobody holds.
  static bool Exists(const std::string& objectName);

  bool IsHeld() const { return m_fd >= 0; }
  int Descriptor() const { return m_fd; }
  // Size of the file as found: what the creator asked for.
  size_t FileSize() const { return m_fileSize; }
  // Lets go; the last holder removes the file.
  void Close();

 private:
  int m_fd = -1;
  size_t m_fileSize = 0;
  std::string m_objectName;
};

}  // namespace zor::os::posix
