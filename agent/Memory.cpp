#include <Classify/LargePages.h>
#include <agent/Memory.h>
#include <malloc.h>
#include <sys/mman.h>

#include <limits>

namespace Agent {

void keepFreedMemory() {
#ifdef __GLIBC__
  mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
  // Small blocks that are freed are joined at once, and not all of them when a large one is.
  mallopt(M_MXFAST, 0);
  // The most that it takes: blocks below are taken from memory that is there and go back to it.
  mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024);
#endif
}

void useLargePages() {
#ifdef MADV_HUGEPAGE
  Classify::adviseLargePages = [](void* place, size_t bytes) {
    (void)madvise(place, bytes, MADV_HUGEPAGE);  // it is as well without
  };
#endif
}

}  // namespace Agent
