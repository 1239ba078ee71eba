#pragma once
// What a configuration says of one chain: the tech processes that run, in
// order, for a set of input and output channel layouts, and the controls
// given with the chain. Plain records, filled when the configuration loads and
// copied by whoever builds a chain; any thread may use its own copy.
//
// Channel layouts are bit flags, so one chain can serve several layouts:
//   1 Mono (1 channel), 2 Stereo (2), 4 5.1 Surround (6), 8 7.1 Surround (8),
//   16 11.1 Surround (12).

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "config/zorutsvaluelist.h"

inline constexpr uint32_t kZORLayoutMono = 1;
inline constexpr uint32_t kZORLayoutStereo = 2;
inline constexpr uint32_t kZORLayout51 = 4;
inline constexpr uint32_t kZORLayout71 = 8;
inline constexpr uint32_t kZORLayout111 = 16;
// Every layout, also those not known today: the mask of "Any" and of a
// layout list left out.
inline constexpr uint32_t kZORLayoutAny = 0xFFFFFFFFu;

// The layout bit of a channel count: 1, 2, 6, 8, 12 channels; 0 for every
// other count, which no chain serves.
uint32_t LayoutFromChannels(uint32_t channels);
// The channel count of a single layout bit; 0 for anything else.
uint32_t ChannelsFromLayout(uint32_t layout);
// The mask of a layout list such as "Stereo;5.1 Surround": tokens separated
// by ';' or ','. Each token adds the bit of the first of "Mono", "Stereo",
// "5.1 Surround", "7.1 Surround", "11.1 Surround", "Any" that it holds
// (case-sensitive), so "Internal Stereo" counts as Stereo; a token holding
// none of them adds nothing, and a list of only such tokens gives 0.
uint32_t LayoutMaskFromText(std::string_view list);

// One tech process of a chain.
struct ZORAPOProcessDesc {
  std::string techId;      // which process the tech module makes
  std::string instanceId;  // addresses "InstanceId:Control-Name" controls to it
  std::string hook;        // kept for the process chain
};

struct ZORAPOChainDesc {
  uint32_t inputLayouts = kZORLayoutAny;
  uint32_t outputLayouts = kZORLayoutAny;
  bool isRender = true;  // false for a capture chain
  std::vector<ZORAPOProcessDesc> processes;  // in running order
  ZORUTSValueList controls;
};
