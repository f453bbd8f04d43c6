#include <Kiv/Clock.h>

#include <chrono>

namespace Kiv {

namespace {
template <class StdClock>
double secondsOf() {
  return std::chrono::duration<double>(StdClock::now().time_since_epoch()).count();
}
}  // namespace

Kelp::Duration SteadyClock::now() const { return Kelp::Duration(secondsOf<std::chrono::steady_clock>()); }

Kelp::Duration WallClock::now() const {
  const double time = secondsOf<std::chrono::system_clock>();
  double latest = latest_.load(std::memory_order_relaxed);
  while (time > latest) {
    if (latest_.compare_exchange_weak(latest, time, std::memory_order_relaxed)) return Kelp::Duration(time);
  }
  return Kelp::Duration(latest);
}

const SteadyClock& steadyClock() {
  static const SteadyClock clock;
  return clock;
}

const WallClock& wallClock() {
  static const WallClock clock;
  return clock;
}

}  // namespace Kiv
