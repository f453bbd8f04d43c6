#pragma once

#include <Kiv/UniqueIdSeed.h>

namespace Agent {

/// Rules have the ids that the first process gives. What a worker itself gives an id to has a higher one than
/// all of these, so that it is never taken for a rule, also not for one that comes later.
inline constexpr Kiv::UniqueId idBeforeThoseOfWorkers{uint64_t{3} << 62};

inline bool isIdOfWorker(const Kiv::UniqueId& id) { return id.value() > idBeforeThoseOfWorkers.value(); }

}  // namespace Agent
