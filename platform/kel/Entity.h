// Entities, notifiees and notification delivery.
//
// An entity is a counted object that announces changes of its attributes to its notifiees. Each
// entity type T declares `T::NotifieeConst` with one virtual `onX(...)` per notifying attribute; an
// observer derives from it, binds to one notifier with `notifierIs` and overrides what it needs.
//
// Delivery is synchronous and nests: a handler may change other entities, which notify in turn.
// What stays true while that happens:
//  - a notifiee is notified only while it is registered and active; one that is unregistered or
//    destroyed during a notification (itself or another notifiee of the same notifier) gets no
//    further calls, and one registered during a notification first hears the next one;
//  - the notifier lives until its notification has been delivered, even if a handler drops the
//    last outside reference to it.
// To keep positions stable while a notifiee list is being walked, removal during any notification
// only clears the slot; the list is compacted at the next change made outside of notifications.
// The list is one word: empty, a single notifiee inline, or a pointer to a block of slots.
//
// Reactors (Reactor.h) dropped during a notification are destroyed only once the outermost
// notification has returned (`deferDelete`), so a handler never runs on a destroyed object.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "platform/kel/Ptr.h"

namespace Kel {

class Entity;
class NotifieeBase;

namespace detail {
// Depth of nested notifications (and loop turns) on this thread.
extern thread_local uint32_t notificationDepth;
void drainDeferredDeletes() noexcept;
// Attribute names by number, so that an entity keeps the name of the attribute its parent holds it
// under in 4 bytes rather than a pointer's 8. Names are string literals, numbered by address on
// first use; 0 is no name.
uint32_t attrNameNumber(const char* name) noexcept;
const char* attrNameOf(uint32_t number) noexcept;
}  // namespace detail

// Marks a stretch of code during which objects dropped must not be destroyed yet.
class NotificationScope {
 public:
  NotificationScope() noexcept { ++detail::notificationDepth; }
  ~NotificationScope() {
    if (--detail::notificationDepth == 0) detail::drainDeferredDeletes();
  }
  NotificationScope(const NotificationScope&) = delete;
  NotificationScope& operator=(const NotificationScope&) = delete;
};

inline bool notificationInProgress() noexcept { return detail::notificationDepth != 0; }

// Destroys `n` now, or after the outermost notification in progress has returned.
void deferDelete(NotifieeBase* n) noexcept;

class NotifieeList {
 public:
  NotifieeList() noexcept = default;
  NotifieeList(const NotifieeList&) = delete;
  NotifieeList& operator=(const NotifieeList&) = delete;
  ~NotifieeList();

  bool empty() const noexcept { return bits_ == 0; }
  // Slots, including cleared ones; stable during a notification.
  size_t slots() const noexcept {
    switch (bits_ & kTagMask) {
      case kSingle: return bits_ == 0 ? 0 : 1;
      case kPair: return 2;
      default: return block()->size;
    }
  }
  NotifieeBase* at(size_t i) const noexcept {
    if ((bits_ & kTagMask) == kSingle) return reinterpret_cast<NotifieeBase*>(bits_);
    // A pair's slots start at its address, a block's after its header.
    const uintptr_t slots = (bits_ & ~kTagMask) + (bits_ & kBlock) * sizeof(Block);
    return reinterpret_cast<NotifieeBase* const*>(slots)[i];
  }
  // Registered notifiees.
  size_t size() const noexcept;
  // Hints for a walk that will notify this list some steps on: start loading the slots (a pair or
  // a block lives apart from the entity), then, once they are in, the notifiees themselves.
  // Neither changes anything.
  void prefetchSlots() const noexcept {
    if ((bits_ & kTagMask) != kSingle) {
      __builtin_prefetch(reinterpret_cast<const void*>(bits_ & ~kTagMask));
    }
  }
  void prefetchNotifiees() const noexcept {
    for (size_t i = 0, n = slots(); i < n; ++i) {
      if (const NotifieeBase* nb = at(i)) __builtin_prefetch(nb);
    }
  }
  std::vector<NotifieeBase*> members() const;

  void add(NotifieeBase* n);
  void remove(NotifieeBase* n) noexcept;

 private:
  // The word's two low bits say what it holds (notifiees and blocks are at least 4-aligned):
  // nothing or one notifiee, a pair, or a block with a header. Most entities of a route have two
  // notifiees (one reactor of each machine that watches it): a pair keeps them in a 16-byte small
  // block of two slots and nothing else. Either slot may be cleared during a notification.
  static constexpr uintptr_t kTagMask = 3, kSingle = 0, kBlock = 1, kPair = 2;
  // Three or more slots, or a single notifiee removed during a notification: a small block
  // holding a header and the slots right after it.
  struct Block {
    uint32_t size;
    uint32_t capacity;
    NotifieeBase** slots() noexcept { return reinterpret_cast<NotifieeBase**>(this + 1); }
  };
  static_assert(sizeof(Block) % alignof(NotifieeBase*) == 0);
  Block* block() const noexcept { return reinterpret_cast<Block*>(bits_ & ~kTagMask); }
  NotifieeBase** pair() const noexcept { return reinterpret_cast<NotifieeBase**>(bits_ & ~kTagMask); }
  // A block of `capacity` slots holding `size` slots copied from `from`; nullptr when there is no
  // memory.
  static Block* newBlock(uint32_t capacity, NotifieeBase* const* from, uint32_t size) noexcept;
  static void freeBlock(Block* b) noexcept;
  // A pair holding `a` and `b`; nullptr when there is no memory.
  static NotifieeBase** newPair(NotifieeBase* a, NotifieeBase* b) noexcept;
  static void freePair(NotifieeBase** p) noexcept;
  // Drops cleared slots, and takes the smallest form that holds the rest.
  void compact() noexcept;

