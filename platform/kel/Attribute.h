// The generated pattern of entity attributes.
//
// A type's header declares its model and nothing else:
//
//   class RoutePref : public Kel::Entity {
//    public:
//     KEL_ENTITY(RoutePref, "Routing::Protocol::RoutePref");
//     class NotifieeConst : public Kel::NotifieeConstOf<RoutePref> {
//      public:
//       virtual void onTag() {}
//       virtual void onDedupViaKey(const Routing::Rib::ViaKey&) {}
//     };
//     KEL_KEY(Routing::RoutePreference, preference);
//     KEL_SCALAR(uint32_t, tag, Tag);
//     KEL_PTR_COLL(Routing::Rib::DedupViaKey const, Routing::Rib::ViaKey, dedupViaKey, DedupViaKey);
//    private:
//     explicit RoutePref(Routing::RoutePreference p) : preference_(p) {}
//   };
//
// Each macro names the attribute twice, `tag` and `Tag`, because C++ cannot capitalise a name to
// form `onTag`. The macros only forward to the templates of this file; the behaviour every
// mutator must have lives there, once:
//  - `xIs(v)` on a scalar notifies only when the value changes; `xInc(d)` likewise;
//  - a collection's `xIs` notifies `onX(key)` when it adds a member or replaces one by another;
//    adding what is already there is silent; an instantiating collection returns the existing
//    member unchanged (and refuses different constructor parameters with the name-in-use error);
//  - `xDel(key)` notifies only when it removed something and returns whether it did; the member
//    stays alive until its notification has been delivered;
//  - a null entity handed to a collection mutator is refused with the range error
//    "null _x parameter to mutator for <type>::x not allowed" and one closing double-quote.
// Every attribute is also entered in the reflection registry under the type's full name.
#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "platform/kel/Entity.h"
#include "platform/kel/Exception.h"
#include "platform/kel/HashTable.h"
#include "platform/kel/Memory.h"
#include "platform/kel/Reflection.h"
#include "platform/kel/Text.h"

namespace Kel {

// Lets the framework reach the private constructors of entity types.
class Access {
 public:
  template <class T, class... A>
  static T* create(A&&... a) {
    return new T(std::forward<A>(a)...);
  }
};

[[noreturn]] void throwNullParameter(const char* typeName, const char* attr);
[[noreturn]] void throwReinstantiation(const std::string& fullName, const char* attr, const std::string& newValue,
                                       const std::string& currentValue);
[[noreturn]] void throwPointerReinstantiation(const char* attr, const std::string& newValue,
                                              const std::string& currentValue);
// An entity handed to an owning collection while another owner still holds it.
[[noreturn]] void throwAlreadyOwned(const char* typeName, const char* attr, const Entity& member);

bool registerAttr(const char* typeName, const char* attr, const char* attrType, AttrKind kind);

// Text of a value for messages: its text form, or the address of an entity.
template <class T>
std::string messageText(const T& v) {
  if constexpr (requires { typename T::element_type; }) {
    return v ? std::string(v->typeName()) + "(" + v->fullName() + ")" : std::string("None");
  } else {
    return Strep<T>::print(v);
  }
}

// Compares a constructor parameter of an existing entity with the one a re-creation asks for.
template <class T>
void checkCtorParam(const Entity& existing, const char* attr, const T& current, const T& requested) {
  if (!(current == requested)) {
    throwReinstantiation(existing.fullName(), attr, messageText(requested), messageText(current));
  }
}

namespace detail {
inline void checkAdoptable(const Entity& owner, const char* attr, const Entity& member) {
  if (member.parent() != nullptr) throwAlreadyOwned(owner.typeName(), attr, member);
}
}  // namespace detail

template <class T>
struct EntityKeyOf {
  const auto& operator()(const Ptr<T>& p) const noexcept { return p->kelKey(); }
};

// Members held by counted reference in a hash table keyed by the member's own key. `Owning`
// collections create their members and are their parent.
template <class T, class Key>
class EntityHashCollection {
 public:
  using Table = HashTable<Ptr<T>, EntityKeyOf<T>, Key>;

