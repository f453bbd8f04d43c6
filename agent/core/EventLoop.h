#pragma once

#include <Kiv/Clock.h>
#include <agent/core/IdlePause.h>
#include <agent/core/Reserve.h>
#include <agent/core/TaskLoop.h>
#include <poll.h>

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

/// What a loop did with its time since it was made, in seconds without those that it slept.
struct LoopTimes {
  uint64_t turns = 0;
  double busy = 0;
  double packets = 0;      ///< of these the ones that pollers took
  double longestTurn = 0;  ///< behind the sleep
};

/// Priority of the tasks that go over all that there is, in slices: below those that update the status.
inline constexpr int sweepPriority = -5;

/// The one loop of a running agent, on one thread. A turn of it calls the handlers of descriptors, asks every
/// poller for some bursts of packets, and runs due tasks; handlers and tasks together have a third of a
/// slice. When there is nothing to do it sleeps.
///
/// Every call runs to its end before anything else does. So the next packet sees all of a change that was
/// made in one call.
class EventLoop {
 public:
  using Handler = std::function<void(uint32_t events)>;

  static constexpr int eventsATurn = 16;
  /// How often pollers are asked in a turn while they have more. To wait for events and to read clocks costs
  /// as much as it costs to forward some packets.
  static constexpr int burstsATurn = 4;

  /// `clock` counts the delays of tasks, `wall` is the time of day; both outlive the loop. While the loop
  /// lives, the time of day of the process (Zeb::System) is the one at which the turn began: no clock is read
  /// for a packet.
  explicit EventLoop(const Kiv::Clock& clock = Kiv::steadyClock(), const Kiv::Clock& wall = Kiv::wallClock());
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  /// Calls `handler` with EPOLL* bits as long as any of `events` holds (level-triggered). A second call for
  /// the same descriptor replaces events and handler. The descriptor is not owned. A handler may add and
  /// remove any descriptor, also its own; no handler is called after its removal.
  void fdIs(int fd, uint32_t events, Handler handler);
  void fdDel(int fd);

  /// While `fd` can be read the loop does not sleep. It is asked about only when the loop is about to: of
  /// what fdIs() names the kernel takes note with every packet, at the cost of who sends it. So this is for
  /// descriptors whose packets pollers take. `failed` is called soon after it has an error: behind a sleep,
  /// or a hundredth of a second later. Not owned; taken away before it is closed.
  void wakerIs(int fd, std::function<void()> failed);
  void wakerDel(int fd);

  /// Pollers are asked one after the other, in the order in which they were added, and again when one of them
  /// may have more. They are not owned.
  void pollerIs(Poller* poller);
  void pollerDel(Poller* poller);

  /// Runs until stop() is called from within.
  void run();
  void stop() { stopped_ = true; }
  /// One turn. When there is nothing to do it sleeps for at most `maxWaitMs`; -1: until something happens.
  void turn(int maxWaitMs);

  /// How it waits when there is nothing to do.
  IdlePause& pause() { return pause_; }

  /// Memory that is held back for work on the loop.
  Reserve& reserve() { return reserve_; }

  /// Runs tasks, and nothing else, until none is due. For the time before run().
  void settle() { tasks_.settle(); }

  /// When the work of this turn began: on the clock of delays, and as the time of day.
  const Kiv::Clock& turnClock() const { return turnClock_; }
  const Kiv::Clock& turnWall() const { return turnWall_; }

  /// By the turns that are over.
  const LoopTimes& times() const { return times_; }

 private:
  struct Watched {
    std::shared_ptr<const Handler> handler;  ///< shared with a call that is going on
    uint32_t generation;  ///< tells an event of a closed descriptor from one of the next with that number
  };

  /// What wakes the loop from its sleep.
  struct Waker {
    int fd;
    std::function<void()> failed;
  };

  /// Waits for events and calls their handlers. Returns how long the handlers took.
  Kelp::Duration dispatch(int maxWaitMs);
  /// Sleeps until there is an event, or a waker can be read, and for `wait` seconds at most; looks at the
  /// wakers in any case.
  void sleep(double wait);
  /// Tells the wakers that had an error at the last look.
  void tellWakers();
  void pollAll();
  void clocksAre();
  /// A turn is over, in which pollers were asked from `asked` to `answered`.
  void countTurn(Kelp::Duration asked, Kelp::Duration answered);

  Reserve reserve_;
  const Kiv::Clock& clock_;
  const Kiv::Clock& wall_;
  Kiv::ManualClock turnClock_;
  Kiv::ManualClock turnWall_;
  TaskLoop tasks_;
  int epoll_ = -1;
  bool stopped_ = false;
  bool mayHaveMore_ = true;  ///< the pollers said so last time
  uint32_t generation_ = 0;
  std::map<int, Watched> watched_;
  std::vector<Poller*> pollers_;
  std::vector<std::shared_ptr<const Waker>> wakers_;
  std::vector<pollfd> asleep_;  // epoll_, then wakers_; revents are those of the last look
  Kelp::Duration looked_;       // when wakers were looked at
  LoopTimes times_;
  IdlePause pause_;
};

}  // namespace Agent
