// Copies between blocks of different widths and lengths.
#include "audio/zorchannelbox.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

TEST(ZORChannelBox, CopiesTheCommonChannelsOfTheCommonFrames) {
  std::vector<float> stereo(2 * 4);
  std::iota(stereo.begin(), stereo.end(), 1.0f);  // frame f: 2f+1, 2f+2
  std::vector<float> quad(4 * 3, -1.0f);
  const ZORChannelBox<float> from(stereo.data(), 2, 4);
  ZORChannelBox<float> to(quad.data(), 4, 3);

  // Widening: two channels land, the other two keep what they held, and
  // the count is cut to the target's three frames.
  EXPECT_EQ(from.CopyTo(to, 10), 3u);
  EXPECT_EQ(quad, (std::vector<float>{1, 2, -1, -1, 3, 4, -1, -1, 5, 6, -1, -1}));

  // Narrowing: the first channel of each frame only.
  std::vector<float> mono(4, 0.0f);
  ZORChannelBox<float> narrow(mono.data(), 1, 4);
  EXPECT_EQ(from.CopyTo(narrow, 2), 2u);
  EXPECT_EQ(mono, (std::vector<float>{1, 3, 0, 0}));

  ZORChannelBox<float> empty;
  EXPECT_EQ(from.CopyTo(empty, 4), 0u);
  EXPECT_EQ(empty.CopyTo(narrow, 4), 0u);
  EXPECT_EQ(mono, (std::vector<float>{1, 3, 0, 0}));
}
