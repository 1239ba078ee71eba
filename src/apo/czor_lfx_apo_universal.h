#pragma once
// The six render classes, one per place in a stream. They are the universal
// base with a location code; all that depends on the place keys on that
// code (configuration, stale flushing, effect table, logs).

#include "apo/czor_lfx_apo_universal_base.h"
#include "apo/zoraporegproperties.h"

template <uint32_t Location>
class CZORRenderAPO final : public CZOR_LFX_APO_Universal_Base {
 public:
  CZORRenderAPO() : CZOR_LFX_APO_Universal_Base(Location) {}
  uint32_t GetLocation() const override { return Location; }
};

using CZOR_LFX_APO_Universal = CZORRenderAPO<kZORLocationPreBlue>;
using CVEL_SFX_APO = CZORRenderAPO<kZORLocationSFX>;
using CVEL_MFX_APO = CZORRenderAPO<kZORLocationMFX>;
using CVEL_EFX_APO = CZORRenderAPO<kZORLocationEFX>;
using CVEL_OSFX_APO = CZORRenderAPO<kZORLocationOSFX>;
using CVEL_OMFX_APO = CZORRenderAPO<kZORLocationOMFX>;
