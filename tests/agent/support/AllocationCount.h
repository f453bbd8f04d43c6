#pragma once

#include <cstdint>

namespace TestSupport {

/// How often the process has called operator new so far, its libraries included.
uint64_t allocationCount();

}  // namespace TestSupport
