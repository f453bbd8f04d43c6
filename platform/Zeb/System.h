#pragma once

#include <Kelp/Duration.h>
#include <Kiv/Clock.h>

namespace Zeb {

/// The process's time of day.
class System {
 public:
  /// Seconds since the epoch. Never less than what the same clock gave before.
  static Kelp::Duration currentTime();
  /// Replaces the clock; nullptr means the real one. The clock is not owned: its owner must replace it again
  /// before it is destroyed.
  static void clockIs(const Kiv::Clock* clock);
};

}  // namespace Zeb
