#pragma once
// The settings store: keys under HKEY_LOCAL_MACHINE, each holding typed
// values and subkeys, with a one-shot change notification per armed key.
//
// Windows: the real registry. POSIX: velapo's own store, a directory tree
// under a root directory (see SetRegistryRoot and docs/registry.md) shared by
// every process that uses the same root. Both keep the registry's rules:
// names of keys and values compare case-insensitively (A-Z folded) and keep
// the spelling they were created with; a value is replaced as a whole, so a
// reader sees the old or the new data, never a mix; a change notification
// reaches every process that armed one.
//
// Results are RegStatus codes numbered as Windows numbers its errors, so
// that a log line reads the same on both platforms.
//
// Nothing here belongs on the audio thread: every operation may touch disk.

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zor::os {

class Event;

enum class RegType : uint32_t {
  None = 0,
  Sz = 1,        // REG_SZ: UTF-16LE text with its terminator
  ExpandSz = 2,  // REG_EXPAND_SZ: the same, to be expanded by the reader
  Binary = 3,    // REG_BINARY
  Dword = 4,     // REG_DWORD: 4 bytes little-endian
  MultiSz = 7,   // REG_MULTI_SZ: terminated strings, then one more terminator
  Qword = 11,    // REG_QWORD: 8 bytes little-endian
};

enum class RegStatus : int32_t {
  Ok = 0,
  NotFound = 2,            // no such key or value
  AccessDenied = 5,        // the key was not opened for this, or the OS refused
  InvalidData = 13,        // a stored value is damaged and cannot be read
  InvalidParameter = 87,   // a bad name, path, size, type or descriptor
  MoreData = 234,
  NoMoreItems = 259,       // enumeration reached the end
  IoFailed = 1016,         // the store could not be read or written
  KeyDeleted = 1018,       // the key was deleted while open
  NotOpen = 6,             // the key object holds no key (invalid handle)
};

// Short English name of a status, for log lines ("NotFound"). Any thread.
const char* RegStatusName(RegStatus status);

// Access rights, with the registry's numbers. The POSIX store checks them as
// Windows does: an operation the key was not opened for is AccessDenied.
inline constexpr uint32_t kKeyQueryValue = 0x0001;
inline constexpr uint32_t kKeySetValue = 0x0002;
inline constexpr uint32_t kKeyCreateSubKey = 0x0004;
inline constexpr uint32_t kKeyEnumerateSubKeys = 0x0008;
inline constexpr uint32_t kKeyNotify = 0x0010;
inline constexpr uint32_t kKeyWow64_64Key = 0x0100;  // no meaning on POSIX
inline constexpr uint32_t kKeyDelete = 0x10000;
inline constexpr uint32_t kKeyReadControl = 0x20000;
inline constexpr uint32_t kKeyWriteDac = 0x40000;
inline constexpr uint32_t kKeyRead = 0x20019;
inline constexpr uint32_t kKeyWrite = 0x20006;
inline constexpr uint32_t kKeyAllAccess = 0xF003F;

// What a change notification waits for, as RegNotifyChangeKeyValue's filter.
inline constexpr uint32_t kNotifyChangeName = 0x1;        // a subkey added or deleted
inline constexpr uint32_t kNotifyChangeAttributes = 0x2;  // the key's attributes
inline constexpr uint32_t kNotifyChangeLastSet = 0x4;     // a value written or deleted
inline constexpr uint32_t kNotifyChangeSecurity = 0x8;    // the key's security

// Longest key name component and value name the registry accepts, in UTF-16
// units, and the largest value the POSIX store keeps.
inline constexpr size_t kMaxKeyNameUnits = 255;
inline constexpr size_t kMaxValueNameUnits = 16383;
inline constexpr size_t kMaxValueBytes = 16u << 20;

// How SetSecurity went: first the text is understood, then applied.
struct RegSecurityResult {
  bool converted = false;        // the descriptor text was understood
  uint32_t conversionError = 0;  // the OS's error when it was not
  RegStatus status = RegStatus::InvalidParameter;  // of applying it
};

// One open key. The object closes its key when destroyed; it can be moved but
// not copied (Duplicate makes a second, independent handle). An open key may
// be used by several threads at once, except EnumValue and EnumSubKey, which
// keep enumeration state: one thread at a time enumerates through one object.
class RegKey {
 public:
  RegKey();
  ~RegKey();
  RegKey(RegKey&& other) noexcept;
  RegKey& operator=(RegKey&& other) noexcept;
  RegKey(const RegKey&) = delete;
  RegKey& operator=(const RegKey&) = delete;

  // Opens an existing key under HKEY_LOCAL_MACHINE by its path, components
  // separated by '\'; the empty path opens HKEY_LOCAL_MACHINE itself.
  // Whatever `key` held is closed first.
  static RegStatus Open(std::u16string_view path, uint32_t access, RegKey& key);
  // Opens the key, creating it and any missing parent on the way. `created`
  // (optional) tells whether the last component was made by this call. Any
  // number of processes may create the same key at once; all of them end
  // with the one key.
  static RegStatus Create(std::u16string_view path, uint32_t access, RegKey& key,
                          bool* created = nullptr);
  // The same relative to this key. The empty path opens this key again, with
  // the new access.
  RegStatus OpenSubKey(std::u16string_view path, uint32_t access, RegKey& key) const;
  RegStatus CreateSubKey(std::u16string_view path, uint32_t access, RegKey& key,
                         bool* created = nullptr) const;
  // Deletes the subkey at `path` and everything below it; watchers armed on
  // the deleted keys are signalled. As RegDeleteTreeW, this key must be open
  // with kKeyDelete, kKeyEnumerateSubKeys and kKeyQueryValue.
  RegStatus DeleteSubKeyTree(std::u16string_view path) const;

  // A second handle to the same key with the same access, independent of
  // this one: closing either leaves the other open.
  RegStatus Duplicate(RegKey& copy) const;
  // Closes the key; a notification still armed through this object is
  // signalled and ends. Safe to call on a closed key.
  void Close();
  bool IsOpen() const;
  uint32_t Access() const;

  // The type and size in bytes of a value; the empty name is the key's
  // default value. Names are taken up to their first NUL.
  RegStatus QueryValue(std::u16string_view name, RegType& type, uint32_t& size) const;
  // The type and the whole data of a value.
  RegStatus ReadValue(std::u16string_view name, RegType& type, std::vector<uint8_t>& data) const;
  // Creates or replaces a value. An existing value keeps the spelling of its
  // name. Size is limited by kMaxValueBytes.
  RegStatus WriteValue(std::u16string_view name, RegType type, std::span<const uint8_t> data) const;
  RegStatus DeleteValue(std::u16string_view name) const;
  // Convenience forms for REG_DWORD. ReadDword fails with InvalidData for a
  // value of another type or size.
  RegStatus ReadDword(std::u16string_view name, uint32_t& number) const;
  RegStatus WriteDword(std::u16string_view name, uint32_t number) const;

  // The name of the value or subkey at `index`; NoMoreItems past the end.
  // Index 0 takes a fresh look at the key; later indexes continue that look,
  // so a walk from 0 upwards sees each entry once even while others write.
  // Order: Windows keeps its own; the POSIX store sorts by folded name.
  RegStatus EnumValue(uint32_t index, std::u16string& name);
  RegStatus EnumSubKey(uint32_t index, std::u16string& name);

  // Arms a one-shot change notification, as RegNotifyChangeKeyValue does
  // asynchronously: `event` is set once, when a change that `filter` names
  // happens to this key (with watchSubtree, to it or any key below it, also
  // keys created after arming), by any process. After the signal nothing more
  // is reported until the caller arms again, so a change between the signal
  // and the next arm is seen only with the next change after it. A signal may
  // also come with no visible change; the caller just looks again.
  //
  // Arm one notification per key object at a time (Wine keeps only one per
  // handle; Duplicate gives another handle). It ends when it fires or when
  // the object is closed, which signals it, so the event must outlive both.
  // Platform differences: the POSIX store also signals when the key is
  // deleted, which Wine does not; Wine reports nothing for a write that
  // leaves a value's type and data as they were, which Windows and the POSIX
  // store report as a change.
  RegStatus NotifyChange(bool watchSubtree, uint32_t filter, Event& event);

  // Sets the key's discretionary access from a security descriptor text
  // (e.g. "D:(A;OICI;GA;;;AU)"). Windows applies it as it stands. The POSIX
  // store maps it onto the permission bits of the key's directory and values:
  // the owner (who made the key) always has full access; the key's group
  // stands for the users who log on (authenticated users, interactive users,
  // the Users group) and gets the read and write access their allow entries
  // give; others get only what an entry for everyone gives; a deny entry for
  // either takes its rights from both. Entries for other accounts (guests,
  // anonymous, services, administrators) have no counterpart and are
  // ignored. A key whose group has any access gets set-group-ID, so keys and
  // values made below belong to its group whoever makes them. A null DACL
  // ("D:NO_ACCESS_CONTROL") opens the key to all. Keys created below later
  // take the same permissions. Needs kKeyWriteDac and ownership of the key.
  RegSecurityResult SetSecurity(std::u16string_view descriptor);

  struct State;  // defined by the back end

 private:
  std::unique_ptr<State> m_state;
};

// POSIX: the directory that holds HKEY_LOCAL_MACHINE for keys opened from now
// on in this process; keys already open stay where they are. Hosts choose it
// once at start; tests point it at a temporary directory. Until a host
// chooses, DefaultRegistryRoot() is used. Windows: ignored, the real registry
// is the store. Any thread.
void SetRegistryRoot(std::string directory);
std::string RegistryRoot();
// "/var/lib/velapo" for a system-wide process (running as root), otherwise
// "$XDG_STATE_HOME/velapo", or "$HOME/.local/state/velapo" without it.
std::string DefaultRegistryRoot();

}  // namespace zor::os
