#pragma once

#include <cstddef>
#include <cstdint>

// Memory that runs out when a test says so. Its operator new is that of the whole program that
// FailingMemory.cpp is linked into, and asks the new-handler as the library's does.

namespace TestSupport {

/// Whose allocations fail: those of the thread that the program began on, or those of all others.
enum class Threads { first, others };

/// Has an allocation fail, after so many that do not; under 0: none does. When it is tried again it succeeds,
/// and so do all behind it, unless `times` is more.
void failAt(Threads threads, int64_t count, int64_t times = 1);
/// How many more would succeed; under 0: it has failed, or none was to. None does from now on.
int64_t stopFailing(Threads threads);

/// Leaves the process so many octets more than it has; all allocations beyond fail.
void memoryLeftIs(size_t octets);
void memoryIsUnlimited();
/// Octets that are allocated now, and the most that were since mostAllocatedIsNow().
size_t allocatedOctets();
size_t mostAllocated();
void mostAllocatedIsNow();
/// How often the thread that the program began on has given memory back.
uint64_t freesOfFirst();

}  // namespace TestSupport
