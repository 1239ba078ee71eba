#pragma once
// ZORAPOChainDefinition: the chains one operating mode runs at one APO
// location, in the order of the configuration file, which is their priority.
// Read-only once the configuration has loaded; any thread may read it.

#include <cstdint>
#include <vector>

#include "config/zorapochaindesc.h"

class ZORAPOChainDefinition {
 public:
  ZORAPOChainDefinition() = default;
  ZORAPOChainDefinition(const ZORAPOChainDefinition&) = default;
  ZORAPOChainDefinition& operator=(const ZORAPOChainDefinition&) = default;
  virtual ~ZORAPOChainDefinition() = default;

  // Copies into `out` the first chain whose input and output masks share a
  // bit with the given layouts and whose kind (render or capture) matches.
  // The layouts must be exactly known: 0 or all bits set finds nothing, even
  // against a chain of "Any". False, with `out` untouched, when none fits.
  virtual bool FindChain(uint32_t inputLayout, uint32_t outputLayout, ZORAPOChainDesc& out,
                         bool isRender) const;

  std::vector<ZORAPOChainDesc> chains;
};
