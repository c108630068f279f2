#include "platform/rib/ViaMetric.h"

namespace Routing::Rib {

ViaMetric::ViaMetric(Kel::TextCursor& c) {
  Kel::ValueFormReader r(c, kTypeName);
  metric_ = r.field<uint32_t>("metric");
  distance_ = r.field<uint8_t>("distance");
  loopCheck_ = r.field<bool>("loopCheck");
  r.end();
}

std::string ViaMetric::strep() const {
  return Kel::ValueFormWriter(kTypeName).field("metric", metric_).field("distance", distance_).field("loopCheck", loopCheck_).str();
}

Kel::Ptr<ViaMetricStatus> ViaMetricStatusByVrf::viaMetricStatusIs(Vrf::VrfIdMap::VrfId vrf, Transport t,
                                                                  RoutingProtocol p) {
  return vrfStatusIs(vrf)->transportStatusIs(t)->protocolStatusIs(p);
}

Kel::Ptr<ViaMetricStatus> ViaMetricStatusByVrf::viaMetricStatus(Vrf::VrfIdMap::VrfId vrf, Transport t,
                                                                RoutingProtocol p) const {
  auto byTransport = vrfStatus(vrf);
  if (!byTransport) return nullptr;
  auto byProtocol = byTransport->transportStatus(t);
  if (!byProtocol) return nullptr;
  return byProtocol->protocolStatus(p);
}

KEL_REGISTER_ENTITY(ViaMetricStatusByVrf);
KEL_REGISTER_ENTITY(LoopingRouteStatusByVrf);

}  // namespace Routing::Rib
