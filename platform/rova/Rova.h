// Mounts of the platform's interface status.
#pragma once

#include "platform/statedb/Statedb.h"

namespace Rova {

class RovaIpStatusMounter {
 public:
  explicit RovaIpStatusMounter(const Statedb::MountGroup::Ptr& mg) : mg_(mg) {}
  // Places the read-only mounts of "ip/status" and "ip6/status" in the group.
  void doMountEntities(bool ipv4, bool ipv6) {
    if (ipv4) mg_->doMount({"ip/status", "Ip::Status", "r"});
    if (ipv6) mg_->doMount({"ip6/status", "Ip6::Status", "r"});
  }

 private:
  Statedb::MountGroup::Ptr mg_;
};

}  // namespace Rova
