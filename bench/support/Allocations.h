#pragma once

#include <cstddef>
#include <cstdint>

namespace Bench {

/// What this program has taken from the heap so far, by every form of operator new.
struct Allocations {
  uint64_t count = 0;     ///< calls of operator new
  int64_t liveBytes = 0;  ///< taken and not given back, as the heap rounds them
};
Allocations allocations();

}  // namespace Bench
