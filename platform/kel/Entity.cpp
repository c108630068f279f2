#include "platform/kel/Entity.h"

#include <algorithm>
#include <new>

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

NotifieeList::~NotifieeList() {
  if (bits_ & 1) delete block();
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
    auto* b = new Block{reinterpret_cast<NotifieeBase*>(bits_), n};
    bits_ = reinterpret_cast<uintptr_t>(b) | 1;
    return;
  }
  if (!notificationInProgress()) compact();
  if (bits_ & 1) {
    block()->push_back(n);
  } else {
    add(n);
  }
}

void NotifieeList::remove(NotifieeBase* n) noexcept {
  if (!(bits_ & 1)) {
    if (reinterpret_cast<NotifieeBase*>(bits_) != n) return;
    bits_ = 0;
    // Keep the slot during a notification, so that a notifiee added before it ends does not
    // take the position being walked and hear an event that predates it.
    if (notificationInProgress()) {
      if (auto* b = new (std::nothrow) Block(1, nullptr)) bits_ = reinterpret_cast<uintptr_t>(b) | 1;
    }
    return;
  }
  Block* b = block();
  auto it = std::find(b->begin(), b->end(), n);
  if (it == b->end()) return;
  *it = nullptr;
  if (!notificationInProgress()) compact();
}

void NotifieeList::compact() noexcept {
  Block* b = block();
  b->erase(std::remove(b->begin(), b->end(), nullptr), b->end());
  if (b->size() <= 1) {
    NotifieeBase* only = b->empty() ? nullptr : b->front();
    delete b;
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