  Ptr<T> find(const Key& k) const noexcept {
    const Ptr<T>* e = t_.find(k);
    return e ? *e : Ptr<T>();
  }
  bool contains(const Key& k) const noexcept { return t_.contains(k); }
  size_t size() const noexcept { return t_.size(); }
  bool empty() const noexcept { return t_.empty(); }
  auto begin() const { return t_.begin(); }
  auto end() const { return t_.end(); }
  // Iteration from the position of a hash value (see HashTable.h).
  auto lowerBoundHash(uint32_t h) const { return t_.lowerBoundHash(h); }
  const Table& table() const noexcept { return t_; }
  std::vector<Key> keys() const {
    std::vector<Key> out;
    out.reserve(t_.size());
    for (const Ptr<T>& p : t_) out.push_back(p->kelKey());
    return out;
  }

  // Creates the member for `k` from (k, a...) unless present. Returns it and whether it is new.
  template <class... A>
  std::pair<Ptr<T>, bool> instantiate(const Entity& owner, const char* attr, const Key& k, A&&... a) {
    if (Ptr<T>* e = t_.find(k)) {
      if constexpr (sizeof...(A) > 0) (*e)->kelCheckCtorParams(a...);
      return {*e, false};
    }
    Ptr<T> p(Access::create<T>(k, std::forward<A>(a)...));
    p->parentIs(&owner, attr);
    t_.insert(p);
    return {p, true};
  }
  // Inserts a member made elsewhere (pointer collections). Returns whether anything changed.
  bool insert(const Ptr<T>& p) {
    auto [e, added] = t_.insert(p);
    if (added || *e == p) return added;
    *e = p;
    return true;
  }
  // Takes a member built elsewhere, still without an owner, in place of any member under its
  // key (which loses its owner). Returns whether anything changed.
  bool adopt(const Entity& owner, const char* attr, const Ptr<T>& p) {
    if (p->parent() == &owner) return false;
    detail::checkAdoptable(owner, attr, *p);
    // The parent is set once the member is in: an insert that cannot grow the table leaves it
    // as it was, still without an owner.
    auto [e, added] = t_.insert(p);
    if (!added) {
      Ptr<T> old = std::exchange(*e, p);
      old->parentIs(nullptr, nullptr);
    }
    p->parentIs(&owner, attr);
    return true;
  }
  // Removes the member at `k` and hands it back (null if absent), so that the caller can keep it
  // alive while the removal is announced.
  Ptr<T> erase(const Key& k, bool owning) {
    Ptr<T>* e = t_.find(k);
    if (!e) return Ptr<T>();
    Ptr<T> held = *e;  // the table still reads the key through it while erasing
    t_.erase(k);
    if (owning) const_cast<std::remove_const_t<T>*>(held.get())->parentIs(nullptr, nullptr);
    return held;
  }

 private:
  Table t_;
};

// Members kept in ascending key order in a sorted array: made for the small collections that a
// route has (its alternatives), where a tree's per-node cost would dominate.
template <class T, class Key>
class EntityOrderedCollection {
 public:
  Ptr<T> find(const Key& k) const noexcept {
    auto it = lower(k);
    return it != v_.end() && (*it)->kelKey() == k ? *it : Ptr<T>();
  }
  bool contains(const Key& k) const noexcept { return static_cast<bool>(find(k)); }
  size_t size() const noexcept { return v_.size(); }
  bool empty() const noexcept { return v_.empty(); }
  auto begin() const { return v_.begin(); }
  auto end() const { return v_.end(); }
  std::vector<Key> keys() const {
    std::vector<Key> out;
    for (const Ptr<T>& p : v_) out.push_back(p->kelKey());
    return out;
  }

