// Deduplicated handles.
//
// A dedup table keeps one handle per distinct value: asking for a value that is already held
// returns the same handle, so equal values share one object and compare equal by pointer. The
// entry lives exactly as long as some holder keeps its handle: releasing the last reference
// removes the value from the table. This is how a route's vias and via sets are held: a million
// routes through ten thousand next hops hold ten thousand via objects, and a RIB via set stays in
// its table just as long as some route alternative uses it.
//
// Handles keep their table alive (a counted reference), so a table may be dropped by its owner
// while handles are still held elsewhere. Each handle also carries a small id, unique among the
// live handles of its table and reused after release, which a table can publish as the value's key.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/kel/Assert.h"
#include "platform/kel/Attribute.h"
#include "platform/kel/Entity.h"
#include "platform/kel/HashTable.h"

namespace Velk {

template <class V>
class DedupTable;

template <class V>
class DedupHandle : public Kel::Entity {
 public:
  using Ptr = Kel::Ptr<DedupHandle>;
  using PtrConst = Kel::Ptr<DedupHandle const>;
  class NotifieeConst : public Kel::NotifieeConstOf<DedupHandle> {};

  const char* typeName() const noexcept override { return table_->typeName(); }
  std::string name() const override { return Kel::Strep<V>::print(value_); }
  const V& value() const noexcept { return value_; }
  const V& kelKey() const noexcept { return value_; }
  uint32_t id() const noexcept { return id_; }
  // Whether the handle was issued by `table`.
  bool issuedBy(const DedupTable<V>& table) const noexcept { return table_.get() == &table; }

 private:
  friend class DedupTable<V>;
  DedupHandle(DedupTable<V>* table, const V& v, uint32_t id) : table_(table), value_(v), id_(id) {}
  void onZeroReferences() const noexcept override {
    table_->release(this);
    delete this;
  }

  Kel::Ptr<DedupTable<V>> table_;
  V value_;
  uint32_t id_;
};

template <class V>
class DedupTable : public Kel::PtrInterface {
 public:
  using Handle = DedupHandle<V>;

  // `handleTypeName` names the handles' type ("Routing::Rib::DedupViaKey").
  static Kel::Ptr<DedupTable> DedupTableIs(const char* handleTypeName) {
    return Kel::Ptr<DedupTable>(new DedupTable(handleTypeName));
  }

  // The handle of `v`, made if no holder has one.
  Kel::Ptr<Handle const> handleIs(const V& v) {
    if (Handle* const* h = handles_.find(v)) return Kel::Ptr<Handle const>(*h);
    uint32_t id;
    if (!freeIds_.empty()) {
      id = freeIds_.back();
      freeIds_.pop_back();
    } else {
      id = nextId_++;
    }
    auto* h = new Handle(this, v, id);
    handles_.insert(h);
    return Kel::Ptr<Handle const>(h);
  }
  // The handle of `v` if some holder has one, else null.
  Kel::Ptr<Handle const> handle(const V& v) const {
    Handle* const* h = handles_.find(v);
    return h ? Kel::Ptr<Handle const>(*h) : Kel::Ptr<Handle const>();
  }
  size_t size() const noexcept { return handles_.size(); }
  const char* typeName() const noexcept { return typeName_; }
  template <class F>
  void forEach(F&& f) const {
    for (Handle* h : handles_) f(*h);
  }
  size_t bytesUsed() const noexcept { return handles_.bytesUsed() + size() * sizeof(Handle); }
  // Called with each handle as its last holder lets go, just before it leaves the table.
  void releaseHookIs(std::function<void(const Handle&)> hook) { releaseHook_ = std::move(hook); }

 private:
  friend class DedupHandle<V>;
  struct KeyOf {
    const V& operator()(Handle* const& h) const noexcept { return h->value(); }
  };

  explicit DedupTable(const char* typeName) : typeName_(typeName) {}
  void release(const Handle* h) noexcept {
    if (releaseHook_) releaseHook_(*h);
    bool erased = handles_.erase(h->value());
    KEL_ASSERT(erased);
    freeIds_.push_back(h->id());
  }

  const char* typeName_;
  Kel::HashTable<Handle*, KeyOf, V> handles_;
  std::vector<uint32_t> freeIds_;
  std::function<void(const Handle&)> releaseHook_;
  uint32_t nextId_ = 1;
};

}  // namespace Velk
