#pragma once
// BlobDecoder: a property blob taken apart for people: each record with its
// offset, name, kind and value as text, and, when the bytes are damaged,
// where the walk stopped and why. It reads registry values, shared blocks
// and files that any local program may have written, so it trusts no size
// in them; the records themselves are read by ZORPropertyBlob, as the engine
// reads them, so what it shows is what the engine would take.
//
// Any thread; no state.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

struct DecodedRecord {
  size_t offset = 0;
  std::string name;
  std::string kind;  // "Long", "String", ...; "unknown" for a kind outside 0..9
  std::string text;  // the value as text; binary kinds in hex
};

struct DecodedBlob {
  std::vector<DecodedRecord> records;
  size_t bytes = 0;       // the blob's size
  bool complete = false;  // the walk reached the end, as the engine's reader would
  std::string problem;    // why not, naming the byte offset
};

class BlobDecoder {
 public:
  // A bare blob, as a registry value holds it.
  static DecodedBlob Decode(std::span<const uint8_t> blob);
  // A shared settings block: a 4-byte length, then that many blob bytes.
  static DecodedBlob DecodeBlock(std::span<const uint8_t> block);
};