  template <class... A>
  std::pair<Ptr<T>, bool> instantiate(const Entity& owner, const char* attr, const Key& k, A&&... a) {
    auto it = lower(k);
    if (it != v_.end() && (*it)->kelKey() == k) {
      if constexpr (sizeof...(A) > 0) (*it)->kelCheckCtorParams(a...);
      return {*it, false};
    }
    Ptr<T> p(Access::create<T>(k, std::forward<A>(a)...));
    p->parentIs(&owner, attr);
    v_.insert(it, p);
    return {p, true};
  }
  bool insert(const Ptr<T>& p) {
    auto it = lower(p->kelKey());
    if (it != v_.end() && (*it)->kelKey() == p->kelKey()) {
      if (*it == p) return false;
      *it = p;
      return true;
    }
    v_.insert(it, p);
    return true;
  }
  bool adopt(const Entity& owner, const char* attr, const Ptr<T>& p) {
    if (p->parent() == &owner) return false;
    detail::checkAdoptable(owner, attr, *p);
    auto it = lower(p->kelKey());
    if (it != v_.end() && (*it)->kelKey() == p->kelKey()) {
      Ptr<T> old = std::exchange(*it, p);
      old->parentIs(nullptr, nullptr);
    } else {
      v_.insert(it, p);
    }
    p->parentIs(&owner, attr);
    return true;
  }
  Ptr<T> erase(const Key& k, bool owning) {
    auto it = lower(k);
    if (it == v_.end() || !((*it)->kelKey() == k)) return Ptr<T>();
    Ptr<T> held = std::move(*it);
    v_.erase(it);
    if (owning) const_cast<std::remove_const_t<T>*>(held.get())->parentIs(nullptr, nullptr);
    return held;
  }

 private:
  // A route's alternatives, one such list per route.
  using Vector = SmallVector<Ptr<T>>;

  typename Vector::const_iterator lower(const Key& k) const noexcept {
    return std::lower_bound(v_.begin(), v_.end(), k, [](const Ptr<T>& p, const Key& key) { return p->kelKey() < key; });
  }
  typename Vector::iterator lower(const Key& k) noexcept {
    return std::lower_bound(v_.begin(), v_.end(), k, [](const Ptr<T>& p, const Key& key) { return p->kelKey() < key; });
  }

  Vector v_;
};

template <class K>
class ValueHashSet {
 public:
  using Table = HashSet<K>;
  bool contains(const K& k) const noexcept { return t_.contains(k); }
  size_t size() const noexcept { return t_.size(); }
  bool empty() const noexcept { return t_.empty(); }
  auto begin() const { return t_.begin(); }
  auto end() const { return t_.end(); }
  auto lowerBoundHash(uint32_t h) const { return t_.lowerBoundHash(h); }
  void prefetchForInsert(const K& k) const noexcept { t_.prefetchForInsert(k); }
  std::vector<K> keys() const { return std::vector<K>(t_.begin(), t_.end()); }
  bool insert(const K& k) { return t_.insert(k).second; }
  bool erase(const K& k) { return t_.erase(k); }
  size_t bytesUsed() const noexcept { return t_.bytesUsed(); }

 private:
  Table t_;
};

template <class K, class V>
class ValueHashMap {
 public:
  using Table = HashMap<K, V>;
  const V* find(const K& k) const noexcept {
    const MapEntry<K, V>* e = t_.find(k);
    return e ? &e->value : nullptr;
  }
  bool contains(const K& k) const noexcept { return t_.contains(k); }
  size_t size() const noexcept { return t_.size(); }
  bool empty() const noexcept { return t_.empty(); }
  auto begin() const { return t_.begin(); }
  auto end() const { return t_.end(); }
  auto lowerBoundHash(uint32_t h) const { return t_.lowerBoundHash(h); }
  std::vector<K> keys() const {
    std::vector<K> out;
    for (const auto& e : t_) out.push_back(e.key);
    return out;
  }
  // Returns whether the map changed.
  bool insert(const K& k, const V& v) {
    if (MapEntry<K, V>* e = t_.find(k)) {
      if (e->value == v) return false;
      e->value = v;
      return true;
    }
    t_.insert(MapEntry<K, V>{k, v});
    return true;
  }
  bool erase(const K& k) { return t_.erase(k); }

 private:
  Table t_;
};

}  // namespace Kel

// ---- The macros. Each is used inside the class body, after `NotifieeConst` is declared. ----

#define KEL_ENTITY(T, FullName)                                         \
 public:                                                                \
  using Ptr = ::Kel::Ptr<T>;                                            \
  using PtrConst = ::Kel::Ptr<T const>;                                 \
  using Notifiee = ::Kel::NotifieeOf<T>;                                \
  static constexpr const char* kTypeName = FullName;                    \
  const char* typeName() const noexcept override { return kTypeName; } \
  static constexpr const char* kelReactorOwnerTypeName() noexcept { return FullName; } \
  friend class ::Kel::Access

