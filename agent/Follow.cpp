#include "agent/Follow.h"

#include <ostream>

namespace Routing::Protocol::Agent {

namespace {

const char* familyName(Velnet::AddressFamily af) { return af == Velnet::AddressFamily::ipv4 ? "ipv4" : "ipv6"; }

}  // namespace

// One RIB route table. `present_` holds the keys the table held when last heard, which is what
// tells "add" from "change".
class Follower::RouteTable : public Rib::RouteConfig::NotifieeConst {
 public:
  RouteTable(Follower* owner, const Rib::RouteConfig::Ptr& table, const char* rib, const Rib::ViaSetConfig::Ptr& viaSets)
      : owner_(owner), rib_(rib), viaSets_(viaSets) {
    for (const Rib::Route& r : table->routeColl()) present_.insert(r.key());
    notifierIs(table);
  }
  void onRoute(const Rib::RouteKey& key) override {
    const Rib::Route* r = notifier()->route(key);
    std::ostream& out = owner_->out_;
    out << rib_;
    if (!r) {
      present_.erase(key);
      out << " del " << where(key) << "\n";
      return;
    }
    const bool added = present_.insert(key).second;
    out << (added ? " add " : " change ") << where(key) << " " << owner_->routeText_(*r, *viaSets_) << "\n";
  }
  size_t users = 1;

 private:
  std::string where(const Rib::RouteKey& key) const {
    return owner_->vrfName_(key.vrfId()) + " " + familyName(key.prefix().af()) + " " + key.prefix().str();
  }
  Follower* owner_;
  const char* rib_;
  Rib::ViaSetConfig::Ptr viaSets_;
  Kel::HashSet<Rib::RouteKey> present_;
};

// One published via-set table: sets are immutable under their key, so they only come and go.
class Follower::ViaSetTable : public Rib::Shmtab::ViaSetCollection::NotifieeConst {
 public:
  ViaSetTable(Follower* owner, const Rib::Shmtab::ViaSetCollection::Ptr& table, const char* rib)
      : owner_(owner), rib_(rib) {
    notifierIs(table);
  }
  void onViaSet(const Rib::ViaSetKey& key) override {
    std::ostream& out = owner_->out_;
    const Rib::Shmtab::ViaSet* set = notifier()->viaSet(key);
    out << rib_ << " viaset " << (set ? "add " : "del ") << key;
    if (set) {
      for (size_t i = 0; i < set->vias().size(); ++i) {
        const Rib::ViaKey& v = set->vias()[i];
        out << (i ? ", " : " ") << v.addr().str();
        if (!v.intfId().name().empty()) out << "%" << v.intfId().name();
      }
      if (set->labelled()) out << " labelled";
    }
    out << "\n";
  }

 private:
  Follower* owner_;
  const char* rib_;
};

// What other VRFs leak into one VRF and family.
class Follower::LeakConfig : public LeakRouteConfig::NotifieeConst {
 public:
  LeakConfig(Follower* owner, const LeakRouteConfig::Ptr& config) : owner_(owner) {
    for (const auto& lr : config->leakRouteColl()) present_.insert(lr->key());
    notifierIs(config);
  }
  void onLeakRoute(const Routing::RouteKey& key) override {
    const auto& config = *notifier();
    std::ostream& out = owner_->out_;
    const char* what = "del ";
    if (config.leakRouteHas(key)) {
      what = present_.insert(key).second ? "add " : "change ";
    } else {
      present_.erase(key);
    }
    out << "leak " << what << owner_->vrfName_(config.key().vrfId()) << " " << familyName(config.key().af()) << " "
        << key.str();
    if (auto lr = config.leakRoute(key)) out << " from " << owner_->vrfName_(lr->vrfAf().vrfId());
    out << "\n";
  }

 private:
  Follower* owner_;
  Kel::HashSet<Routing::RouteKey> present_;
};

Follower::Follower(std::ostream& out, VrfNameOf vrfName, RouteText routeText)
    : out_(out), vrfName_(std::move(vrfName)), routeText_(std::move(routeText)) {}

Follower::~Follower() = default;

void Follower::routeTableIs(const Rib::RouteConfig::Ptr& table, const char* rib, const Rib::ViaSetConfig::Ptr& viaSets) {
  if (!table || !viaSets) return;
  auto& slot = routeTables_[table.get()];
  if (slot) {
    ++slot->users;
    return;
  }
  slot = std::make_unique<RouteTable>(this, table, rib, viaSets);
}

void Follower::routeTableDel(const Rib::RouteConfig::Ptr& table) {
  auto it = routeTables_.find(table.get());
  if (it != routeTables_.end() && --it->second->users == 0) routeTables_.erase(it);
}

void Follower::viaSetTableIs(const Rib::ViaSetConfig::Ptr& viaSets, const char* rib) {
  if (!viaSets || !viaSets->configViaSetColl()) return;
  auto& slot = viaSetTables_[viaSets.get()];
  if (!slot) slot = std::make_unique<ViaSetTable>(this, viaSets->configViaSetColl(), rib);
}

void Follower::leakConfigIs(const LeakRouteConfig::Ptr& config) {
  auto& slot = leakConfigs_[config.get()];
  if (!slot) slot = std::make_unique<LeakConfig>(this, config);
}

void Follower::leakConfigDel(const LeakRouteConfig::Ptr& config) { leakConfigs_.erase(config.get()); }

}  // namespace Routing::Protocol::Agent
