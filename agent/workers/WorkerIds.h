#pragma once

#include <Kiv/UniqueIdSeed.h>

namespace Agent {

/// What a worker itself gives an id to has one that the first process never gives: so nothing of its own is
/// mistaken for a rule that gets its id later.
inline constexpr Kiv::UniqueId idBeforeThoseOfWorkers{uint64_t{3} << 62};

inline bool isIdOfWorker(const Kiv::UniqueId& id) { return id.value() > idBeforeThoseOfWorkers.value(); }

}  // namespace Agent
