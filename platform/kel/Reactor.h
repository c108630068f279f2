// State machines and their reactors.
//
// A state machine reacts to entities it does not own through reactors: nested notifiees, one per
// watched entity, each holding a counted reference to its notifier and a plain pointer back to its
// owner (never counted, so owner and reactors cannot keep each other alive). Reactors that follow
// the members of a watched collection live in a reactor collection of their owner under the
// member's key, and nest as deep as the watched data does.
//
// A reactor leaves in three steps: its `handleDel()` runs (it may still look at its owner's
// collections, which still hold it), it is taken out of the collection and flagged a zombie (it and
// its nested reactors stop hearing notifications), and it is destroyed once no notification is in
// progress, so a handler that dropped its own reactor still runs to completion on a live object.
// Destroying a whole state machine destroys its reactors without running any `handleDel()`.
//
// Every reactor container of a state machine registers with it, so that `hasNotificationActiveIs`
// on the machine reaches every reactor below it; a reactor with reactors of its own holds exactly
// one collection of them and reaches it directly.
#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "platform/kel/Attribute.h"
#include "platform/kel/Entity.h"
#include "platform/kel/HashTable.h"
#include "platform/kel/Memory.h"

namespace Kel {

class ReactorContainerBase;

// What holds reactor containers and lists them: a state machine.
class ReactorOwner {
 public:
  ReactorOwner() noexcept = default;
  ReactorOwner(const ReactorOwner&) = delete;
  ReactorOwner& operator=(const ReactorOwner&) = delete;

  void kelContainerIs(ReactorContainerBase* c) noexcept;
  // Applies `hasNotificationActiveIs(active)` to every reactor held, recursively.
  void kelReactorsActiveIs(bool active);
  // Flags every reactor held as a zombie, recursively.
  void kelReactorsZombieIs(bool zombie);

 protected:
  ~ReactorOwner() = default;

 private:
  ReactorContainerBase* containers_ = nullptr;
};

// The part of every reactor that does not depend on what it watches: its notifiee base, which
// carries the hooks its collection calls (handleDel, kelDoZombieReactors).
using ReactorBase = NotifieeBase;

class ReactorContainerBase {
 public:
  ReactorContainerBase(const ReactorContainerBase&) = delete;
  ReactorContainerBase& operator=(const ReactorContainerBase&) = delete;
  virtual void kelForEach(void (*fn)(ReactorBase&, bool), bool arg) = 0;

 protected:
  explicit ReactorContainerBase(ReactorOwner* owner) noexcept { owner->kelContainerIs(this); }
  virtual ~ReactorContainerBase() = default;

 private:
  friend class ReactorOwner;
  ReactorContainerBase* nextContainer_ = nullptr;
};

// A reactor of `Owner` on one entity of type `N`. Derive from it, override the notifications
// wanted, and call the owner's handlers from them.
template <class Owner, class N>
class Reactor : public N::NotifieeConst {
 public:
  using Notifier = N;
  Reactor(Owner* owner, const Ptr<N const>& notifier) : owner_(owner) { this->notifierIs(notifier); }

  Owner* owner() const noexcept { return owner_; }
  // The key of the watched entity, read through the held reference: reactor tables compare keys
  // this way, and a counted copy of the notifier would write to it on every comparison.
  decltype(auto) fwkKey() const noexcept { return static_cast<N const*>(this->notifierBase())->kelKey(); }

 private:
  Owner* owner_;
};

// A reactor that holds reactors of its own (a route's reactor, with one per alternative): its
// switches and its retirement reach them too. It holds exactly one collection of them
// (KEL_NESTED_REACTOR_COLL), which it reaches through a virtual function: a million routes'
// reactors pay neither for a list of collections nor for a collection's hooks, only for the
// collection's own words.
template <class Owner, class N>
class NestingReactor : public Reactor<Owner, N> {
 public:
  using Reactor<Owner, N>::Reactor;

