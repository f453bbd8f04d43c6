#pragma once

#include <Kiv/TaskScheduler.h>
#include <agent/core/EventLoop.h>

#include <cstdint>
#include <functional>

namespace Agent {

/// Descriptors that together get a bounded share of the loop's time, however many there are and whatever
/// happens on them. The loop sees one descriptor; a turn of it handles one event of the lane, and when the
/// lane has used up its time the loop does not look at it for a while. What waits there waits in the kernel.
///
/// The share is earned as time passes and saved up to `burst`; one handler that takes longer runs to its end
/// and is paid for afterwards.
class Lane {
 public:
  using Handler = std::function<void(int fd, uint32_t events)>;

  /// `share`: of the time, over 0 and up to 1. `name` is the name of its task.
  Lane(EventLoop& loop, const char* name, double share, Kelp::Duration burst, Handler handler);
  ~Lane();
  Lane(const Lane&) = delete;
  Lane& operator=(const Lane&) = delete;

  /// Watches a descriptor for EPOLL* bits (level-triggered), or for others than so far. Not owned.
  void fdIs(int fd, uint32_t events);
  void fdDel(int fd);

  /// Seconds of work so far.
  double used() const { return used_; }

 private:
  void handle();
  void open();

  EventLoop& loop_;
  const double share_;
  const Kelp::Duration burst_;
  const Handler handler_;
  const int epoll_;
  const Kelp::Ptr<Kiv::TimerTask> task_;
  double budget_;  // seconds; under 0 while it is paid for
  Kelp::Duration earnedUntil_;
  double used_ = 0;
};

}  // namespace Agent
