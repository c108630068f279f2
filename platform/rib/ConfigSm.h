// The RIB library's configuration state machines. Each watches one of the protocol's
// configuration tables and keeps a generation number that moves on every change, which is how
// the RIB learns that it has something new to read; it also counts what the table holds.
#pragma once

#include <cstdint>

#include "platform/kel/Reactor.h"
#include "platform/rib/RouteConfig.h"
#include "platform/rib/ViaSetConfig.h"

namespace Routing::Rib {

namespace detail {

// Watches a via table: one generation step per via added, changed or removed.
template <class Table, const char* Name>
class ViaConfigSmOf : public Kel::StateMachine {
 public:
  using Ptr = Kel::Ptr<ViaConfigSmOf>;
  class NotifieeConst : public Kel::NotifieeConstOf<ViaConfigSmOf> {};
  static constexpr const char* kTypeName = Name;
  const char* typeName() const noexcept override { return Name; }

  class KelViaConfig : public Kel::Reactor<ViaConfigSmOf, ViaTable> {
   public:
    using Kel::Reactor<ViaConfigSmOf, ViaTable>::Reactor;
    void onVia(const ViaKey&) override {
      if (!this->isZombie()) ++this->owner()->generation_;
    }
  };

  static Ptr ViaConfigSmIs(const Kel::Ptr<Table>& table) { return Ptr(new ViaConfigSmOf(table)); }
  const Kel::Ptr<Table>& viaConfig() const noexcept { return table_; }
  uint64_t generation() const noexcept { return generation_; }

 private:
  explicit ViaConfigSmOf(const Kel::Ptr<Table>& table) : table_(table) {
    reactor_.is(this, Kel::Ptr<ViaTable const>(table));
    initializedIs(true);
  }
  Kel::Ptr<Table> table_;
  Kel::ReactorPtr<KelViaConfig> reactor_{this};
  uint64_t generation_ = 0;
};

inline constexpr char kIpViaConfigSmName[] = "Routing::Rib::Ip::ViaConfigSm";
inline constexpr char kEvpnViaConfigSmName[] = "Routing::Rib::Evpn::ViaConfigSm";

}  // namespace detail

namespace Ip {
using ViaConfigSm = detail::ViaConfigSmOf<ViaConfig, detail::kIpViaConfigSmName>;
inline ViaConfigSm::Ptr viaConfigSmFactory(const ViaConfig::Ptr& t) { return ViaConfigSm::ViaConfigSmIs(t); }
}  // namespace Ip

namespace Evpn {
using ViaConfigSm = detail::ViaConfigSmOf<ViaConfig, detail::kEvpnViaConfigSmName>;
inline ViaConfigSm::Ptr viaConfigSmFactory(const ViaConfig::Ptr& t) { return ViaConfigSm::ViaConfigSmIs(t); }
}  // namespace Evpn

// Watches a via-set configuration: one generation step per restarting VRF entered or left.
class ViaSetConfigSm : public Kel::StateMachine {
 public:
  KEL_ENTITY(ViaSetConfigSm, "Routing::Rib::ViaSetConfigSm");
  class NotifieeConst : public Kel::NotifieeConstOf<ViaSetConfigSm> {};
  KEL_CREATOR(ViaSetConfigSm);

  class KelViaSetConfig : public Kel::Reactor<ViaSetConfigSm, ViaSetConfig> {
   public:
    using Reactor::Reactor;
    void onRestartingVrf(const L3::VrfName&) override {
      if (!isZombie()) ++owner()->generation_;
    }
  };

  KEL_CTOR_PARAM(ViaSetConfig::Ptr, viaSetConfig);
  uint64_t generation() const noexcept { return generation_; }

 private:
  explicit ViaSetConfigSm(const ViaSetConfig::Ptr& config) : viaSetConfig_(config) {
    reactor_.is(this, ViaSetConfig::PtrConst(config));
    initializedIs(true);
  }
  Kel::ReactorPtr<KelViaSetConfig> reactor_{this};
  uint64_t generation_ = 0;
};
KEL_FACTORY(ViaSetConfigSm, viaSetConfigSmFactory)

}  // namespace Routing::Rib
