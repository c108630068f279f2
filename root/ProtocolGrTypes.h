// The entities through which readiness after a restart is negotiated with the RIB, per VRF.
#pragma once

#include <cstdint>

#include "platform/kel/Attribute.h"
#include "platform/l3/L3.h"

namespace Routing::Protocol {

// How this start happened, and whether readiness may be verified yet.
class GrState : public Kel::Entity {
 public:
  KEL_ENTITY(GrState, "Routing::Protocol::GrState");
  class NotifieeConst : public Kel::NotifieeConstOf<GrState> {
   public:
    virtual void onStartReadyVerification() {}
  };
  KEL_CREATOR(GrState);
  KEL_CTOR_PARAM(bool, gracefulRestart);
  KEL_SCALAR(bool, startReadyVerification, StartReadyVerification);

 private:
  explicit GrState(bool gracefulRestart) : gracefulRestart_(gracefulRestart) {}
};
KEL_FACTORY(GrState, grStateFactory)

// Readiness of one VRF's routes.
class VrfReadyStatus : public Kel::Entity {
 public:
  KEL_ENTITY(VrfReadyStatus, "Routing::Protocol::VrfReadyStatus");
  class NotifieeConst : public Kel::NotifieeConstOf<VrfReadyStatus> {
   public:
    virtual void onV4RoutesReady() {}
    virtual void onV6RoutesReady() {}
    virtual void onRibReadySeqStatus() {}
    virtual void onV4RouteReviewComplete() {}
    virtual void onV6RouteReviewComplete() {}
  };
  KEL_CREATOR(VrfReadyStatus);
  KEL_KEY(L3::VrfName, vrfName);
  KEL_SCALAR(bool, v4RoutesReady, V4RoutesReady);
  KEL_SCALAR(bool, v6RoutesReady, V6RoutesReady);
  // The last RIB sequence number this VRF has caught up with.
  KEL_SCALAR(uint32_t, ribReadySeqStatus, RibReadySeqStatus);
  KEL_SCALAR(bool, v4RouteReviewComplete, V4RouteReviewComplete);
  KEL_SCALAR(bool, v6RouteReviewComplete, V6RouteReviewComplete);

 private:
  explicit VrfReadyStatus(const L3::VrfName& vrfName) : vrfName_(vrfName) {}
};
KEL_FACTORY(VrfReadyStatus, vrfReadyStatusFactory)

class AllVrfReadyStatus : public Kel::Entity {
 public:
  KEL_ENTITY(AllVrfReadyStatus, "Routing::Protocol::AllVrfReadyStatus");
  class NotifieeConst : public Kel::NotifieeConstOf<AllVrfReadyStatus> {
   public:
    virtual void onVrfReadyStatus(const L3::VrfName&) {}
  };
  KEL_CREATOR(AllVrfReadyStatus);
  KEL_ENTITY_COLL(VrfReadyStatus, L3::VrfName, vrfReadyStatus, VrfReadyStatus);

 private:
  AllVrfReadyStatus() = default;
};
KEL_FACTORY(AllVrfReadyStatus, allVrfReadyStatusFactory)

// The RIB's request that a VRF report when it has caught up with a sequence number.
class VrfRibSeqTrigger : public Kel::Entity {
 public:
  KEL_ENTITY(VrfRibSeqTrigger, "Routing::Protocol::VrfRibSeqTrigger");
  class NotifieeConst : public Kel::NotifieeConstOf<VrfRibSeqTrigger> {
   public:
    virtual void onRibReadySeqTrigger() {}
  };
  KEL_CREATOR(VrfRibSeqTrigger);
  KEL_KEY(L3::VrfName, vrfName);
  // 0 means no request.
  KEL_SCALAR(uint32_t, ribReadySeqTrigger, RibReadySeqTrigger);

 private:
  explicit VrfRibSeqTrigger(const L3::VrfName& vrfName) : vrfName_(vrfName) {}
};
KEL_FACTORY(VrfRibSeqTrigger, vrfRibSeqTriggerFactory)

class AllVrfRibSeqTrigger : public Kel::Entity {
 public:
  KEL_ENTITY(AllVrfRibSeqTrigger, "Routing::Protocol::AllVrfRibSeqTrigger");
  class NotifieeConst : public Kel::NotifieeConstOf<AllVrfRibSeqTrigger> {
   public:
    virtual void onVrfRibSeqTrigger(const L3::VrfName&) {}
  };
  KEL_CREATOR(AllVrfRibSeqTrigger);
  KEL_ENTITY_COLL(VrfRibSeqTrigger, L3::VrfName, vrfRibSeqTrigger, VrfRibSeqTrigger);

 private:
  AllVrfRibSeqTrigger() = default;
};
KEL_FACTORY(AllVrfRibSeqTrigger, allVrfRibSeqTriggerFactory)

}  // namespace Routing::Protocol
