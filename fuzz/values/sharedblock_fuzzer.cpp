// Fuzzes the reader of a shared settings block: the input is a whole block
// as any process on the machine may have left it, length field included.
// Beyond "no crash, no over-read": the answer is one of the documented
// codes; a length of 0 or past the block changes nothing in the set; a
// merge always answers 0; and whatever a replace accepted writes back into
// a block and reads again unchanged.
#include <cstdint>
#include <cstdlib>
#include <algorithm>
#include <cstring>
#include <vector>

#include "values/zorpropertysetsharedmem.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

std::vector<uint8_t> BlobOf(const ZORPropertySet& set) {
  std::vector<uint8_t> blob;
  set.GetAllPropertiesBinary(blob);
  return blob;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // An exact-size heap copy, so that AddressSanitizer catches a read past
  // the block's end.
  const std::vector<uint8_t> block(data, data + size);
  const std::span<const uint8_t> view(block);
  const uint32_t length = size >= 4 ? static_cast<uint32_t>(data[0] | data[1] << 8 |
                                                            data[2] << 16 | data[3] << 24)
                                    : 0;
  const bool lengthFits = size >= 4 && length != 0 && length <= size - 4;

  ZORPropertySet replaced;
  replaced.SetPropertyLong(u"Kept", 1);
  const uint32_t status = ZORPropertySetSharedMem::ReadBlock(view, replaced, false, true, true);
  Require(status == 0 || status == ZOR_SHM_ERROR_PARSE);
  if (!lengthFits) {
    Require(status == (size >= 4 && length == 0 ? 0u : ZOR_SHM_ERROR_PARSE));
    int32_t kept = 0;
    Require(replaced.GetPropertyLong(u"Kept", kept) && kept == 1);
    return 0;
  }

  ZORPropertySet merged;
  merged.SetPropertyLong(u"Kept", 1);
  Require(ZORPropertySetSharedMem::ReadBlock(view, merged, true, true, true) == 0);

  // Round trip: what the replace took reads back to the same blob. It may
  // have grown by a unit per odd name size, which the reader rounds up.
  const std::vector<uint8_t> blob = BlobOf(replaced);
  std::vector<uint8_t> again(std::max(size, blob.size() + 4), 0);
  again[0] = static_cast<uint8_t>(blob.size());
  again[1] = static_cast<uint8_t>(blob.size() >> 8);
  again[2] = static_cast<uint8_t>(blob.size() >> 16);
  again[3] = static_cast<uint8_t>(blob.size() >> 24);
  if (!blob.empty()) std::memcpy(again.data() + 4, blob.data(), blob.size());
  ZORPropertySet reread;
  const uint32_t second = ZORPropertySetSharedMem::ReadBlock(again, reread, false, true, true);
  Require(blob.empty() ? second == 0 : second == 0 && BlobOf(reread) == blob);
  return 0;
}
