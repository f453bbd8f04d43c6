#pragma once

#include <cstddef>
#include <new>

namespace Classify {

/// Called by any thread with memory that should lie in large pages. Null, as it is at first: nobody is told.
/// The program sets it before it has threads.
extern void (*adviseLargePages)(void* place, size_t bytes);

/// Memory for large tables of which a look-up reads single lines. A large table begins where a large page may
/// begin: with small pages, a look-up would often have to wait for the processor's own table of pages, too.
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