  void kelDoZombieReactors(bool zombie) override {
    if (zombie == this->isZombie()) return;
    Reactor<Owner, N>::kelDoZombieReactors(zombie);
    kelForEachNested([](ReactorBase& r, bool z) { r.kelDoZombieReactors(z); }, zombie);
  }
  void hasNotificationActiveIs(bool active) override {
    NotifieeBase::hasNotificationActiveIs(active);
    kelForEachNested([](ReactorBase& r, bool a) { r.hasNotificationActiveIs(a); }, active);
  }

 protected:
  // Applies `fn` to every reactor of the collection held (defined by KEL_NESTED_REACTOR_COLL).
  virtual void kelForEachNested(void (*fn)(ReactorBase&, bool), bool arg) = 0;
};

namespace detail {
void zombieAndDefer(ReactorBase* r) noexcept;
}

// A reactor's key is its notifier's: a table of reactors stores the pointers alone, and reads a
// key only where a lookup meets an equal hash.
struct ReactorKeyOf {
  template <class R>
  decltype(auto) operator()(R* const& r) const noexcept {
    return r->fwkKey();
  }
};

// What every keyed reactor collection does, over the storage a derived class gives it: `find`,
// iteration over the reactors, `file(r)` (may throw, leaving the collection as it was) and
// `unfile(r)`. The reactors are owned by the collection.
template <class Derived, class Key, class R>
class ReactorCollection {
 public:
  using N = typename R::Notifier;

  bool contains(const Key& k) const noexcept { return self().find(k) != nullptr; }
  std::vector<Key> keys() const {
    std::vector<Key> out;
    for (R* r : self()) out.push_back(r->fwkKey());
    return out;
  }

  // Creates the reactor for `n` unless one on the same entity exists. A reactor on another
  // entity under the same key is replaced, and its handleDel runs first: the entity it watched
  // left the collection, and whatever was built from it must go before the newcomer's state
  // is built (the two may share parts, such as the vias of a replaced route).
  template <class Owner, class... A>
  R* is(Owner* owner, const Ptr<N const>& n, A&&... a) {
    const Key& k = n->kelKey();
    if (R* old = self().find(k)) {
      if (old->notifier() == n) return old;
      old->handleDel();
      if (self().find(k) == old) {
        self().unfile(old);
        detail::zombieAndDefer(old);
      }
    }
    R* r = new R(owner, n, std::forward<A>(a)...);
    try {
      self().file(r);
    } catch (...) {  // no room to file it: it must not go on watching
      detail::zombieAndDefer(r);
      throw;
    }
    return r;
  }
  // Runs the reactor's handleDel, then removes and retires it. Returns whether there was one.
  bool del(const Key& k) {
    R* r = self().find(k);
    if (!r) return false;
    r->handleDel();
    if (self().find(k) == r) {  // handleDel may itself have dropped it
      self().unfile(r);
      detail::zombieAndDefer(r);
    }
    return true;
  }
  void delAll() {
    for (const Key& k : keys()) del(k);
  }
  void forEachReactor(void (*fn)(ReactorBase&, bool), bool arg) {
    for (R* r : self()) fn(*r, arg);
  }

 protected:
  ReactorCollection() noexcept = default;
  // A collection owns its reactors: it is never copied.
  ReactorCollection(const ReactorCollection&) = delete;
  ReactorCollection& operator=(const ReactorCollection&) = delete;
  ~ReactorCollection() = default;

 private:
  Derived& self() noexcept { return static_cast<Derived&>(*this); }
  const Derived& self() const noexcept { return static_cast<const Derived&>(*this); }
};

// Reactors in a hash table by their notifier's key.
template <class Key, class R>
class ReactorMap : public ReactorCollection<ReactorMap<Key, R>, Key, R> {
 public:
  ReactorMap() noexcept = default;
  ~ReactorMap() { clear(); }

