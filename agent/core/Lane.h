#pragma once

#include <Kiv/Clock.h>
#include <Kiv/OwnedTask.h>
#include <agent/core/EventLoop.h>

#include <cstdint>
#include <functional>

namespace Agent {

/// Descriptors that together get a bounded share of the loop's time, however many there are and whatever
/// happens on them. In a turn of the loop one event of the lane is handled. When the lane has used up its
/// time the loop does not watch it for a while; events wait in the kernel meanwhile.
///
/// The lane earns its share as time passes and can save up to `burst`. A handler that takes longer than what
/// was saved runs to its end all the same, and the lane rests until that is earned.
class Lane {
 public:
  using Handler = std::function<void(int fd, uint32_t events)>;

  /// `share`: the part of the time, above 0 and at most 1. `name` is the name of the lane's task. `watch`
  /// tells how long a handler takes: the loop's own clock stands still during a turn.
  Lane(EventLoop& loop, const char* name, double share, Kelp::Duration burst, Handler handler,
       const Kiv::Clock& watch = Kiv::steadyClock());
  ~Lane();
  Lane(const Lane&) = delete;
  Lane& operator=(const Lane&) = delete;

  /// Watches a descriptor for EPOLL* bits (level-triggered); a second call replaces them. It is not owned.
  void fdIs(int fd, uint32_t events);
  void fdDel(int fd);

  /// How many seconds its handlers have taken so far.
  double used() const { return used_; }

 private:
  void handle();
  void open();

  EventLoop& loop_;
  const double share_;
  const Kelp::Duration burst_;
  const Handler handler_;
  const Kiv::Clock& watch_;
  const int epoll_;
  Kiv::OwnedTask task_;
  double budget_;  // seconds that are saved; below 0 while the lane rests
  Kelp::Duration earnedUntil_;
  double used_ = 0;
};

}  // namespace Agent
