#include "config/zorapochaindefinition.h"

bool ZORAPOChainDefinition::FindChain(uint32_t inputLayout, uint32_t outputLayout,
                                      ZORAPOChainDesc& out, bool isRender) const {
  const auto known = [](uint32_t layout) { return layout != 0 && layout != kZORLayoutAny; };
  if (!known(inputLayout) || !known(outputLayout)) return false;
  for (const ZORAPOChainDesc& chain : chains) {
    if ((chain.inputLayouts & inputLayout) != 0 && (chain.outputLayouts & outputLayout) != 0 &&
        chain.isRender == isRender) {
      out = chain;
      return true;
    }
  }
  return false;
}