// The key of the entity: a constructor parameter by which its owner files it.
#define KEL_KEY(Type, attr)                                                         \
 private:                                                                           \
  Type attr##_;                                                                     \
 public:                                                                            \
  const Type& attr() const noexcept { return attr##_; }                             \
  const Type& kelKey() const noexcept { return attr##_; }                           \
  std::string name() const override { return ::Kel::Strep<Type>::print(attr##_); }  \
  [[maybe_unused]] static inline const bool kelAttr_##attr =                        \
      ::Kel::registerAttr(kTypeName, #attr, #Type, ::Kel::AttrKind::ctorParam)

// A further constructor parameter, fixed for the entity's life.
#define KEL_CTOR_PARAM(Type, attr)                                              \
 private:                                                                       \
  Type attr##_;                                                                 \
 public:                                                                        \
  const Type& attr() const noexcept { return attr##_; }                         \
  [[maybe_unused]] static inline const bool kelAttr_##attr =                    \
      ::Kel::registerAttr(kTypeName, #attr, #Type, ::Kel::AttrKind::ctorParam)

// A value with a notification on change. Optional trailing argument: the initial value.
#define KEL_SCALAR(Type, attr, Attr, ...)                                    \
 private:                                                                    \
  Type attr##_ { __VA_ARGS__ };                                              \
 public:                                                                     \
  const Type& attr() const noexcept { return attr##_; }                      \
  void attr##Is(const Type& v) {                                             \
    if (attr##_ == v) return;                                                \
    attr##_ = v;                                                             \
    notify(&NotifieeConst::on##Attr);                                        \
  }                                                                          \
  [[maybe_unused]] static inline const bool kelAttr_##attr =                 \
      ::Kel::registerAttr(kTypeName, #attr, #Type, ::Kel::AttrKind::scalar)

// A time stamp whose every write is a signal: unlike a scalar, writing the value it already holds
// notifies too, so that two changes within one tick of the clock are both heard.
#define KEL_STAMP(attr, Attr)                                                  \
 private:                                                                      \
  double attr##_{};                                                            \
                                                                               \
 public:                                                                       \
  double attr() const noexcept { return attr##_; }                             \
  void attr##Is(double v) {                                                    \
    attr##_ = v;                                                               \
    notify(&NotifieeConst::on##Attr);                                          \
  }                                                                            \
  [[maybe_unused]] static inline const bool kelAttr_##attr =                   \
      ::Kel::registerAttr(kTypeName, #attr, "double", ::Kel::AttrKind::scalar)

// An unsigned counter: a scalar with `xInc(delta)`, which wraps and returns the new value.
#define KEL_COUNTER(Type, attr, Attr)                                         \
 private:                                                                     \
  Type attr##_ {};                                                            \
 public:                                                                      \
  Type attr() const noexcept { return attr##_; }                              \
  void attr##Is(Type v) {                                                     \
    if (attr##_ == v) return;                                                 \
    attr##_ = v;                                                              \
    notify(&NotifieeConst::on##Attr);                                         \
  }                                                                           \
  Type attr##Inc(Type delta) {                                                \
    attr##Is(static_cast<Type>(attr##_ + delta));                             \
    return attr##_;                                                           \
  }                                                                           \
  [[maybe_unused]] static inline const bool kelAttr_##attr =                  \
      ::Kel::registerAttr(kTypeName, #attr, #Type, ::Kel::AttrKind::counter)

// A counted reference to an entity owned elsewhere.
#define KEL_REF(T, attr, Attr)                                               \
 private:                                                                    \
  ::Kel::Ptr<T> attr##_;                                                     \
 public:                                                                     \
  const ::Kel::Ptr<T>& attr() const noexcept { return attr##_; }             \
  void attr##Is(const ::Kel::Ptr<T>& p) {                                    \
    if (attr##_ == p) return;                                                \
    attr##_ = p;                                                             \
    notify(&NotifieeConst::on##Attr);                                        \
  }                                                                          \
  void attr##Del() { attr##Is(::Kel::Ptr<T>()); }                            \
  [[maybe_unused]] static inline const bool kelAttr_##attr =                 \
      ::Kel::registerAttr(kTypeName, #attr, #T, ::Kel::AttrKind::reference)

#define KEL_DETAIL_COLL_READERS(T, Key, attr, Attr)                                    \
 public:                                                                         \
  ::Kel::Ptr<T> attr(const Key& k) const noexcept { return attr##_.find(k); }    \
  bool attr##Has(const Key& k) const noexcept { return attr##_.contains(k); }    \
  size_t attr##s() const noexcept { return attr##_.size(); }                     \
  const auto& attr##Coll() const noexcept { return attr##_; }                    \
  void attr##Notify(const Key& k) const { notify(&NotifieeConst::on##Attr, k); }

#define KEL_DETAIL_COLL_DELETERS(Key, attr, Attr, owning)    \
  bool attr##Del(const Key& k) {                       \
    auto held = attr##_.erase(k, owning);              \
    if (!held) return false;                           \
    notify(&NotifieeConst::on##Attr, k);               \
    return true;                                       \
  }                                                    \
  void attr##DelAll() {                                \
    for (const auto& k : attr##_.keys()) attr##Del(k); \
  }

// The owner's collection creates its members: `xIs(key, more ctor args...)`.
#define KEL_ENTITY_COLL_OF(Coll, T, Key, attr, Attr)                                \
 private:                                                                           \
  Coll<T, Key> attr##_;                                                             \
 public:                                                                            \
  KEL_DETAIL_COLL_READERS(T, Key, attr, Attr)                                       \
  template <class... A>                                                             \
  ::Kel::Ptr<T> attr##Is(const Key& k, A&&... a) {                                  \
    auto [p, added] = attr##_.instantiate(*this, #attr, k, std::forward<A>(a)...);  \
    if (added) notify(&NotifieeConst::on##Attr, k);                                 \
    return p;                                                                       \
  }                                                                                 \
  /* Takes a member built apart (no notifiee hears it being filled in), replacing  \
     any member under its key: one notification for the whole member. */           \
  ::Kel::Ptr<T> attr##Is(const ::Kel::Ptr<T>& p) {                                  \
    if (!p) ::Kel::throwNullParameter(kTypeName, #attr);                            \
    if (attr##_.adopt(*this, #attr, p)) notify(&NotifieeConst::on##Attr, p->kelKey()); \
    return p;                                                                       \
  }                                                                                 \
  KEL_DETAIL_COLL_DELETERS(Key, attr, Attr, true)                                   \
  [[maybe_unused]] static inline const bool kelAttr_##attr =                        \
      ::Kel::registerAttr(kTypeName, #attr, #T, ::Kel::AttrKind::collection)

#define KEL_ENTITY_COLL(T, Key, attr, Attr) KEL_ENTITY_COLL_OF(::Kel::EntityHashCollection, T, Key, attr, Attr)
#define KEL_ORDERED_ENTITY_COLL(T, Key, attr, Attr) \
  KEL_ENTITY_COLL_OF(::Kel::EntityOrderedCollection, T, Key, attr, Attr)

// Counted references to entities owned elsewhere, filed by the member's own key: `xIs(ptr)`.
#define KEL_PTR_COLL(T, Key, attr, Attr)                                      \
 private:                                                                     \
  ::Kel::EntityHashCollection<T, Key> attr##_;                                \
 public:                                                                      \
  KEL_DETAIL_COLL_READERS(T, Key, attr, Attr)                                 \
  ::Kel::Ptr<T> attr##Is(const ::Kel::Ptr<T>& p) {                            \
    if (!p) ::Kel::throwNullParameter(kTypeName, #attr);                      \
    if (attr##_.insert(p)) notify(&NotifieeConst::on##Attr, p->kelKey());     \
    return p;                                                                 \
  }                                                                           \
  KEL_DETAIL_COLL_DELETERS(Key, attr, Attr, false)                            \
  [[maybe_unused]] static inline const bool kelAttr_##attr =                  \
      ::Kel::registerAttr(kTypeName, #attr, #T, ::Kel::AttrKind::collection)

// A set of values. `xIs(k)` returns whether k was new; only then are the notifiees told.
#define KEL_SET(Key, attr, Attr)                                                  \
 private:                                                                         \
  ::Kel::ValueHashSet<Key> attr##_;                                               \
 public:                                                                          \
  bool attr##Has(const Key& k) const noexcept { return attr##_.contains(k); }     \
  size_t attr##s() const noexcept { return attr##_.size(); }                      \
  const auto& attr##Coll() const noexcept { return attr##_; }                     \
  bool attr##Is(const Key& k) {                                                   \
    if (!attr##_.insert(k)) return false;                                         \
    notify(&NotifieeConst::on##Attr, k);                                          \
    return true;                                                                  \
  }                                                                               \
  bool attr##Del(const Key& k) {                                                  \
    if (!attr##_.erase(k)) return false;                                          \
    notify(&NotifieeConst::on##Attr, k);                                          \
    return true;                                                                  \
  }                                                                               \
  void attr##DelAll() {                                                           \
    for (const auto& k : attr##_.keys()) attr##Del(k);                            \
  }                                                                               \
  void attr##Notify(const Key& k) const { notify(&NotifieeConst::on##Attr, k); }  \
  [[maybe_unused]] static inline const bool kelAttr_##attr =                      \
      ::Kel::registerAttr(kTypeName, #attr, #Key, ::Kel::AttrKind::collection)

// A map from keys to values; `x(key)` yields the value, or when absent the optional trailing
// argument (a default-constructed value without it).
#define KEL_MAP(Key, V, attr, Attr, ...)                                               \
 private:                                                                         \
  ::Kel::ValueHashMap<Key, V> attr##_;                                            \
 public:                                                                          \
  V attr(const Key& k) const {                                                    \
    const V* v = attr##_.find(k);                                                 \
    return v ? *v : V{__VA_ARGS__};                                                          \
  }                                                                               \
  bool attr##Has(const Key& k) const noexcept { return attr##_.contains(k); }     \
  size_t attr##s() const noexcept { return attr##_.size(); }                      \
  const auto& attr##Coll() const noexcept { return attr##_; }                     \
  void attr##Is(const Key& k, const V& v) {                                       \
    if (attr##_.insert(k, v)) notify(&NotifieeConst::on##Attr, k);                \
  }                                                                               \
  bool attr##Del(const Key& k) {                                                  \
    if (!attr##_.erase(k)) return false;                                          \
    notify(&NotifieeConst::on##Attr, k);                                          \
    return true;                                                                  \
  }                                                                               \
  void attr##DelAll() {                                                           \
    for (const auto& k : attr##_.keys()) attr##Del(k);                            \
  }                                                                               \
  void attr##Notify(const Key& k) const { notify(&NotifieeConst::on##Attr, k); }  \
  [[maybe_unused]] static inline const bool kelAttr_##attr =                      \
      ::Kel::registerAttr(kTypeName, #attr, #V, ::Kel::AttrKind::collection)

// Factories: `routePrefFactory(...)` and `RoutePref::RoutePrefIs(...)` take the constructor
// parameters. KEL_FACTORY goes after the class, at namespace scope; KEL_CREATOR inside it.
#define KEL_CREATOR(T)                                                     \
 public:                                                                   \
  template <class... A>                                                    \
  static ::Kel::Ptr<T> T##Is(A&&... a) {                                   \
    return ::Kel::Ptr<T>(::Kel::Access::create<T>(std::forward<A>(a)...)); \
  }                                                                        \
  static_assert(true)

#define KEL_FACTORY(T, factory)                                   \
  template <class... A>                                           \
  inline ::Kel::Ptr<T> factory(A&&... a) {                        \
    return ::Kel::Ptr<T>(::Kel::Access::create<T>(std::forward<A>(a)...)); \
  }

// In the type's source file: lets reflection create an empty instance of a type whose
// constructor takes no parameters.
#define KEL_REGISTER_ENTITY(T)                                                      \
  [[maybe_unused]] static const bool KEL_CONCAT(kelEntityRegistered_, __LINE__) = [] { \
    ::Kel::Registry::instance().type(T::kTypeName).createEmpty = [] {               \
      return ::Kel::Ptr<::Kel::Entity>(::Kel::Access::create<T>());                 \
    };                                                                              \
    return true;                                                                    \
  }()
