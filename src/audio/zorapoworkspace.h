#pragma once
// ZORAPOWorkspace: everything a chain is built from, assembled by the
// manager for one ConstructChain call. A plain value: each builder holds its
// own copy, so two chains built at once share nothing through it.

#include <cstdint>

#include "config/zorapooperatingmode.h"
#include "system/zorapoendpointinfo.h"

struct ZORAPOWorkspace {
  // No layout and no rate: what an unbuilt chain remembers, which no real
  // workspace equals.
  static constexpr uint32_t kNoLayout = 0xFFFFFFFFu;

  ZORAPOEndpointInfo endpoint;
  ZORAPOOperatingMode mode;
  uint32_t inputLayout = kNoLayout;   // layout bit of the input's channel count
  uint32_t outputLayout = kNoLayout;  // layout bit of the output's channel count
  uint32_t sampleRate = 0;            // the stream's rate
};
