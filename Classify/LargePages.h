#pragma once

#include <cstddef>
#include <new>

namespace Classify {

/// Is called with memory that is better in large pages, by any thread; null, as it is at first, when nobody
/// wants to know. Set by the program before it has threads.
extern void (*adviseLargePages)(void* place, size_t bytes);

/// Memory for tables that are read here and there: what is large begins where a large page can, for otherwise
/// a look-up in a large list misses as often in the tables of pages as in its own.
template <class T>
class LargePages {
 public:
  using value_type = T;
  static constexpr size_t pageBytes = size_t{2} << 20;

  LargePages() = default;
  template <class Other>
  LargePages(const LargePages<Other>&) {}

  T* allocate(size_t count) {
    const size_t bytes = count * sizeof(T);
    void* place = ::operator new(bytes, alignmentOf(bytes));
    if (bytes >= pageBytes && adviseLargePages) adviseLargePages(place, bytes);
    return static_cast<T*>(place);
  }
  void deallocate(T* place, size_t count) { ::operator delete(place, alignmentOf(count * sizeof(T))); }

  bool operator==(const LargePages&) const = default;

 private:
  static std::align_val_t alignmentOf(size_t bytes) {
    return std::align_val_t{bytes >= pageBytes ? pageBytes : alignof(T)};
  }
};

}  // namespace Classify
