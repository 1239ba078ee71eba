#pragma once
// The on-disk form of the POSIX settings store, as pure functions: value
// file records, the file names that names escape to, and the mapping of a
// security descriptor text onto permission bits. docs/registry.md describes
// every byte. Any thread; nothing here keeps state or touches the disk.
//
// Value files are outside input (any local program may write the store), so
// the decoder checks every size against the bytes it was given.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/registry.h"

namespace zor::os::regstore {

// A value lives in "@" + EscapeName(folded name) inside its key's directory;
// the key's own spelling lives in a record file named ".name"; names that
// start with ".tmp" are files and directories being written, or left behind
// by a writer that died.
inline constexpr char kValuePrefix = '@';
inline constexpr const char* kKeyNameFile = ".name";
inline constexpr const char* kTempPrefix = ".tmp";

// Record file layout, little-endian:
//   0        4  magic "VREG"
//   4        4  format version, 1
//   8        4  value type (RegType)
//   12       4  N: name size in bytes (UTF-16LE units * 2)
//   16       4  D: data size in bytes
//   20       N  name, UTF-16LE, no terminator
//   20+N     D  data
//   20+N+D   4  CRC-32 (IEEE 802.3, as zlib's crc32) of bytes 0 .. 20+N+D-1
inline constexpr uint32_t kRecordHeaderSize = 20;
inline constexpr uint32_t kRecordTrailerSize = 4;
inline constexpr uint32_t kRecordVersion = 1;
inline constexpr size_t kMaxRecordSize =
    kRecordHeaderSize + kMaxValueNameUnits * 2 + kMaxValueBytes + kRecordTrailerSize;

struct Record {
  uint32_t type = 0;
  std::u16string name;
  std::vector<uint8_t> data;
};

uint32_t Crc32(std::span<const uint8_t> bytes);

// The file bytes of one record. The caller keeps name and data within the
// limits of registry.h.
std::vector<uint8_t> EncodeRecord(uint32_t type, std::u16string_view name,
                                  std::span<const uint8_t> data);
// InvalidData for anything but a whole, undamaged record: wrong magic or
// version, an odd or oversized name, sizes that disagree with the byte count,
// or a checksum that does not match.
RegStatus DecodeRecord(std::span<const uint8_t> file, Record& record);
// Only the header and name of a record, from its first bytes and the size of
// the whole file; no checksum test. For a writer that keeps an existing name's
// spelling without reading a large value.
RegStatus DecodeRecordName(std::span<const uint8_t> head, uint64_t fileSize, std::u16string& name);

// A-Z folded to a-z, as the registry compares names; the name is cut at its
// first NUL.
std::u16string FoldName(std::u16string_view name);
// A file name for a folded name: a-z, 0-9 and "-_. {}" stay as they are
// (except a leading '.'), other units below U+0100 become "%xx", the rest
// "^xxxx", in lower-case hex. Distinct names give distinct file names. A
// result longer than kMaxEscapedBytes is cut and followed by '~' and the
// 64-bit FNV-1a hash of the folded name in 16 hex digits; such names are
// checked against the spelling stored in the file.
inline constexpr size_t kMaxEscapedBytes = 200;
std::string EscapeName(std::u16string_view folded);
// The folded name back from an escaped one; false for a hashed or malformed
// file name, and for any form EscapeName would not produce.
bool UnescapeName(std::string_view escaped, std::u16string& folded);

// Permission bits (0700 plus group and other bits, and set-group-ID when the
// group has any) that a security descriptor text stands for, as
// RegKey::SetSecurity describes; false when the text is not a descriptor
// with a DACL.
bool DescriptorToMode(std::u16string_view descriptor, uint32_t& mode);

}  // namespace zor::os::regstore
