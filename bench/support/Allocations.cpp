#include "support/Allocations.h"

#include <malloc.h>

#include <cstdlib>
#include <new>

namespace Bench {

namespace {

Allocations all;

void* take(void* memory) {
  if (!memory) throw std::bad_alloc();
  ++all.count;
  all.liveBytes += static_cast<int64_t>(malloc_usable_size(memory));
  return memory;
}

void giveBack(void* memory) {
  if (!memory) return;
  all.liveBytes -= static_cast<int64_t>(malloc_usable_size(memory));
  std::free(memory);
}

}  // namespace

Allocations allocations() { return all; }

}  // namespace Bench

// The array and nothrow forms of the standard library come down to these.
void* operator new(size_t size) { return Bench::take(std::malloc(size ? size : 1)); }
void* operator new(size_t size, std::align_val_t align) {
  const auto a = static_cast<size_t>(align);
  return Bench::take(std::aligned_alloc(a, (size + a - 1) / a * a));
}
void operator delete(void* memory) noexcept { Bench::giveBack(memory); }
void operator delete(void* memory, size_t) noexcept { Bench::giveBack(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { Bench::giveBack(memory); }
void operator delete(void* memory, size_t, std::align_val_t) noexcept { Bench::giveBack(memory); }
