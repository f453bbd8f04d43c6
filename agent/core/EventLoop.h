#pragma once

#include <Kiv/Clock.h>
#include <agent/core/Reserve.h>
#include <agent/core/TaskLoop.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace Agent {

/// Something that is asked for packets in every turn of the loop.
class Poller {
 public:
  virtual ~Poller() = default;
  /// Takes at most one burst of packets. Returns whether there may be more at once.
  virtual bool poll() = 0;
};

/// The one loop of a running agent, on one thread: bursts of packets, due tasks for a third of a slice, the
/// handlers of descriptors, and sleep in epoll when there is none of them. Whoever is called runs to its end
/// before anything else does, so that a change made in one call is seen whole by the next packet.
class EventLoop {
 public:
  using Handler = std::function<void(uint32_t events)>;

  static constexpr int eventsATurn = 16;

  /// `clock` counts the delays of tasks and outlives the loop; `wall` is the time of day. While the loop
  /// lives, the process's time of day (Zeb::System) is that of the turn, so that a packet costs no look at a
  /// clock.
  explicit EventLoop(const Kiv::Clock& clock = Kiv::steadyClock(), const Kiv::Clock& wall = Kiv::wallClock());
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  /// Calls `handler` with EPOLL* bits while any of `events` is there (level-triggered); a second call for the
  /// same descriptor replaces both. The descriptor stays its owner's. A handler may add and remove any
  /// descriptor, its own too; none is called after its removal.
  void fdIs(int fd, uint32_t events, Handler handler);
  void fdDel(int fd);

  /// Pollers are asked in turns, in the order of their coming; not owned.
  void pollerIs(Poller* poller);
  void pollerDel(Poller* poller);

  /// Runs until stop() is called from within.
  void run();
  void stop() { stopped_ = true; }
  /// One turn, sleeping at most `maxWaitMs` when there is nothing to do (-1: until something happens).
  void turn(int maxWaitMs);

  /// Held back for what is done on the loop.
  Reserve& reserve() { return reserve_; }

  /// Runs tasks, and nothing else, until none is due any more; before run().
  void settle() { tasks_.settle(); }

  /// When the work of the present turn began: on the clock of delays, and the time of day.
  const Kiv::Clock& turnClock() const { return turnClock_; }
  const Kiv::Clock& turnWall() const { return turnWall_; }

 private:
  struct Watched {
    std::shared_ptr<const Handler> handler;  ///< shared with a call that is under way
    uint32_t generation;  ///< so that an event of a closed descriptor is not taken for its successor's
  };

  /// Returns what handlers took.
  Kelp::Duration dispatch(int maxWaitMs);
  void pollAll();
  void clocksAre();

  Reserve reserve_;
  const Kiv::Clock& clock_;
  const Kiv::Clock& wall_;
  Kiv::ManualClock turnClock_;
  Kiv::ManualClock turnWall_;
  TaskLoop tasks_;
  int epoll_ = -1;
  bool stopped_ = false;
  bool mayHaveMore_ = true;  ///< what the pollers said last
  uint32_t generation_ = 0;
  std::map<int, Watched> watched_;
  std::vector<Poller*> pollers_;
};

}  // namespace Agent
