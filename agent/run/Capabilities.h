#pragma once

#include <functional>
#include <vector>

namespace Agent {

/// Gives up all capabilities (capabilities(7), CAP_* numbers) for good, except those that are named; programs
/// that the process starts cannot get them back either. Holds for the calling thread and for threads that it
/// starts from then on. Returns those that were named and that the thread does not have.
std::vector<int> capabilitiesKeep(const std::vector<int>& wanted);

/// Runs something on a thread without any capability, and waits until it is done. Threads that are started
/// from there have none either.
void withoutCapabilities(const std::function<void()>& run);

}  // namespace Agent
