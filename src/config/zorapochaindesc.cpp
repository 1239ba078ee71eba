#include "config/zorapochaindesc.h"

namespace {

struct LayoutName {
  uint32_t layout;
  uint32_t channels;
  std::string_view text;
};

// In the order a token is tested: the first hit decides.
constexpr LayoutName kLayouts[] = {
    {kZORLayoutMono, 1, "Mono"},
    {kZORLayoutStereo, 2, "Stereo"},
    {kZORLayout51, 6, "5.1 Surround"},
    {kZORLayout71, 8, "7.1 Surround"},
    {kZORLayout111, 12, "11.1 Surround"},
};

uint32_t LayoutOfToken(std::string_view token) {
  for (const LayoutName& entry : kLayouts) {
    if (token.find(entry.text) != std::string_view::npos) return entry.layout;
  }
  return token.find("Any") != std::string_view::npos ? kZORLayoutAny : 0;
}

}  // namespace

uint32_t LayoutFromChannels(uint32_t channels) {
  for (const LayoutName& entry : kLayouts) {
    if (entry.channels == channels) return entry.layout;
  }
  return 0;
}

uint32_t ChannelsFromLayout(uint32_t layout) {
  for (const LayoutName& entry : kLayouts) {
    if (entry.layout == layout) return entry.channels;
  }
  return 0;
}

uint32_t LayoutMaskFromText(std::string_view list) {
  uint32_t mask = 0;
  while (!list.empty()) {
    const size_t end = list.find_first_of(";,");
    mask |= LayoutOfToken(list.substr(0, end));
    list = end == std::string_view::npos ? std::string_view() : list.substr(end + 1);
  }
  return mask;
}
