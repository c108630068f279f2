// The VRF name-to-id map that the platform publishes.
//
// A VRF is known to the protocol side by name (a route's leak-to VRF, a container's key) and to
// the RIB by number. The map is the one place where the two meet; a name it does not hold
// resolves to `vrfIdNull`, so a reader never has to tell "absent" from a number apart.
#pragma once

#include "platform/kel/Attribute.h"
#include "platform/l3/L3.h"
#include "platform/vrf/VrfId.h"

namespace Vrf::VrfIdMap {

class NameToIdMap : public Kel::Entity {
 public:
  KEL_ENTITY(NameToIdMap, "Vrf::VrfIdMap::NameToIdMap");
  class NotifieeConst : public Kel::NotifieeConstOf<NameToIdMap> {
   public:
    virtual void onVrfId(const L3::VrfName&) {}
  };
  KEL_CREATOR(NameToIdMap);

  // `vrfId(name)` is vrfIdNull for a name the map does not hold.
  KEL_MAP(L3::VrfName, VrfId, vrfId, VrfId, vrfIdNull);

 private:
  NameToIdMap() = default;
};
KEL_FACTORY(NameToIdMap, nameToIdMapFactory)

}  // namespace Vrf::VrfIdMap
