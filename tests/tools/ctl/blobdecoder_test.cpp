// BlobDecoder reads bytes anyone may have written: it shows exactly the
// records the engine's reader takes, and says where damaged bytes stop it.
#include <gtest/gtest.h>

#include <random>

#include "control/blobdecoder.h"
#include "control/configurationcheck.h"
#include "config/zorapochaindesc.h"
#include "values/zorpropertyblob.h"

namespace {

ZORPropertyList RandomList(std::mt19937& random) {
  ZORPropertyList list(1 + random() % 5);
  for (size_t index = 0; index < list.size(); ++index) {
    list[index].name = u"P" + std::u16string(random() % 6, u'x') + char16_t(u'0' + index);
    if (random() % 2) {
      list[index].value = std::make_shared<VELAnyValLong>(static_cast<int32_t>(random()));
    } else {
      list[index].value = std::make_shared<VELAnyValAString>(std::string(1 + random() % 9, 'v'));
    }
  }
  return list;
}

// Every cut of a valid blob: whole records decode, and nothing past the cut is read.
TEST(BlobDecoder, EveryCutOfAValidBlobDecodesItsWholeRecordsAndNoMore) {
  std::mt19937 random(20);
  for (int round = 0; round < 200; ++round) {
    const ZORPropertyList list = RandomList(random);
    std::vector<uint8_t> blob;
    ASSERT_TRUE(ZORPropertyBlob::Write(list, blob));
    std::vector<size_t> ends;
    for (size_t offset = 0; offset < blob.size();) {
      offset += ZORPropertyBlob::ReadRecord(blob, offset).consumed;
      ends.push_back(offset);
    }
    for (size_t cut = 1; cut <= blob.size(); ++cut) {
      std::vector<uint8_t> bytes(blob.begin(), blob.begin() + cut);  // exact size: ASan sees over-reads
      const DecodedBlob decoded = BlobDecoder::Decode(bytes);
      size_t whole = 0;
      while (whole < ends.size() && ends[whole] <= cut) ++whole;
      const bool atEnd = whole > 0 && (ends[whole - 1] == cut || ends[whole - 1] + 1 == cut);
      ASSERT_EQ(decoded.records.size(), whole) << cut;
      EXPECT_EQ(decoded.complete, atEnd) << cut;
      EXPECT_EQ(decoded.problem.empty(), atEnd) << cut;
      for (size_t index = 0; index < whole; ++index) {
        std::string text;
        list[index].value->GetAString(text);
        EXPECT_EQ(decoded.records[index].text, text);
      }
    }
  }
}

struct BlockCase {
  std::vector<uint8_t> bytes;
  bool complete;
  const char* problem;
};

TEST(BlobDecoder, ABlockIsReadOnlyWithinItsLengthField) {
  const BlockCase cases[] = {
      {{}, false, "shorter than its length field"},
      {{0, 0, 0}, false, "shorter than its length field"},
      {{0, 0, 0, 0, 9, 9}, true, ""},                          // empty: no content
      {{5, 0, 0, 0, 1, 2, 3, 4}, false, "runs past the block"},
      {{0xFF, 0xFF, 0xFF, 0xFF}, false, "runs past the block"},
      {{2, 0, 0, 0, 1, 0}, false, "malformed record at byte 0"},
  };
  for (const BlockCase& c : cases) {
    const DecodedBlob decoded = BlobDecoder::DecodeBlock(c.bytes);
    EXPECT_EQ(decoded.complete, c.complete) << c.problem;
    EXPECT_NE(decoded.problem.find(c.problem), std::string::npos) << decoded.problem;
  }
}

TEST(ConfigurationCheck, LayoutMasksReadAsTheirNames) {
  EXPECT_EQ(ConfigurationCheck::LayoutText(kZORLayoutAny), "Any");
  EXPECT_EQ(ConfigurationCheck::LayoutText(0), "none");
  EXPECT_EQ(ConfigurationCheck::LayoutText(kZORLayoutMono | kZORLayout71), "Mono,7.1 Surround");
  EXPECT_EQ(ConfigurationCheck::LayoutText(LayoutMaskFromText("Stereo;5.1 Surround;11.1 Surround")),
            "Stereo,5.1 Surround,11.1 Surround");
}

}  // namespace
