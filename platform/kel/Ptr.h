// Intrusive reference counting.
//
// Every entity carries its own reference count, so a `Kel::Ptr` is one pointer wide and an entity
// costs one 32-bit word for its count: at millions of routes, each several entities, a separate
// control block per object (as std::shared_ptr has) would cost more than the objects themselves.
//
// Count changes are plain increments unless the process-wide switch `threadSafePtrsIs(true)` is
// on; then they are atomic. The switch is read on every change, so it must be set before any
// pointer is shared between threads and not turned off while they are.
//
// The destructor of a counted object is protected: only the release of the last reference
// deletes it. Owners hold counted references; reactors and other back links hold plain pointers,
// so that no owner and its reactors can keep each other alive.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

#include "platform/kel/Memory.h"

namespace Kel {

namespace detail {
extern bool threadSafePtrs;
}

inline bool threadSafePtrs() noexcept { return detail::threadSafePtrs; }
void threadSafePtrsIs(bool on) noexcept;

class PtrInterface : public SmallBlockObject {
 public:
  PtrInterface(const PtrInterface&) = delete;
  PtrInterface& operator=(const PtrInterface&) = delete;

  uint32_t references() const noexcept {
    if (detail::threadSafePtrs) return std::atomic_ref<uint32_t>(refs_).load(std::memory_order_acquire);
    return refs_;
  }
  void newRef() const noexcept {
    if (detail::threadSafePtrs) {
      std::atomic_ref<uint32_t>(refs_).fetch_add(1, std::memory_order_relaxed);
    } else {
      ++refs_;
    }
  }
  void deleteRef() const noexcept {
    bool last;
    if (detail::threadSafePtrs) {
      last = std::atomic_ref<uint32_t>(refs_).fetch_sub(1, std::memory_order_acq_rel) == 1;
    } else {
      last = --refs_ == 0;
    }
    if (last) onZeroReferences();
  }

 protected:
  PtrInterface() noexcept = default;
  virtual ~PtrInterface() = default;
  // Called once the last reference is gone; deletes the object.
  virtual void onZeroReferences() const noexcept { delete this; }

 private:
  alignas(uint32_t) mutable uint32_t refs_ = 0;
};

// A counted reference. `Ptr<T const>` is the read-only form; a `Ptr<T>` converts to it.
template <class T>
class Ptr {
 public:
  using element_type = T;

  constexpr Ptr() noexcept = default;
  constexpr Ptr(std::nullptr_t) noexcept {}
  Ptr(T* p) noexcept : p_(p) {  // NOLINT: implicit from a raw pointer, as intrusive counts allow
    if (p_) p_->newRef();
  }
  Ptr(const Ptr& o) noexcept : Ptr(o.p_) {}
  Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Ptr(const Ptr<U>& o) noexcept : Ptr(o.get()) {}
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Ptr(Ptr<U>&& o) noexcept : p_(o.release()) {}
  ~Ptr() {
    if (p_) p_->deleteRef();
  }

  Ptr& operator=(const Ptr& o) noexcept {
    Ptr(o).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& o) noexcept {
    Ptr(std::move(o)).swap(*this);
    return *this;
  }
  Ptr& operator=(std::nullptr_t) noexcept {
    Ptr().swap(*this);
    return *this;
  }

  T* get() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  T& operator*() const noexcept { return *p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }
  bool operator!() const noexcept { return p_ == nullptr; }
  void swap(Ptr& o) noexcept { std::swap(p_, o.p_); }
  // Gives up the reference without releasing it.
  T* release() noexcept { return std::exchange(p_, nullptr); }

  template <class U>
  bool operator==(const Ptr<U>& o) const noexcept {
    return p_ == o.get();
  }
  bool operator==(std::nullptr_t) const noexcept { return p_ == nullptr; }
  template <class U>
  bool operator==(const U* o) const noexcept {
    return p_ == o;
  }

 private:
  T* p_ = nullptr;
};

template <class T, class U>
Ptr<T> ptrCast(const Ptr<U>& p) noexcept {
  return Ptr<T>(static_cast<T*>(p.get()));
}

template <class T, class U>
Ptr<T> ptrDynamicCast(const Ptr<U>& p) noexcept {
  return Ptr<T>(dynamic_cast<T*>(p.get()));
}

template <class T>
Ptr<std::remove_const_t<T>> ptrConstCast(const Ptr<T>& p) noexcept {
  return Ptr<std::remove_const_t<T>>(const_cast<std::remove_const_t<T>*>(p.get()));
}

}  // namespace Kel

template <class T>
struct std::hash<Kel::Ptr<T>> {
  size_t operator()(const Kel::Ptr<T>& p) const noexcept { return std::hash<T*>()(p.get()); }
};
