#pragma once

#include <Kelp/Duration.h>

#include <atomic>

namespace Kiv {

/// A source of time, in seconds on a scale of its own. No clock ever goes back.
class Clock {
 public:
  virtual Kelp::Duration now() const = 0;

  Clock(const Clock&) = delete;
  Clock& operator=(const Clock&) = delete;

 protected:
  Clock() = default;
  ~Clock() = default;
};

/// Seconds since an arbitrary start, unaffected by corrections of the system's time; for measuring.
class SteadyClock final : public Clock {
 public:
  Kelp::Duration now() const override;
};

/// Seconds since the epoch. When the system's time is set back the clock stands still until it is caught up.
class WallClock final : public Clock {
 public:
  Kelp::Duration now() const override;

 private:
  mutable std::atomic<double> latest_{0};
};

/// Shows the time that it is set to: for tests, and for the time stamps of captures.
class ManualClock final : public Clock {
 public:
  explicit ManualClock(Kelp::Duration start = Kelp::Duration()) : now_(start) {}

  Kelp::Duration now() const override { return now_; }
  /// Sets the time; a time before the present one changes nothing.
  void nowIs(Kelp::Duration time) {
    if (time > now_) now_ = time;
  }
  /// Advances the time, however large it is (see Duration::later).
  void advance(Kelp::Duration by) { nowIs(now_.later(by)); }

 private:
  Kelp::Duration now_;
};

/// The process's real clocks; they live as long as the process.
const SteadyClock& steadyClock();
const WallClock& wallClock();

}  // namespace Kiv
