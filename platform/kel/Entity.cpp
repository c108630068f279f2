#include "platform/kel/Entity.h"

#include <algorithm>
#include <new>

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

NotifieeList::~NotifieeList() {
  if (bits_ & 1) freeBlock(block());
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
  if (!(bits_ & 1)) {
    NotifieeBase* const both[] = {reinterpret_cast<NotifieeBase*>(bits_), n};
    Block* b = newBlock(2, both, 2);
    if (b == nullptr) throw std::bad_alloc();
    bits_ = reinterpret_cast<uintptr_t>(b) | 1;
    return;
  }
  if (!notificationInProgress()) compact();
  if (!(bits_ & 1)) {
    add(n);
    return;
  }
  Block* b = block();
  if (b->size == b->capacity) {
    Block* grown = newBlock(b->capacity * 2, b->slots(), b->size);
    if (grown == nullptr) throw std::bad_alloc();
    freeBlock(b);
    b = grown;
    bits_ = reinterpret_cast<uintptr_t>(b) | 1;
  }
  b->slots()[b->size++] = n;
}

void NotifieeList::remove(NotifieeBase* n) noexcept {
  if (!(bits_ & 1)) {
    if (reinterpret_cast<NotifieeBase*>(bits_) != n) return;
    bits_ = 0;
    // Keep the slot during a notification, so that a notifiee added before it ends does not
    // take the position being walked and hear an event that predates it.
    if (notificationInProgress()) {
      NotifieeBase* const cleared[] = {nullptr};
      if (Block* b = newBlock(2, cleared, 1)) bits_ = reinterpret_cast<uintptr_t>(b) | 1;
    }
    return;
  }
  Block* b = block();
  NotifieeBase** end = b->slots() + b->size;
  NotifieeBase** it = std::find(b->slots(), end, n);
  if (it == end) return;
  *it = nullptr;
  if (!notificationInProgress()) compact();
}

void NotifieeList::compact() noexcept {
  Block* b = block();
  NotifieeBase** end = std::remove(b->slots(), b->slots() + b->size, nullptr);
  b->size = static_cast<uint32_t>(end - b->slots());
  if (b->size <= 1) {
    NotifieeBase* only = b->size == 0 ? nullptr : b->slots()[0];
    freeBlock(b);
    bits_ = reinterpret_cast<uintptr_t>(only);
  }
}

NotifieeBase::~NotifieeBase() {
  if (notifier_) {
    if (isRegisteredNotifiee()) notifier_->notifiees_.remove(this);
    notifier_->deleteRef();
  }
}

void NotifieeBase::isRegisteredNotifieeIs(bool registered) {
  if (registered == isRegisteredNotifiee()) return;
  flags_ = static_cast<uint8_t>(registered ? (flags_ | kRegistered) : (flags_ & ~kRegistered));
  if (!notifier_) return;
  if (registered) {
    notifier_->notifiees_.add(this);
  } else {
    notifier_->notifiees_.remove(this);
  }
}

void NotifieeBase::hasNotificationActiveIs(bool active) {
  flags_ = static_cast<uint8_t>(active ? (flags_ | kActive) : (flags_ & ~kActive));
}

void NotifieeBase::notifierBaseIs(Entity const* n) {
  if (n == notifier_) return;
  Entity const* old = notifier_;
  if (old && isRegisteredNotifiee()) old->notifiees_.remove(this);
  notifier_ = n;
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
