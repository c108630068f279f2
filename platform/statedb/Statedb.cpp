#include "platform/statedb/Statedb.h"

#include "platform/kel/Exception.h"
#include "platform/kel/Reflection.h"

namespace Statedb {

Kel::Ptr<Kel::Entity> EntityManager::getEntity(const std::string& path) const {
  auto it = entities_.find(path);
  return it == entities_.end() ? Kel::Ptr<Kel::Entity>() : it->second.entity;
}

std::string EntityManager::typeName(const std::string& path) const {
  auto it = entities_.find(path);
  return it == entities_.end() ? std::string() : it->second.typeName;
}

Kel::Ptr<Kel::Entity> EntityManager::entityIs(const std::string& path, const std::string& typeName) {
  auto it = entities_.find(path);
  if (it != entities_.end()) {
    if (it->second.typeName != typeName) {
      throw Kel::InvalidOperationException("path " + path + " holds a " + it->second.typeName + ", not a " + typeName);
    }
    return it->second.entity;
  }
  Kel::Ptr<Kel::Entity> e = Kel::createEntity(typeName);
  entities_[path] = Slot{typeName, e};
  notify(&NotifieeConst::onEntity, path);
  return e;
}

void EntityManager::entityIs(const std::string& path, const Kel::Ptr<Kel::Entity>& entity) {
  if (!entity) Kel::throwNullParameter(kTypeName, "entity");
  Slot& slot = entities_[path];
  if (slot.entity == entity) return;
  slot = Slot{entity->typeName(), entity};
  notify(&NotifieeConst::onEntity, path);
}

bool EntityManager::entityDel(const std::string& path) {
  auto it = entities_.find(path);
  if (it == entities_.end()) return false;
  Kel::Ptr<Kel::Entity> held = it->second.entity;
  entities_.erase(it);
  notify(&NotifieeConst::onEntity, path);
  return true;
}

std::vector<std::string> EntityManager::paths() const {
  std::vector<std::string> out;
  for (const auto& [path, slot] : entities_) out.push_back(path);
  return out;
}

MountGroup::MountGroup(const EntityManager::Ptr& em) : em_(em), clock_(Kel::activityManager().clockNew()) {
  clockReactorIs(clock_);
}

void MountGroup::doMount(const Mount& m) {
  mounts_.push_back(m);
  if (complete_) em_->entityIs(m.path, m.typeName);
}

void MountGroup::doClose() {
  if (!complete_) clock_->timeMinIs(Kel::currentTime());
}

void MountGroup::handleMountsDue() {
  if (complete_) return;
  for (const Mount& m : mounts_) em_->entityIs(m.path, m.typeName);
  complete_ = true;
  notify(&NotifieeConst::onComplete);
}

KEL_REGISTER_ENTITY(EntityManager);

}  // namespace Statedb