  uintptr_t bits_ = 0;
};

// What every notifiee has: its notifier (held counted, so the notifier outlives its observers),
// and three flags.
class NotifieeBase : public SmallBlockObject {
 public:
  NotifieeBase(const NotifieeBase&) = delete;
  NotifieeBase& operator=(const NotifieeBase&) = delete;
  virtual ~NotifieeBase();

  bool isRegisteredNotifiee() const noexcept { return bits_ & kRegistered; }
  // Registers with (true) or unregisters from (false) the current notifier.
  void isRegisteredNotifieeIs(bool registered);
  bool hasNotificationActive() const noexcept { return bits_ & kActive; }
  // Switches delivery on or off; a reactor switches its nested reactors too.
  virtual void hasNotificationActiveIs(bool active);
  bool isZombie() const noexcept { return bits_ & kZombie; }

  Entity const* notifierBase() const noexcept { return reinterpret_cast<Entity const*>(bits_ & ~kFlags); }

  // What a reactor collection calls on the reactors it holds. Reactors are the notifiees of
  // state machines, and these live here rather than in a base of their own so that a reactor,
  // one per route and per alternative, has one vtable pointer and not two.
  // Runs when the watched entity leaves the collection that the reactor follows.
  virtual void handleDel() {}
  // Flags the notifiee (and a reactor's nested reactors) as being deleted, or clears the flag;
  // while flagged it hears nothing.
  virtual void kelDoZombieReactors(bool zombie) {
    if (zombie == isZombie()) return;
    zombieIs(zombie);
    hasNotificationActiveIs(!zombie);
  }

 protected:
  NotifieeBase() noexcept = default;
  // Rebinds to `n`: unregisters from the old notifier, releases it, holds and registers with `n`.
  void notifierBaseIs(Entity const* n);
  void zombieIs(bool z) noexcept { flagIs(kZombie, z); }

 private:
  static constexpr uintptr_t kRegistered = 1, kActive = 2, kZombie = 4, kFlags = 7;
  void flagIs(uintptr_t flag, bool on) noexcept { bits_ = on ? bits_ | flag : bits_ & ~flag; }

  // The notifier and the flags in one word: entities come from blocks aligned to 8 at least,
  // which leaves the pointer's three lowest bits free, and a reactor per route and per
  // alternative pays for every word.
  uintptr_t bits_ = kRegistered | kActive;
};

class Entity : public PtrInterface {
 public:
  // Full type name, as registered for reflection ("Routing::Protocol::Route").
  virtual const char* typeName() const noexcept = 0;
  // The entity's name: the text form of its key, or its attribute name for keyless children.
  virtual std::string name() const;
  // Names from the root of its owners down to this entity, joined by '/'.
  std::string fullName() const;
  Entity const* parent() const noexcept { return parent_; }
  const char* parentAttrName() const noexcept {
    const char* name = detail::attrNameOf(parentAttr_);
    return name ? name : "";
  }
  const NotifieeList& notifieeList() const noexcept { return notifiees_; }

  // Set by the owning collection when the entity is created in it, cleared when it leaves.
  // `attr` is a string literal (it is kept by address).
  void parentIs(Entity const* parent, const char* attr) noexcept {
    parent_ = parent;
    parentAttr_ = attr ? detail::attrNameNumber(attr) : 0;
  }

 protected:
  Entity() noexcept = default;
  ~Entity() override;

  // Delivers `fn(args...)` to every registered, active notifiee. N is the notifiee class that
  // declares fn; every notifiee of this entity derives from it.
  template <class N, class... P, class... A>
  void notify(void (N::*fn)(P...), A&&... args) const {
    if (notifiees_.empty()) return;
    Ptr<Entity const> hold(this);
    NotificationScope scope;
    size_t n = notifiees_.slots();
    for (size_t i = 0; i < n; ++i) {
      NotifieeBase* nb = notifiees_.at(i);
      if (nb == nullptr || !nb->hasNotificationActive()) continue;
      (static_cast<N*>(nb)->*fn)(args...);
    }
  }

 private:
  friend class NotifieeBase;
  // First, so that it takes the 4 bytes after the reference count that a 64-bit build would
  // otherwise leave empty: an entity is then four words, its vtable pointer, its count with this
  // number, its notifiee list and its parent.
  uint32_t parentAttr_ = 0;
  mutable NotifieeList notifiees_;
  Entity const* parent_ = nullptr;
};

// The typed base of `T::NotifieeConst`.
template <class T>
class NotifieeConstOf : public NotifieeBase {
 public:
  using Notifier = T;
  Ptr<T const> notifier() const noexcept { return static_cast<T const*>(notifierBase()); }
  void notifierIs(const Ptr<T const>& n) { notifierBaseIs(n.get()); }

 protected:
  NotifieeConstOf() noexcept = default;
};

// `T::Notifiee`: an observer that may also change its notifier.
template <class T>
class NotifieeOf : public T::NotifieeConst {
 public:
  Ptr<T> notifier() const noexcept {
    return const_cast<T*>(static_cast<T const*>(this->notifierBase()));
  }
};

}  // namespace Kel
