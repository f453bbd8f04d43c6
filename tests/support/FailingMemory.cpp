#include "FailingMemory.h"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>
#include <thread>

namespace {

const std::thread::id firstThread = std::this_thread::get_id();

struct Failing {
  std::atomic<int64_t> before{-1};
  std::atomic<int64_t> times{0};
};
Failing failing[2];

constexpr size_t unlimited = std::numeric_limits<size_t>::max();
std::atomic<size_t> limit{unlimited};
std::atomic<size_t> live{0};
std::atomic<size_t> most{0};
std::atomic<uint64_t> frees{0};

bool onFirst() { return std::this_thread::get_id() == firstThread; }

bool fails(size_t size) {
  Failing& here = failing[onFirst() ? 0 : 1];
  if (here.before.load(std::memory_order_relaxed) > 0) {
    --here.before;
  } else if (here.before == 0) {
    if (--here.times == 0) here.before = -1;
    return true;
  }
  const size_t allowed = limit.load(std::memory_order_relaxed);
  return allowed != unlimited && live + size > allowed;
}

void* allocated(size_t size, size_t alignment) {
  for (;;) {
    void* place = nullptr;
    if (!fails(size)) {
      place = alignment > 0 ? std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment)
                            : std::malloc(size ? size : 1);
    }
    if (place) {
      const size_t now = live += malloc_usable_size(place);
      size_t before = most;
      while (now > before && !most.compare_exchange_weak(before, now)) {
      }
      return place;
    }
    const auto handler = std::get_new_handler();
    if (!handler) throw std::bad_alloc();
    handler();
  }
}

void freed(void* place) {
  if (!place) return;
  if (onFirst()) ++frees;
  live -= malloc_usable_size(place);
  std::free(place);
}

}  // namespace

// GCC takes the pair below apart when it inlines one of them.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

void* operator new(size_t size) { return allocated(size, 0); }
void* operator new(size_t size, std::align_val_t alignment) {
  return allocated(size, static_cast<size_t>(alignment));
}
// The address sanitizer has one of its own, whose memory the operators below must not free.
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* place) noexcept { freed(place); }
void operator delete(void* place, size_t) noexcept { freed(place); }
void operator delete(void* place, std::align_val_t) noexcept { freed(place); }
void operator delete(void* place, size_t, std::align_val_t) noexcept { freed(place); }

namespace TestSupport {

void failAt(Threads threads, int64_t count, int64_t times) {
  Failing& those = failing[static_cast<int>(threads)];
  those.times = times;
  those.before = count;
}

int64_t stopFailing(Threads threads) { return failing[static_cast<int>(threads)].before.exchange(-1); }

void memoryLeftIs(size_t octets) { limit = live + octets; }
void memoryIsUnlimited() { limit = unlimited; }
size_t allocatedOctets() { return live; }
size_t mostAllocated() { return most; }
void mostAllocatedIsNow() { most = live.load(); }
uint64_t freesOfFirst() { return frees; }

}  // namespace TestSupport

// A JSON value whose constructor throws leaks the place of what it was to hold: the library makes it before
// there is an owner. It matters to nobody whose connection is closed then.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:nlohmann::\n"; }
