#include "apo/zorapoendpointbinding.h"

#include <vector>

#include "manager/zorapoprocessmanager.h"
#include "system/zorapoendpointtools.h"
#include "system/zorguidtext.h"

bool ZORAPOBindEndpoint(ZORAPOProcessManager& manager, IMMDevice*& /*device*/, IPropertyStore*& properties,
                        uint32_t location, uint32_t /*contentIndex*/) {
  if (!properties) return false;
  ZORPropVariant value;
  if (FAILED(properties->GetValue(PKEY_AudioEndpoint_GUID, value.Put())) || value.Get().vt != VT_LPWSTR ||
      !value.Get().pwszVal) {
    return false;
  }
  const ZORGuidText wanted(zor::com::FromComText(value.Get().pwszVal));
  if (wanted.IsNull()) return false;
  ZORAPOEndpointTools tools;
  std::vector<ZORAPOEndpointInfo> endpoints;
  tools.GetEndpoints(endpoints);
  for (const ZORAPOEndpointInfo& endpoint : endpoints) {
    if (endpoint.GetEndpointGuid() == wanted) return manager.SetEndpointInfo(endpoint, location);
  }
  return true;
}
