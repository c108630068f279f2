// Shared-memory tables, mounted through the state database.
//
// A mount names the collection, its type and its size; the size is the table's capacity, and an
// insert past it is refused with a RangeException that changes nothing. The table is an entity
// of the state database at the mount path, so every reader mounting the same path shares it.
#pragma once

#include <cstdint>
#include <string>

#include "platform/kel/Attribute.h"
#include "platform/shmtab/ShmtabCollection.h"
#include "platform/statedb/Statedb.h"

namespace KelShmtab {

class MountInfo {
 public:
  void collectionInfoIs(const std::string& name, const std::string& typeName, uint32_t size) {
    name_ = name;
    typeName_ = typeName;
    size_ = size;
  }
  const std::string& name() const noexcept { return name_; }
  const std::string& typeName() const noexcept { return typeName_; }
  uint32_t size() const noexcept { return size_; }

 private:
  std::string name_;
  std::string typeName_;
  uint32_t size_ = 0;
};

class Mount {
 public:
  explicit Mount(const Statedb::EntityManager::Ptr& em) : em_(em) {}
  MountInfo& mountInfo() noexcept { return info_; }
  // Mounts the collection described by the mount information at `path`, creating it if absent.
  // A path already mounted keeps its table (and its contents); its capacity is set again.
  Kel::Ptr<Kel::Entity> doMount(const std::string& path, const std::string& typeName, const MountInfo& info);
  Kel::Ptr<Kel::Entity> getEntity(const std::string& path) const { return em_->getEntity(path); }
  // Empties the table at `path` (the shared segment's contents go away with it).
  void doCleanup(const std::string& path);
  // Removes the table at `path` from the state database.
  bool doUnmount(const std::string& path) { return em_->entityDel(path); }

 private:
  Statedb::EntityManager::Ptr em_;
  MountInfo info_;
};

}  // namespace KelShmtab
