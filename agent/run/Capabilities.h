#pragma once

#include <functional>
#include <set>

namespace Agent {

/// Gives up all capabilities (capabilities(7), CAP_* numbers) for good, except those that are needed, and
/// those that may be of use as far as the thread has them; programs that the process starts cannot get the
/// others back either. Holds for the calling thread and for threads that it starts from then on. False when
/// the thread does not have all that are needed.
bool capabilitiesKeep(const std::set<int>& needed, const std::set<int>& ofUse = {});

/// Runs something on a thread without any capability, and waits until it is done. Threads that are started
/// from there have none either.
void withoutCapabilities(const std::function<void()>& run);

}  // namespace Agent
