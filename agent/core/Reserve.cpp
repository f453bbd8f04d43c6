#include <Kelp/Assert.h>
#include <agent/core/Reserve.h>

#include <exception>
#include <new>
#include <utility>

namespace Agent {

namespace {

std::atomic<Reserve*> inCharge = nullptr;
/// Reserves of this thread: while there is one, what is not refusable goes on.
thread_local int ofThisThread = 0;
/// While the reserve itself allocates.
thread_local bool filling = false;
thread_local Refusable* innermost = nullptr;

/// Null when it cannot be had.
void* taken(size_t octets) {
  filling = true;
  void* const place = ::operator new(octets, std::nothrow);
  filling = false;
  return place;
}

bool freed(std::atomic<void*>& place) {
  void* const held = place.exchange(nullptr);
  ::operator delete(held);
  return held != nullptr;
}

}  // namespace

Reserve::Reserve() : before_(inCharge) {
  missing_ = true;
  refill();
  ++ofThisThread;
  inCharge = this;
  std::set_new_handler(&Reserve::handleNoMemory);
}

Reserve::~Reserve() {
  KELP_ASSERT(inCharge == this, "the latest reserve goes first");
  inCharge = before_;
  if (!before_) std::set_new_handler(nullptr);
  --ofThisThread;
  while (giveForChange() || give()) {
  }
}

/// Returns for another try, and throws when that would be in vain.
void Reserve::handleNoMemory() {
  Reserve* const reserve = inCharge;
  if (!reserve || filling) throw std::bad_alloc();
  if (innermost) {
    if (innermost->mayUse() && reserve->give()) return;
  } else if (ofThisThread > 0 && (reserve->giveForChange() || reserve->give())) {
    return;
  }
  throw std::bad_alloc();
}

bool Reserve::give() {
  for (auto& block : standing_) {
    if (!freed(block)) continue;
    missing_ = true;
    return true;
  }
  return false;
}

bool Reserve::giveForChange() { return freed(forChange_); }

bool Reserve::refillAll() {
  // Before the look at them: what is used meanwhile is missing again.
  missing_ = false;
  for (auto& block : standing_) {
    if (block) continue;
    block = taken(blockOctets);
    if (!block) missing_ = true;
  }
  return !missing_;
}

bool Reserve::addForChange(size_t octets) {
  if (!refill()) return false;
  // What an earlier change still needs, even when that was used: it was not enough.
  const size_t all = octetsForChange_ + octets;
  void* const place = taken(all);
  if (!place) return false;
  giveForChange();
  forChange_ = place;
  octetsForChange_ = all;
  return true;
}

void Reserve::changesAreDone() {
  octetsForChange_ = 0;
  giveForChange();
}

// ---- Refusable

Refusable::Refusable() : outer_(std::exchange(innermost, this)) {}
Refusable::~Refusable() { innermost = outer_; }

/// Once; and while it is being given up, which may need some.
bool Refusable::mayUse() { return !std::exchange(ranOut_, true) || std::uncaught_exceptions() > 0; }

void Refusable::check() {
  if (innermost && innermost->ranOut_) throw std::bad_alloc();
}

}  // namespace Agent
