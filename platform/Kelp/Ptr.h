#pragma once

#include <Kelp/Node.h>

#include <compare>
#include <concepts>
#include <cstddef>
#include <functional>
#include <utility>

namespace Kelp {

/// Shared ownership of a Node, one word wide. A Ptr to a const type is a read-only view.
template <class T>
class Ptr {
 public:
  using element_type = T;

  constexpr Ptr() = default;
  constexpr Ptr(std::nullptr_t) {}
  explicit Ptr(T* raw) : raw_(raw) { retain(); }
  Ptr(const Ptr& other) : raw_(other.raw_) { retain(); }
  Ptr(Ptr&& other) noexcept : raw_(std::exchange(other.raw_, nullptr)) {}
  template <class U>
  requires std::convertible_to<U*, T*> Ptr(const Ptr<U>& other) : raw_(other.get()) { retain(); }
  template <class U>
  requires std::convertible_to<U*, T*> Ptr(Ptr<U>&& other)
  noexcept : raw_(other.detach()) {}
  ~Ptr() { release(); }

  Ptr& operator=(Ptr other) noexcept {
    std::swap(raw_, other.raw_);
    return *this;
  }

  /// Takes over a reference that the caller owns, without counting.
  static Ptr adopt(T* raw) {
    Ptr p;
    p.raw_ = raw;
    return p;
  }
  /// Hands the reference over to the caller, without counting.
  T* detach() { return std::exchange(raw_, nullptr); }

  T* get() const { return raw_; }
  T* operator->() const { return raw_; }
  T& operator*() const { return *raw_; }
  explicit operator bool() const { return raw_ != nullptr; }

  template <class U>
  bool operator==(const Ptr<U>& other) const {
    return raw_ == other.get();
  }
  bool operator==(std::nullptr_t) const { return raw_ == nullptr; }

 private:
  void retain() const {
    if (raw_) raw_->nodeRetain();
  }
  void release() {
    if (raw_) raw_->nodeRelease();
  }

  T* raw_ = nullptr;
};

/// The object as another type, or null when it is none of that type.
template <class T, class U>
Ptr<T> ptrCast(const Ptr<U>& p) {
  return Ptr<T>(dynamic_cast<T*>(p.get()));
}

template <class T>
inline constexpr bool isPtr = false;
template <class T>
inline constexpr bool isPtr<Ptr<T>> = true;

}  // namespace Kelp

template <class T>
struct std::hash<Kelp::Ptr<T>> {
  size_t operator()(const Kelp::Ptr<T>& p) const { return std::hash<T*>{}(p.get()); }
};
