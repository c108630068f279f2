// The state database: entities published at paths, and the mounts through which an agent gets
// them.
//
// Each path holds one entity of a named type. Mounting a path whose entity does not exist yet
// creates an empty one of that type (through the reflection registry), so a reader can bind to a
// table before its writer has filled it. Mounts are gathered in a group; the agent closes the
// group and the mounts complete on a later turn of the event loop, as they would when the
// database answers over the network; the group then notifies `onComplete`.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/kel/Activity.h"
#include "platform/kel/Attribute.h"
#include "platform/kel/Reactor.h"

namespace Statedb {

class EntityManager : public Kel::Entity {
 public:
  KEL_ENTITY(EntityManager, "Statedb::EntityManager");
  class NotifieeConst : public Kel::NotifieeConstOf<EntityManager> {
   public:
    virtual void onEntity(const std::string& /*path*/) {}
  };
  KEL_CREATOR(EntityManager);

  // The entity at `path`, or null.
  Kel::Ptr<Kel::Entity> getEntity(const std::string& path) const;
  // The type name of the entity at `path`, or "".
  std::string typeName(const std::string& path) const;
  // The entity at `path`, created empty if absent. A path holding another type is refused with
  // Kel::InvalidOperationException.
  Kel::Ptr<Kel::Entity> entityIs(const std::string& path, const std::string& typeName);
  // Publishes `entity` at `path` (replacing what was there).
  void entityIs(const std::string& path, const Kel::Ptr<Kel::Entity>& entity);
  bool entityDel(const std::string& path);
  std::vector<std::string> paths() const;

 private:
  EntityManager() = default;
  struct Slot {
    std::string typeName;
    Kel::Ptr<Kel::Entity> entity;
  };
  std::map<std::string, Slot> entities_;
};
KEL_FACTORY(EntityManager, entityManagerFactory)

// One mount request: a path, the type expected there, and the mode ("r" or "w").
struct Mount {
  std::string path;
  std::string typeName;
  std::string mode;
  bool operator==(const Mount&) const = default;
};

class MountGroup : public Kel::StateMachine {
 public:
  KEL_ENTITY(MountGroup, "Statedb::MountGroup");
  class NotifieeConst : public Kel::NotifieeConstOf<MountGroup> {
   public:
    virtual void onComplete() {}
  };
  KEL_CREATOR(MountGroup);

  class KelClock : public Kel::Reactor<MountGroup, Kel::Clock> {
   public:
    using Reactor::Reactor;
    void onTime() override { owner()->handleMountsDue(); }
  };

  KEL_CTOR_PARAM(EntityManager::Ptr, em);
  const std::vector<Mount>& mounts() const noexcept { return mounts_; }
  // Adds a mount to the group; after completion it is mounted at once.
  void doMount(const Mount& m);
  // No more mounts will be added: the group completes on the next turn of the loop.
  void doClose();
  bool complete() const noexcept { return complete_; }

 private:
  explicit MountGroup(const EntityManager::Ptr& em);
  void handleMountsDue();

  KEL_REACTOR(KelClock, clockReactor);
  std::vector<Mount> mounts_;
  Kel::Ptr<Kel::Clock> clock_;
  bool complete_ = false;
};
KEL_FACTORY(MountGroup, mountGroupFactory)

}  // namespace Statedb
