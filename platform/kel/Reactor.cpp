#include "platform/kel/Reactor.h"

namespace Kel {

void ReactorOwner::kelContainerIs(ReactorContainerBase* c) noexcept {
  c->nextContainer_ = containers_;
  containers_ = c;
}

void ReactorOwner::kelReactorsActiveIs(bool active) {
  for (ReactorContainerBase* c = containers_; c; c = c->nextContainer_) {
    c->kelForEach([](ReactorBase& r, bool a) { r.hasNotificationActiveIs(a); }, active);
  }
}

void ReactorOwner::kelReactorsZombieIs(bool zombie) {
  for (ReactorContainerBase* c = containers_; c; c = c->nextContainer_) {
    c->kelForEach([](ReactorBase& r, bool z) { r.kelDoZombieReactors(z); }, zombie);
  }
}

namespace detail {

void zombieAndDefer(ReactorBase* r) noexcept {
  r->kelDoZombieReactors(true);
  deferDelete(r);
}

}  // namespace detail

}  // namespace Kel
