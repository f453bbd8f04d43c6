#pragma once

#include <Kelp/Threads.h>
#include <fmt/format.h>

#include <atomic>
#include <compare>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace Kelp {

/// An immutable text that is copied by sharing: one word wide, its hash computed once when it is made. The
/// empty text has no storage. Sharing is counted like a Node's use (atomically only while multiThreaded()).
class String {
 public:
  constexpr String() = default;
  String(std::string_view text) : rep_(text.empty() ? nullptr : makeRep(text)) {}
  String(const char* text) : String(std::string_view(text)) {}
  String(const std::string& text) : String(std::string_view(text)) {}
  String(const String& other) : rep_(other.rep_) { retain(); }
  String(String&& other) noexcept : rep_(other.rep_) { other.rep_ = nullptr; }
  ~String() { release(); }
  String& operator=(const String& other) {
    String copy(other);
    std::swap(rep_, copy.rep_);
    return *this;
  }
  String& operator=(String&& other) noexcept {
    std::swap(rep_, other.rep_);
    return *this;
  }

  bool empty() const { return rep_ == nullptr; }
  size_t size() const { return rep_ ? rep_->size : 0; }
  std::string_view view() const {
    return rep_ ? std::string_view(rep_->text(), rep_->size) : std::string_view();
  }
  operator std::string_view() const { return view(); }
  std::string str() const { return std::string(view()); }
  uint32_t hash() const { return rep_ ? rep_->hash : 0; }

  bool operator==(const String& other) const { return rep_ == other.rep_ || sameText(other); }
  std::strong_ordering operator<=>(const String& other) const { return view() <=> other.view(); }
  bool operator==(std::string_view other) const { return view() == other; }
  bool operator==(const std::string& other) const { return view() == other; }
  bool operator==(const char* other) const { return view() == other; }

 private:
  struct Rep {
    mutable std::atomic<uint32_t> users;
    uint32_t hash;
    uint32_t size;
    const char* text() const { return reinterpret_cast<const char*>(this + 1); }
  };
  static Rep* makeRep(std::string_view text);
  static void freeRep(Rep* rep);
  bool sameText(const String& other) const;
  void retain() const {
    if (!rep_) return;
    if (multiThreaded()) {
      rep_->users.fetch_add(1, std::memory_order_relaxed);
    } else {
      rep_->users.store(rep_->users.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }
  }
  void release() {
    if (!rep_) return;
    uint32_t left;
    if (multiThreaded()) {
      left = rep_->users.fetch_sub(1, std::memory_order_acq_rel) - 1;
    } else {
      left = rep_->users.load(std::memory_order_relaxed) - 1;
      rep_->users.store(left, std::memory_order_relaxed);
    }
    if (left == 0) freeRep(rep_);
  }

  Rep* rep_ = nullptr;
};

}  // namespace Kelp

template <>
struct std::hash<Kelp::String> {
  size_t operator()(const Kelp::String& s) const { return s.hash(); }
};

template <>
struct fmt::formatter<Kelp::String> : fmt::formatter<std::string_view> {
  template <class Context>
  auto format(const Kelp::String& s, Context& ctx) const {
    return fmt::formatter<std::string_view>::format(s.view(), ctx);
  }
};
