// What a table that lives in shared memory offers the shared-table service: a capacity fixed at
// mount time, the path it is mounted at, and a clean-up that empties it before it is unmounted.
#pragma once

#include <cstdint>
#include <string>

namespace KelShmtab {

class Collection {
 public:
  virtual void shmtabCapacityIs(uint32_t entries) = 0;
  virtual void shmtabPathIs(const std::string& /*path*/) {}
  virtual void shmtabCleanup() = 0;

 protected:
  ~Collection() = default;
};

}  // namespace KelShmtab
