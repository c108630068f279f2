// The platform's other views of VRF identity: the id-to-name table, and the published holder of
// the name-to-id map (so that a reader can follow the map being replaced as a whole).
#pragma once

#include "platform/kel/Attribute.h"
#include "platform/l3/L3.h"
#include "platform/shmtab/ShmtabCollection.h"
#include "platform/vrf/VrfId.h"
#include "platform/vrf/VrfIdMap.h"

namespace Vrf::VrfIdMap {

// VRF id to name, one entry per VRF that exists. It is a shared-memory table ("vrf/vrfIdMapStatus")
// with as many entries as there are VRFs: its size is not limited.
class Status : public Kel::Entity, public KelShmtab::Collection {
 public:
  KEL_ENTITY(Status, "Vrf::VrfIdMap::Status");
  class NotifieeConst : public Kel::NotifieeConstOf<Status> {
   public:
    virtual void onVrfName(const VrfId&) {}
  };
  KEL_CREATOR(Status);
  // `vrfName(id)` is the empty name for an id the table does not hold.
  KEL_MAP(VrfId, L3::VrfName, vrfName, VrfName);

  void shmtabCapacityIs(uint32_t) override {}
  void shmtabCleanup() override { vrfNameDelAll(); }

 private:
  Status() = default;
};
KEL_FACTORY(Status, statusFactory)

// Holds the current name-to-id map, published at "vrf/vrfNameStatus".
class NameToIdMapWrapper : public Kel::Entity {
 public:
  KEL_ENTITY(NameToIdMapWrapper, "Vrf::VrfIdMap::NameToIdMapWrapper");
  class NotifieeConst : public Kel::NotifieeConstOf<NameToIdMapWrapper> {
   public:
    virtual void onNameToIdMap() {}
  };
  KEL_CREATOR(NameToIdMapWrapper);
  KEL_REF(NameToIdMap, nameToIdMap, NameToIdMap);

 private:
  NameToIdMapWrapper() = default;
};
KEL_FACTORY(NameToIdMapWrapper, nameToIdMapWrapperFactory)

}  // namespace Vrf::VrfIdMap
