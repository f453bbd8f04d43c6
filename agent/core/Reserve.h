#pragma once

#include <array>
#include <atomic>
#include <cstddef>

namespace Agent {

/// Memory that is held back for what cannot be refused when memory runs out. The loop has one: an allocation
/// of its thread that fails is made good from it (std::set_new_handler), so that packets, tasks and a change
/// that has begun go on. It is filled again as soon as there is memory.
///
/// What can be refused is done under a Refusable. Where neither helps, on other threads and when all is used
/// up, an allocation fails as ever, with std::bad_alloc.
///
/// One at a time is in charge, the latest; a process has one but for tests.
class Reserve {
 public:
  static constexpr size_t blockOctets = size_t{1} << 20;
  static constexpr size_t blocks = 4;

  /// Of the calling thread.
  Reserve();
  ~Reserve();
  Reserve(const Reserve&) = delete;
  Reserve& operator=(const Reserve&) = delete;

  /// Takes what has been used; false when that cannot be had yet. To be called often: costs nothing when
  /// nothing is missing.
  bool refill() { return !missing_.load(std::memory_order_relaxed) || refillAll(); }

  /// Holds so much more back, for a change that must not fail once it has begun; false when that cannot be
  /// had, or something was used before and is missing still. Then there is as much as before.
  bool addForChange(size_t octets);
  /// Changes are carried out, with all that follows from them.
  void changesAreDone();

 private:
  friend class Refusable;
  static void handleNoMemory();
  bool refillAll();
  /// Gives a part back to who allocates; false when there is none. Any thread.
  bool give();
  bool giveForChange();

  Reserve* const before_;
  std::array<std::atomic<void*>, blocks> standing_{};
  std::atomic<bool> missing_ = false;
  std::atomic<void*> forChange_ = nullptr;
  size_t octetsForChange_ = 0;
};

/// Work of this thread, as long as it lives, that is refused when memory runs out: an answer, reading a text.
/// With a reserve the first allocation that fails is made good, and check() tells; so destructors that
/// allocate, as those of JSON do, are safe while that is asked once in less than Reserve::blockOctets. A
/// further one fails as ever.
///
/// They nest: each tells of what ran out while it was the innermost.
class Refusable {
 public:
  Refusable();
  ~Refusable();
  Refusable(const Refusable&) = delete;
  Refusable& operator=(const Refusable&) = delete;

  /// Throws std::bad_alloc when memory ran out for the innermost of this thread's, if it has any.
  static void check();

 private:
  friend class Reserve;
  bool mayUse();

  Refusable* const outer_;
  bool ranOut_ = false;
};

}  // namespace Agent
