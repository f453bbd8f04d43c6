#include <Kelp/Assert.h>
#include <agent/core/Reserve.h>

#include <exception>
#include <new>
#include <utility>

namespace Agent {

namespace {

std::atomic<Reserve*> inCharge = nullptr;
/// How many reserves this thread has made. While it has one, work that cannot be refused is served from it.
thread_local int ofThisThread = 0;
/// True while the reserve itself allocates.
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

/// Returns when the allocation is to be tried again, and throws when that would be useless.
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
  // Set before the blocks are looked at: another thread may use one of them meanwhile.
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
  // An earlier change still needs its octets. If it has used them, they were not enough.
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

// Refusable

Refusable::Refusable() : outer_(std::exchange(innermost, this)) {}
Refusable::~Refusable() { innermost = outer_; }

/// Whether it may be served from the reserve: once, and while an exception gives the work up, which may need
/// memory itself.
bool Refusable::mayUse() { return !std::exchange(ranOut_, true) || std::uncaught_exceptions() > 0; }

void Refusable::check() {
  if (innermost && innermost->ranOut_) throw std::bad_alloc();
}

}  // namespace Agent
