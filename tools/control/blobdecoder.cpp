#include "control/blobdecoder.h"

#include "platform/littleendian.h"
#include "platform/text.h"
#include "values/zorpropertyblob.h"

namespace {

std::string Hex(std::span<const uint8_t> bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
  }
  return text;
}

std::string ValueText(const VELAnyVal& value) {
  const int32_t kind = value.GetType();
  if (kind != VEL_ANYVAL_BINARYC && kind != VEL_ANYVAL_BINARYUC) {
    std::string text;
    if (value.GetAString(text)) return text;
  }
  std::vector<uint8_t> bytes(value.GetSize());
  value.GetData(bytes.data(), static_cast<uint32_t>(bytes.size()));
  return Hex(bytes);
}

}  // namespace

DecodedBlob BlobDecoder::Decode(std::span<const uint8_t> blob) {
  DecodedBlob decoded;
  decoded.bytes = blob.size();
  if (blob.empty()) {
    decoded.problem = "the blob is empty";
    return decoded;
  }
  size_t offset = 0;
  // The engine's reader ignores one stray byte after the last record.
  while (blob.size() - offset > 1) {
    const ZORPropertyBlob::Record record = ZORPropertyBlob::ReadRecord(blob, offset);
    if (record.consumed == 0) {
      decoded.problem = "malformed record at byte " + std::to_string(offset);
      return decoded;
    }
    if (record.valueSize == 0) {
      decoded.problem = "record with an empty value at byte " + std::to_string(offset);
      return decoded;
    }
    DecodedRecord out;
    out.offset = offset;
    out.name = zor::os::Utf16ToUtf8(record.property.name);
    if (record.property.value) {
      out.kind = record.property.value->GetTypeName();
      out.text = ValueText(*record.property.value);
    } else {
      out.kind = "unknown";
    }
    decoded.records.push_back(std::move(out));
    offset += record.consumed;
  }
  if (decoded.records.empty()) {
    decoded.problem = "one stray byte and no record";  // as the engine's reader, a failed read
    return decoded;
  }
  decoded.complete = true;
  return decoded;
}

DecodedBlob BlobDecoder::DecodeBlock(std::span<const uint8_t> block) {
  constexpr size_t kLengthField = 4;
  DecodedBlob decoded;
  if (block.size() < kLengthField) {
    decoded.bytes = block.size();
    decoded.problem = "the block is shorter than its length field";
    return decoded;
  }
  const uint32_t length = zor::os::LoadLe32(block.data());
  if (length == 0) {
    decoded.complete = true;  // an empty block: no content, nothing wrong
    return decoded;
  }
  if (length > block.size() - kLengthField) {
    decoded.bytes = length;
    decoded.problem = "the length field (" + std::to_string(length) + ") runs past the block (" +
                      std::to_string(block.size()) + " bytes)";
    return decoded;
  }
  return Decode(block.subspan(kLengthField, length));
}
