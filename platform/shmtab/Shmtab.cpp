#include "platform/shmtab/Shmtab.h"

#include "platform/kel/Exception.h"

namespace KelShmtab {

Kel::Ptr<Kel::Entity> Mount::doMount(const std::string& path, const std::string& typeName, const MountInfo& info) {
  if (!info.typeName().empty() && info.typeName() != typeName) {
    throw Kel::InvalidOperationException("mount of " + path + ": collection type " + info.typeName() +
                                         " differs from " + typeName);
  }
  info_ = info;
  Kel::Ptr<Kel::Entity> e = em_->entityIs(path, typeName);
  auto* table = dynamic_cast<Collection*>(e.get());
  if (!table) throw Kel::InvalidOperationException("type " + typeName + " is not a shared-memory collection");
  table->shmtabCapacityIs(info.size());
  table->shmtabPathIs(path);
  return e;
}

void Mount::doCleanup(const std::string& path) {
  Kel::Ptr<Kel::Entity> e = em_->getEntity(path);
  if (auto* table = dynamic_cast<Collection*>(e.get())) table->shmtabCleanup();
}

}  // namespace KelShmtab
