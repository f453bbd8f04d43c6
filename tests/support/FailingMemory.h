#pragma once

#include <cstddef>
#include <cstdint>

// Memory that runs out when a test says so. Its operator new is that of the whole program that
// FailingMemory.cpp is linked into, and asks the new-handler as the library's does.

namespace TestSupport {

/// Whose allocations fail: those of the thread that the program began on, or those of all others.
enum class Threads { first, others };

/// Has the next `count` allocations succeed and the `times` behind them fail; below 0: none fails. An attempt
/// to repeat an allocation that failed, as the new-handler causes it, is an allocation, too.
void failAt(Threads threads, int64_t count, int64_t times = 1);
/// From now on no allocation fails. Returns how many more would have succeeded; below 0: the failure has
/// happened, or none was asked for.
int64_t stopFailing(Threads threads);

/// Allocations fail that would give the process more than so many octets beside those that it has now.
void memoryLeftIs(size_t octets);
void memoryIsUnlimited();
/// Octets that are allocated now, and the most that were since mostAllocatedIsNow().
size_t allocatedOctets();
size_t mostAllocated();
void mostAllocatedIsNow();
/// How often the thread that the program began on has given memory back.
uint64_t freesOfFirst();

}  // namespace TestSupport