  R* find(const Key& k) const noexcept {
    R* const* e = t_.find(k);
    return e ? *e : nullptr;
  }
  size_t size() const noexcept { return t_.size(); }
  auto begin() const { return t_.begin(); }
  auto end() const { return t_.end(); }
  // Starts loading where a reactor for `k` would be filed (see HashTable::prefetchForInsert).
  void prefetchForInsert(const Key& k) const noexcept { t_.prefetchForInsert(k); }
  // Retires every reactor without running handleDel (the owner is going away).
  void clear() noexcept {
    for (R* r : t_) detail::zombieAndDefer(r);
    t_.clear();
  }

 private:
  friend class ReactorCollection<ReactorMap, Key, R>;
  void file(R* r) { t_.insert(r); }
  void unfile(R* r) noexcept { t_.erase(r->fwkKey()); }

  HashTable<R*, ReactorKeyOf, Key> t_;
};

// Reactors of a collection that holds a few members at most (the alternatives of one route).
// A million routes watched each with a table of two reactors would pay a hash-table block
// apiece; here the reactors sit in ascending key order in the collection itself, and a lookup
// walks them reading each one's key from its notifier. The collection is kInline words, and a
// million routes pay for every word: while it holds at most kInline reactors
// they are the words themselves, packed at the front with the unused ones null; past that the
// first word points at a small block of the reactors, tagged in its lowest bit (blocks and
// reactors are aligned to 8 at least), and the second holds their count and the block's capacity.
// A collection that shrinks back to kInline reactors takes them inline again and frees the
// block; in between, a block is never reallocated smaller, so removing never allocates.
template <class Key, class R, unsigned kInline = 2>
class SmallReactorMap : public ReactorCollection<SmallReactorMap<Key, R, kInline>, Key, R> {
  static_assert(kInline >= 2, "a spilled collection keeps its block and its count in two words");

 public:
  SmallReactorMap() noexcept = default;
  ~SmallReactorMap() { clear(); }

  R* find(const Key& k) const noexcept {
    const size_t n = size();
    const size_t i = lowerBound(k, n);
    return i < n && slots()[i]->fwkKey() == k ? slots()[i] : nullptr;
  }
  size_t size() const noexcept {
    if (spilled()) return word(1) >> kCapBits;
    size_t n = 0;
    while (n < kInline && w_[n]) ++n;
    return n;
  }
  R* const* begin() const noexcept { return slots(); }
  R* const* end() const noexcept { return slots() + size(); }
  void clear() noexcept {
    for (R* r : *this) detail::zombieAndDefer(r);
    if (spilled()) smallFree(block(), capacity() * sizeof(R*));
    std::fill(w_, w_ + kInline, nullptr);
  }

 private:
  friend class ReactorCollection<SmallReactorMap, Key, R>;
  // The second word of a spilled collection: count << kCapBits | log2(capacity / kInline).
  static constexpr unsigned kCapBits = 6;

  uintptr_t word(size_t i) const noexcept { return reinterpret_cast<uintptr_t>(w_[i]); }
  bool spilled() const noexcept { return (word(0) & 1) != 0; }
  R** block() const noexcept { return reinterpret_cast<R**>(word(0) & ~uintptr_t(1)); }
  unsigned capShift() const noexcept { return unsigned(word(1) & ((1u << kCapBits) - 1)); }
  size_t capacity() const noexcept { return size_t(kInline) << capShift(); }
  void spillIs(R** block, size_t count, unsigned shift) noexcept {
    w_[0] = reinterpret_cast<R*>(reinterpret_cast<uintptr_t>(block) | 1);
    w_[1] = reinterpret_cast<R*>((uintptr_t(count) << kCapBits) | shift);
  }
  R** slots() noexcept { return spilled() ? block() : w_; }
  R* const* slots() const noexcept { return spilled() ? block() : w_; }
  size_t lowerBound(const Key& k, size_t n) const noexcept {
    R* const* s = slots();
    size_t i = 0;
    while (i < n && s[i]->fwkKey() < k) ++i;
    return i;
  }

