#include "AllocationCount.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<uint64_t> allocations{0};

void* counted(void* memory) {
  ++allocations;
  if (!memory) throw std::bad_alloc();
  return memory;
}
}  // namespace

uint64_t TestSupport::allocationCount() { return allocations; }

void* operator new(size_t size) { return counted(std::malloc(size ? size : 1)); }
void* operator new(size_t size, std::align_val_t alignment) {
  const auto unit = static_cast<size_t>(alignment);
  return counted(std::aligned_alloc(unit, (size + unit - 1) / unit * unit));
}
// The address sanitizer has one of its own, whose memory the operators below must not free.
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, size_t, std::align_val_t) noexcept { std::free(memory); }
