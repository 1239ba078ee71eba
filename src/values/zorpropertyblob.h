#pragma once
// The binary form of a property list: the bytes that registry values and
// shared-memory blocks hold, read by other processes and by the other
// platform, so every byte is fixed here.
//
// A blob is one record per property, in list order, with no header, count or
// terminator. Integers are little-endian.
//
//   offset       size  field
//   0            4     N: name size in bytes (UTF-16 code units * 2, no terminator)
//   4            4     K: kind size, 1 when written
//   8            4     V: value size, VELAnyVal::GetSize
//   12           N     name, UTF-16LE code units
//   12 + N       K     kind code (VELAnyValType) in the first byte, as a signed byte
//   12 + N + K   V     value bytes as VELAnyVal::GetData gives them
//
// Example: "Ab" = VELAnyValLong 7 is the 21 bytes
//   04 00 00 00  01 00 00 00  04 00 00 00  41 00 62 00  00  07 00 00 00
//
// The reader trusts nothing: registry values and shared memory can be written
// by any local program. A record whose header, name, kind or value would run
// past the end of the blob, or whose number value is shorter than its kind,
// fails like any malformed record, and nothing outside the blob is read.
//
// Any thread; the functions keep no state.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "values/zorproperty.h"

class ZORPropertyBlob {
 public:
  static constexpr uint32_t kHeaderSize = 12;
  // Largest name and kind fields a reader accepts, in bytes.
  static constexpr uint32_t kMaxNameSize = 2048;
  static constexpr uint32_t kMaxKindSize = 1024;

  // Replaces `blob` with the records of `list`. An entry whose value is
  // missing or empty, or whose name is empty or longer than a reader accepts,
  // gets no record and makes the result false; the other entries are still
  // written. An empty list gives an empty blob and true.
  static bool Write(const ZORPropertyList& list, std::vector<uint8_t>& blob);

  // One record read at `offset`. `consumed` is 0 when the record is
  // malformed: a name or kind size of 0, a name over 2048 or a kind over 1024
  // bytes, a field past the end of the blob, or a number value shorter than
  // its kind. Otherwise `consumed` spans the whole record; `value` is null
  // for a kind outside 0..9, and the name is cut at its first NUL.
  struct Record {
    ZORProperty property;
    uint32_t valueSize = 0;
    size_t consumed = 0;
  };
  static Record ReadRecord(std::span<const uint8_t> blob, size_t offset);

  // Appends the records of `blob` to `list` in order, skipping records with
  // an empty name or an unknown kind. The walk stops with false at a record
  // whose value size is 0 or that is malformed, keeping what it read before;
  // it ends with true when it reaches the last byte, so one stray trailing
  // byte is ignored. A blob with no record at all gives false.
  static bool Read(std::span<const uint8_t> blob, ZORPropertyList& list);
};
