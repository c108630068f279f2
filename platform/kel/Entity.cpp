#include "platform/kel/Entity.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>

#include "platform/kel/Assert.h"
#include "platform/kel/Memory.h"

namespace Kel {

namespace detail {

thread_local uint32_t notificationDepth = 0;

namespace {
thread_local std::vector<NotifieeBase*>* deferred = nullptr;
}

void drainDeferredDeletes() noexcept {
  // Destroying one object may drop others (a reactor's nested reactors); hold the depth up so
  // those queue behind it instead of recursing here.
  while (deferred && !deferred->empty()) {
    std::vector<NotifieeBase*> batch;
    batch.swap(*deferred);
    ++notificationDepth;
    for (NotifieeBase* n : batch) delete n;
    --notificationDepth;
  }
}

namespace {

// Open addressing by the name's address. Names are only ever added, so a reader that finds a
// slot filled may use it without the lock; a program has a few hundred attributes at most.
constexpr size_t kAttrNameSlots = 1024;
static_assert(kAttrNameSlots == size_t(1) << 10, "attrNameHome takes ten bits");
std::atomic<const char*> attrNames[kAttrNameSlots];
std::mutex attrNamesMutex;

// The top ten bits of a multiplicative hash of the address: one of the 1024 slots.
size_t attrNameHome(const char* name) noexcept {
  const uint64_t address = reinterpret_cast<uintptr_t>(name);
  return static_cast<size_t>((address >> 3) * 0x9E3779B97F4A7C15ull >> 54);
}

// The slot holding `name`, or the empty one where it belongs; kAttrNameSlots when full.
size_t attrNameSlot(const char* name) noexcept {
  size_t i = attrNameHome(name);
  for (size_t n = 0; n < kAttrNameSlots; ++n, i = (i + 1) % kAttrNameSlots) {
    const char* at = attrNames[i].load(std::memory_order_acquire);
    if (at == name || at == nullptr) return i;
  }
  return kAttrNameSlots;
}

}  // namespace

uint32_t attrNameNumber(const char* name) noexcept {
  size_t i = attrNameSlot(name);
  if (i < kAttrNameSlots && attrNames[i].load(std::memory_order_acquire) == name) {
    return static_cast<uint32_t>(i + 1);
  }
  std::lock_guard lock(attrNamesMutex);
  i = attrNameSlot(name);
  KEL_ASSERT(i < kAttrNameSlots);
  if (i == kAttrNameSlots) return 0;
  attrNames[i].store(name, std::memory_order_release);
  return static_cast<uint32_t>(i + 1);
}

const char* attrNameOf(uint32_t number) noexcept {
  return number == 0 ? nullptr : attrNames[number - 1].load(std::memory_order_acquire);
}

}  // namespace detail

void deferDelete(NotifieeBase* n) noexcept {
  if (n == nullptr) return;
  if (detail::notificationDepth == 0) {
    NotificationScope scope;  // nested drops during the destructor wait for it to finish
    delete n;
    return;
  }
  if (!detail::deferred) detail::deferred = new std::vector<NotifieeBase*>();
  detail::deferred->push_back(n);
}

NotifieeList::Block* NotifieeList::newBlock(uint32_t capacity, NotifieeBase* const* from, uint32_t size) noexcept {
  void* p = nullptr;
  try {
    p = smallAllocate(sizeof(Block) + capacity * sizeof(NotifieeBase*));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  auto* b = new (p) Block{size, capacity};
  std::copy(from, from + size, b->slots());
  return b;
}

void NotifieeList::freeBlock(Block* b) noexcept {
  smallFree(b, sizeof(Block) + b->capacity * sizeof(NotifieeBase*));
}

NotifieeBase** NotifieeList::newPair(NotifieeBase* a, NotifieeBase* b) noexcept {
  void* p = nullptr;
  try {
    p = smallAllocate(2 * sizeof(NotifieeBase*));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  auto** slots = static_cast<NotifieeBase**>(p);
  slots[0] = a;
  slots[1] = b;
  return slots;
}

void NotifieeList::freePair(NotifieeBase** p) noexcept { smallFree(p, 2 * sizeof(NotifieeBase*)); }

NotifieeList::~NotifieeList() {
  switch (bits_ & kTagMask) {
    case kPair: freePair(pair()); break;
    case kBlock: freeBlock(block()); break;
    default: break;
  }
}

size_t NotifieeList::size() const noexcept {
  size_t n = 0;
  for (size_t i = 0, e = slots(); i < e; ++i) n += at(i) != nullptr;
  return n;
}

std::vector<NotifieeBase*> NotifieeList::members() const {
  std::vector<NotifieeBase*> out;
  for (size_t i = 0, e = slots(); i < e; ++i) {
    if (at(i)) out.push_back(at(i));
  }
  return out;
}

void NotifieeList::add(NotifieeBase* n) {
  if (bits_ == 0) {
    bits_ = reinterpret_cast<uintptr_t>(n);
    return;
  }
  if ((bits_ & kTagMask) == kSingle) {
    NotifieeBase** p = newPair(reinterpret_cast<NotifieeBase*>(bits_), n);
    if (p == nullptr) throw std::bad_alloc();
    bits_ = reinterpret_cast<uintptr_t>(p) | kPair;
    return;
  }
  if (!notificationInProgress()) compact();
  if ((bits_ & kTagMask) == kSingle) {
    add(n);
    return;
  }
  if ((bits_ & kTagMask) == kPair) {
    // Both slots are taken (one may be cleared while a notification runs): n goes after them.
    Block* b = newBlock(4, pair(), 2);
    if (b == nullptr) throw std::bad_alloc();
    freePair(pair());
    bits_ = reinterpret_cast<uintptr_t>(b) | kBlock;
  }
  Block* b = block();
  if (b->size == b->capacity) {
    Block* grown = newBlock(b->capacity * 2, b->slots(), b->size);
    if (grown == nullptr) throw std::bad_alloc();
    freeBlock(b);
    b = grown;
    bits_ = reinterpret_cast<uintptr_t>(b) | kBlock;
  }
  b->slots()[b->size++] = n;
}

void NotifieeList::remove(NotifieeBase* n) noexcept {
  NotifieeBase** first = nullptr;
  size_t count = 0;
  switch (bits_ & kTagMask) {
    case kSingle:
      if (reinterpret_cast<NotifieeBase*>(bits_) != n) return;
      bits_ = 0;
      // Keep the slot during a notification, so that a notifiee added before it ends does not
      // take the position being walked and hear an event that predates it.
      if (notificationInProgress()) {
        NotifieeBase* const cleared[] = {nullptr};
        if (Block* b = newBlock(2, cleared, 1)) bits_ = reinterpret_cast<uintptr_t>(b) | kBlock;
      }
      return;
    case kPair:
      first = pair();
      count = 2;
      break;
    default:
      first = block()->slots();
      count = block()->size;
      break;
  }
  NotifieeBase** it = std::find(first, first + count, n);
  if (it == first + count) return;
  *it = nullptr;
  if (!notificationInProgress()) compact();
}

void NotifieeList::compact() noexcept {
  NotifieeBase* only = nullptr;
  if ((bits_ & kTagMask) == kPair) {
    NotifieeBase** p = pair();
    if (p[0] && p[1]) return;
    only = p[0] ? p[0] : p[1];
    freePair(p);
  } else {
    Block* b = block();
    NotifieeBase** end = std::remove(b->slots(), b->slots() + b->size, nullptr);
    b->size = static_cast<uint32_t>(end - b->slots());
    if (b->size > 2) return;
    if (b->size == 2) {
      // Two left go into a pair if there is memory for one; the block stays otherwise.
      NotifieeBase** p = newPair(b->slots()[0], b->slots()[1]);
      if (p == nullptr) return;
      freeBlock(b);
      bits_ = reinterpret_cast<uintptr_t>(p) | kPair;
      return;
    }
    only = b->size == 1 ? b->slots()[0] : nullptr;
    freeBlock(b);
  }
  bits_ = reinterpret_cast<uintptr_t>(only);
}

NotifieeBase::~NotifieeBase() {
  if (Entity const* n = notifierBase()) {
    if (isRegisteredNotifiee()) n->notifiees_.remove(this);
    n->deleteRef();
  }
}

void NotifieeBase::isRegisteredNotifieeIs(bool registered) {
  if (registered == isRegisteredNotifiee()) return;
  flagIs(kRegistered, registered);
  Entity const* n = notifierBase();
  if (!n) return;
  if (registered) {
    n->notifiees_.add(this);
  } else {
    n->notifiees_.remove(this);
  }
}

void NotifieeBase::hasNotificationActiveIs(bool active) { flagIs(kActive, active); }

void NotifieeBase::notifierBaseIs(Entity const* n) {
  Entity const* old = notifierBase();
  if (n == old) return;
  KEL_ASSERT((reinterpret_cast<uintptr_t>(n) & kFlags) == 0);
  if (old && isRegisteredNotifiee()) old->notifiees_.remove(this);
  bits_ = reinterpret_cast<uintptr_t>(n) | (bits_ & kFlags);
  if (n) {
    n->newRef();
    if (isRegisteredNotifiee()) n->notifiees_.add(this);
  }
  if (old) old->deleteRef();
}

Entity::~Entity() = default;

std::string Entity::name() const { return parentAttrName(); }

std::string Entity::fullName() const {
  std::string own = name();
  if (!parent_) return own;
  return parent_->fullName() + "/" + parentAttrName() + "/" + own;
}

}  // namespace Kel