  void file(R* r) {
    const size_t n = size();
    const size_t i = lowerBound(r->fwkKey(), n);
    if (n < kInline) {
      std::move_backward(w_ + i, w_ + n, w_ + n + 1);
      w_[i] = r;
      return;
    }
    const bool wasSpilled = spilled();
    const size_t cap = wasSpilled ? capacity() : kInline;
    unsigned shift = wasSpilled ? capShift() : 0;
    R** from = slots();
    R** to = from;
    if (n == cap) {  // full: a block twice the size, allocated before anything changes
      ++shift;
      to = static_cast<R**>(smallAllocate(2 * cap * sizeof(R*)));
      std::copy(from, from + i, to);
      std::copy(from + i, from + n, to + i + 1);
      if (wasSpilled) smallFree(from, cap * sizeof(R*));
    } else {
      std::move_backward(from + i, from + n, from + n + 1);
    }
    to[i] = r;
    spillIs(to, n + 1, shift);
  }
  void unfile(R* r) noexcept {
    const size_t n = size();
    if (!spilled()) {
      R** at = std::find(w_, w_ + n, r);
      std::move(at + 1, w_ + n, at);
      w_[n - 1] = nullptr;
      return;
    }
    R** s = block();
    R** at = std::find(s, s + n, r);
    std::move(at + 1, s + n, at);
    if (n - 1 > kInline) {
      spillIs(s, n - 1, capShift());
      return;
    }
    const size_t cap = capacity();
    std::copy(s, s + kInline, w_);
    smallFree(s, cap * sizeof(R*));
  }

  R* w_[kInline] = {};
};

// A reactor collection listed with the state machine that holds it, so that the machine's
// switches reach the reactors in it.
template <class Coll>
class ListedReactorCollection final : public Coll, public ReactorContainerBase {
 public:
  explicit ListedReactorCollection(ReactorOwner* owner) noexcept : ReactorContainerBase(owner) {}
  void kelForEach(void (*fn)(ReactorBase&, bool), bool arg) override {
    this->forEachReactor(fn, arg);
  }
};

// A single reactor, present or not.
template <class R>
class ReactorPtr : public ReactorContainerBase {
 public:
  using N = typename R::Notifier;
  explicit ReactorPtr(ReactorOwner* owner) noexcept : ReactorContainerBase(owner) {}
  ~ReactorPtr() { clear(); }

  R* get() const noexcept { return r_; }
  explicit operator bool() const noexcept { return r_ != nullptr; }
  R* operator->() const noexcept { return r_; }

  // Watches `n` (null: watches nothing). Watching the same entity again changes nothing.
  template <class Owner, class... A>
  R* is(Owner* owner, const Ptr<N const>& n, A&&... a) {
    if (r_ && r_->notifier() == n) return r_;
    clear();
    if (n) r_ = new R(owner, n, std::forward<A>(a)...);
    return r_;
  }
  void clear() noexcept {
    if (r_) detail::zombieAndDefer(std::exchange(r_, nullptr));
  }
  void kelForEach(void (*fn)(ReactorBase&, bool), bool arg) override {
    if (r_) fn(*r_, arg);
  }

 private:
  R* r_ = nullptr;
};

// The base of every state machine: an entity whose inputs are constructor parameters, whose other
// attributes are reactors and outputs, with the flag `initialized`.
class StateMachine : public Entity, public ReactorOwner {
 public:
  bool initialized() const noexcept { return initialized_; }
  // Sets the flag without notifying.
  void initializedIs(bool v) noexcept { initialized_ = v; }
  bool hasNotificationActive() const noexcept { return active_; }
  // Switches notification delivery for every reactor of the machine, recursively.
  void hasNotificationActiveIs(bool active) {
    if (active == active_) return;
    active_ = active;
    kelReactorsActiveIs(active);
  }

