#pragma once

#include <functional>
#include <vector>

namespace Agent {

/// Keeps of the process's capabilities (capabilities(7), CAP_* numbers) those named, as far as it has them,
/// and gives up all others for good: also what a program that it starts could get. Of the calling thread and
/// of threads it starts from then on. Returns those named that it does not have.
std::vector<int> capabilitiesKeep(const std::vector<int>& wanted);

/// Runs something on a thread of its own that has given all of them up, and waits for it; threads that are
/// started from there have none either.
void withoutCapabilities(const std::function<void()>& run);

}  // namespace Agent
