#pragma once

#include <array>
#include <atomic>
#include <cstddef>

namespace Agent {

/// Memory that is held back for work that cannot be refused when memory runs out. The loop has such a
/// reserve: when an allocation of its thread fails, a part of the reserve is freed and the allocation is
/// tried again (std::set_new_handler). So packets, tasks and a change that has begun go on. The reserve is
/// filled again as soon as there is memory.
///
/// Work that can be refused is done under a Refusable. On other threads without one, and when the reserve is
/// used up, an allocation fails as usual, with std::bad_alloc.
///
/// The reserve that was made last is the one that is used. Only tests have more than one.
class Reserve {
 public:
  static constexpr size_t blockOctets = size_t{1} << 20;
  static constexpr size_t blocks = 4;

  /// A reserve for the calling thread.
  Reserve();
  ~Reserve();
  Reserve(const Reserve&) = delete;
  Reserve& operator=(const Reserve&) = delete;

  /// Allocates again what has been used; false when there is no memory for it yet. To be called often: costs
  /// nothing when nothing is missing.
  bool refill() { return !missing_.load(std::memory_order_relaxed) || refillAll(); }

  /// Holds so many more octets back, for a change that must not fail once it has begun. False when there is
  /// no memory for it, or for what was used before; then the reserve is as it was.
  bool addForChange(size_t octets);
  /// To be called when all changes are carried out, with everything that follows from them: frees the memory
  /// that was held back for them.
  void changesAreDone();

 private:
  friend class Refusable;
  static void handleNoMemory();
  bool refillAll();
  /// Frees a part of the reserve for an allocation; false when there is none left. Any thread.
  bool give();
  bool giveForChange();

  Reserve* const before_;
  std::array<std::atomic<void*>, blocks> standing_{};
  std::atomic<bool> missing_ = false;
  std::atomic<void*> forChange_ = nullptr;
  size_t octetsForChange_ = 0;
};

/// While an object of this class lives, its thread does work that is refused when memory runs out: making an
/// answer, reading a text.
///
/// The first allocation that fails is served from the reserve, and check() throws from then on; the next one
/// that fails throws itself. So the work must call check() at least once in every Reserve::blockOctets that
/// it allocates. Then destructors that allocate, as those of JSON do, cannot fail.
///
/// They can be nested: each one tells whether memory ran out while it was the innermost.
class Refusable {
 public:
  Refusable();
  ~Refusable();
  Refusable(const Refusable&) = delete;
  Refusable& operator=(const Refusable&) = delete;

  /// Throws std::bad_alloc when memory ran out for this thread's innermost object, if it has one.
  static void check();

 private:
  friend class Reserve;
  bool mayUse();

  Refusable* const outer_;
  bool ranOut_ = false;
};

}  // namespace Agent