 protected:
  StateMachine() noexcept = default;

 private:
  bool initialized_ = false;
  bool active_ = true;
};

}  // namespace Kel

// A reactor collection attribute of a state machine: `xIs(notifier)` creates the reactor (a null
// notifier is refused with the framework's range error), `xDel(key)` runs its handleDel and drops
// it, `x(key)` finds it. KEL_REACTOR_COLL_OF names the container (::Kel::SmallReactorMap for a
// collection of a few members at most). A NestingReactor declares its one collection with
// KEL_NESTED_REACTOR_COLL or KEL_NESTED_REACTOR_COLL_OF instead, which give the same members.
#define KEL_REACTOR_COLL(R, Key, attr) KEL_REACTOR_COLL_OF(::Kel::ReactorMap, R, Key, attr)
#define KEL_REACTOR_COLL_OF(Container, R, Key, attr)                                           \
  KEL_REACTOR_COLL_MEMBERS_(R, Key, attr)                                                      \
                                                                                               \
 private:                                                                                      \
  ::Kel::ListedReactorCollection<Container<Key, R>> attr##_{this};                             \
                                                                                               \
 public:                                                                                       \
  static_assert(true)
#define KEL_NESTED_REACTOR_COLL(R, Key, attr) \
  KEL_NESTED_REACTOR_COLL_OF(::Kel::ReactorMap, R, Key, attr)
#define KEL_NESTED_REACTOR_COLL_OF(Container, R, Key, attr)                                    \
  KEL_REACTOR_COLL_MEMBERS_(R, Key, attr)                                                      \
                                                                                               \
 protected:                                                                                    \
  void kelForEachNested(void (*fn)(::Kel::ReactorBase&, bool), bool arg) override {            \
    attr##_.forEachReactor(fn, arg);                                                           \
  }                                                                                            \
                                                                                               \
 private:                                                                                      \
  Container<Key, R> attr##_;                                                                   \
                                                                                               \
 public:                                                                                       \
  static_assert(true)
#define KEL_REACTOR_COLL_MEMBERS_(R, Key, attr)                                                \
 public:                                                                                       \
  R* attr(const Key& k) const noexcept { return attr##_.find(k); }                             \
  bool attr##Has(const Key& k) const noexcept { return attr##_.contains(k); }                  \
  size_t attr##s() const noexcept { return attr##_.size(); }                                   \
  const auto& attr##Coll() const noexcept { return attr##_; }                                  \
  R* attr##Is(const ::Kel::Ptr<typename R::Notifier const>& n) {                               \
    if (!n) ::Kel::throwNullParameter(kelReactorOwnerTypeName(), #attr);                       \
    return attr##_.is(this, n);                                                                \
  }                                                                                            \
  bool attr##Del(const Key& k) { return attr##_.del(k); }                                      \
  void attr##DelAll() { attr##_.delAll(); }

// A single reactor attribute: `xIs(notifier)` (null watches nothing), `xDel()`.
#define KEL_REACTOR(R, attr)                                                                   \
 public:                                                                                       \
  R* attr() const noexcept { return attr##_.get(); }                                           \
  void attr##Is(const ::Kel::Ptr<typename R::Notifier const>& n) { attr##_.is(this, n); }      \
  void attr##Del() { attr##_.clear(); }                                                        \
                                                                                               \
 private:                                                                                      \
  ::Kel::ReactorPtr<R> attr##_{this};                                                          \
                                                                                               \
 public:                                                                                       \
  static_assert(true)

// Names the type used in the null-parameter text of a reactor collection: the state machine's
// full name, or for a nested reactor "<machine>::<Reactor>".
#define KEL_REACTOR_OWNER_NAME(text) \
 public:                             \
  static constexpr const char* kelReactorOwnerTypeName() noexcept { return text; }
