#include <Zeb/System.h>
#include <agent/core/Descriptor.h>
#include <agent/core/EventLoop.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <string>

namespace {

using Agent::Descriptor;
using Agent::EventLoop;

/// A descriptor that is readable when it is told to be.
class Bell {
 public:
  void ring() { EXPECT_EQ(eventfd_write(fd(), 1), 0); }
  void silence() {
    eventfd_t count = 0;
    eventfd_read(fd(), &count);
  }
  int fd() const { return fd_.get(); }
  void close() { fd_.reset(); }

 private:
  Descriptor fd_{eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)};
};

class CountingPoller final : public Agent::Poller {
 public:
  bool poll() override {
    ++polls;
    if (log) *log += 'p';
    return --left > 0;
  }
  int left = 0;
  int polls = 0;
  std::string* log = nullptr;
};

class EventLoopTest : public testing::Test {
 protected:
  Kelp::Ptr<Kiv::TimerTask> task(const char* name, std::function<void()> dispatch) {
    auto made = Kiv::TaskSchedulerRoot::findOrCreateScheduler()->taskIs(0, name);
    made->dispatchIs(std::move(dispatch));
    return made;
  }

  Kiv::ManualClock clock_{Kelp::Duration(100)}, wall_{Kelp::Duration(5000)};
  EventLoop loop_{clock_, wall_};
};

TEST_F(EventLoopTest, AHandlerIsCalledWhileItsDescriptorIsReadable) {
  Bell bell;
  int calls = 0;
  loop_.fdIs(bell.fd(), EPOLLIN, [&](uint32_t events) {
    EXPECT_EQ(events, uint32_t{EPOLLIN});
    ++calls;
  });
  loop_.turn(0);
  EXPECT_EQ(calls, 0);
  bell.ring();
  loop_.turn(0);
  loop_.turn(0);
  EXPECT_EQ(calls, 2) << "nobody has read it";
  bell.silence();
  loop_.turn(0);
  EXPECT_EQ(calls, 2);
}

TEST_F(EventLoopTest, DoesNotSleepWhileAWakerIsReadable) {
  constexpr int tooLong = 20000;  // milliseconds
  CountingPoller poller;
  loop_.pollerIs(&poller);
  loop_.turn(0);
  Bell bell;
  bell.ring();
  loop_.wakerIs(bell.fd(), [] { ADD_FAILURE() << "it has no error"; });
  const Kelp::Duration before = Kiv::steadyClock().now();
  loop_.turn(tooLong);
  EXPECT_LT((Kiv::steadyClock().now() - before).seconds(), tooLong / 2e3);
  EXPECT_EQ(poller.polls, 2);
  loop_.wakerDel(bell.fd());
}

TEST_F(EventLoopTest, AWakerIsToldOfItsErrorWhenTheLoopHasSlept) {
  CountingPoller poller;
  loop_.pollerIs(&poller);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const Descriptor writeEnd(ends[1]);
  Descriptor(ends[0]).reset();  // so the other one has an error
  int told = 0, others = 0;
  Bell bell;
  bell.ring();
  loop_.fdIs(bell.fd(), EPOLLIN, [&](uint32_t) { ++others; });
  loop_.wakerIs(writeEnd.get(), [&] { ADD_FAILURE() << "replaced"; });
  loop_.wakerIs(writeEnd.get(), [&] { ++told; });
  poller.left = EventLoop::burstsATurn + 2;  // for two turns
  loop_.turn(1000);
  loop_.turn(1000);
  EXPECT_EQ(told, 0) << "there were packets: the loop has not slept";
  loop_.turn(1000);
  loop_.turn(1000);
  EXPECT_EQ(told, 2);
  EXPECT_EQ(others, 4) << "handlers are called in every turn";
  loop_.wakerIs(writeEnd.get(), [&] {
    ++told;
    loop_.wakerDel(writeEnd.get());
  });
  loop_.turn(1000);
  loop_.turn(1000);
  EXPECT_EQ(told, 3);
}

TEST_F(EventLoopTest, AWakerIsToldOfItsErrorThoughTheLoopNeverSleeps) {
  CountingPoller poller;
  poller.left = 1000;
  loop_.pollerIs(&poller);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const Descriptor writeEnd(ends[1]);
  Descriptor(ends[0]).reset();
  loop_.turn(0);
  int told = 0;
  loop_.wakerIs(writeEnd.get(), [&] { ++told; });
  loop_.turn(1000);
  EXPECT_EQ(told, 0) << "it does not look in every turn";
  clock_.advance(Kelp::Duration(0.02));
  loop_.turn(1000);  // in which it sees what time it is
  loop_.turn(1000);
  loop_.turn(1000);
  EXPECT_EQ(told, 1);
  loop_.wakerDel(writeEnd.get());
}

TEST_F(EventLoopTest, AWakerThatWasTakenAwayByAnotherIsNotTold) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const Descriptor one(ends[1]), other(dup(ends[1]));
  Descriptor(ends[0]).reset();
  loop_.turn(0);  // from the next turn on it sleeps
  for (const bool laterGoes : {true, false}) {
    SCOPED_TRACE(laterGoes);
    std::string told;
    loop_.wakerIs(one.get(), [&] {
      told += '1';
      if (laterGoes) loop_.wakerDel(other.get());
    });
    loop_.wakerIs(other.get(), [&] {
      told += '2';
      if (!laterGoes) loop_.wakerDel(one.get());
    });
    loop_.turn(1000);
    loop_.turn(1000);
    EXPECT_EQ(told, laterGoes ? "11" : "122");
    loop_.wakerDel(one.get());
    loop_.wakerDel(other.get());
  }
}

TEST_F(EventLoopTest, DescriptorsAndOtherWakersStillWakeItWhenAWakerHasGone) {
  constexpr int tooLong = 20000;  // milliseconds
  Bell watched, gone, waker;
  loop_.fdIs(watched.fd(), EPOLLIN, [&](uint32_t) { watched.silence(); });
  loop_.turn(0);
  const auto failed = [] { ADD_FAILURE() << "it has no error"; };
  loop_.wakerIs(gone.fd(), failed);
  loop_.wakerIs(waker.fd(), failed);
  loop_.wakerDel(gone.fd());
  for (Bell* bell : {&watched, &waker}) {
    bell->ring();
    const auto start = std::chrono::steady_clock::now();
    loop_.turn(tooLong);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(tooLong));
  }
}

/// A signal ends the sleep, and nobody has failed by it.
TEST_F(EventLoopTest, GoesOnAfterASignal) {
  constexpr int tooLong = 20000;  // milliseconds
  static volatile sig_atomic_t signals;
  signals = 0;
  struct sigaction counting = {}, before = {};
  counting.sa_handler = [](int) { signals = signals + 1; };
  ASSERT_EQ(sigaction(SIGALRM, &counting, &before), 0);
  Bell bell;
  loop_.wakerIs(bell.fd(), [] { ADD_FAILURE() << "it has no error"; });
  // Again and again, for the first may come before the sleep.
  const itimerval often{{0, 1000}, {0, 1000}}, never{};
  ASSERT_EQ(setitimer(ITIMER_REAL, &often, nullptr), 0);
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 3; ++i) loop_.turn(tooLong);
  const auto taken = std::chrono::steady_clock::now() - start;
  setitimer(ITIMER_REAL, &never, nullptr);
  sigaction(SIGALRM, &before, nullptr);
  EXPECT_GT(signals, 0);
  EXPECT_LT(taken, std::chrono::milliseconds(tooLong));
}

TEST_F(EventLoopTest, TellsWhatItsTimeWentInto) {
  class SlowPoller final : public Agent::Poller {
   public:
    explicit SlowPoller(Kiv::ManualClock& clock) : clock_(clock) {}
    bool poll() override {
      clock_.advance(Kelp::Duration(2));
      return false;
    }

   private:
    Kiv::ManualClock& clock_;
  } poller(clock_);
  loop_.pollerIs(&poller);
  Bell bell;
  loop_.fdIs(bell.fd(), EPOLLIN, [&](uint32_t) { clock_.advance(Kelp::Duration(1)); });
  loop_.turn(0);
  EXPECT_DOUBLE_EQ(loop_.times().longestTurn, 2);
  bell.ring();
  const auto last = task("Last", [&] { clock_.advance(Kelp::Duration(4)); });
  last->scheduleTask();
  loop_.turn(0);
  bell.silence();
  loop_.turn(0);
  EXPECT_EQ(loop_.times().turns, 3u);
  EXPECT_DOUBLE_EQ(loop_.times().packets, 6);
  EXPECT_DOUBLE_EQ(loop_.times().busy, 11) << "handlers and tasks, too";
  EXPECT_DOUBLE_EQ(loop_.times().longestTurn, 7);
  last->dispatchIs(nullptr);
}

TEST_F(EventLoopTest, AHandlerMayRemoveItselfAndOthers) {
  Bell first, second;
  first.ring();
  second.ring();
  int calls = 0;
  const auto removeBoth = [&](uint32_t) {
    // What the handler holds is there to its end.
    const std::string held = "still here";
    loop_.fdDel(first.fd());
    loop_.fdDel(second.fd());
    EXPECT_EQ(held, "still here");
    ++calls;
  };
  loop_.fdIs(first.fd(), EPOLLIN, removeBoth);
  loop_.fdIs(second.fd(), EPOLLIN, removeBoth);
  loop_.turn(0);
  loop_.turn(0);
  EXPECT_EQ(calls, 1) << "the second was readable, too, and is not called behind its removal";
}

TEST_F(EventLoopTest, AnEventIsNotTakenForThatOfADescriptorOfTheSameNumber) {
  Bell first, second;
  int stale = 0, fresh = 0;
  const auto replace = [&](Bell& other) {
    return [&](uint32_t) {
      const int number = other.fd();
      loop_.fdDel(number);
      other.close();
      Bell made;
      if (made.fd() != number) return;
      loop_.fdIs(number, EPOLLIN, [&](uint32_t) { ++fresh; });
      made.close();
      ++stale;
    };
  };
  loop_.fdIs(first.fd(), EPOLLIN, replace(second));
  loop_.fdIs(second.fd(), EPOLLIN, replace(first));
  first.ring();
  second.ring();
  loop_.turn(0);
  EXPECT_EQ(stale, 1);
  EXPECT_EQ(fresh, 0) << "the event was the closed descriptor's";
}

TEST_F(EventLoopTest, TasksRunWhenTheirTimeHasComeByTheClock) {
  int runs = 0;
  const auto timer = task("timer", [&] { ++runs; });
  timer->scheduleTaskDelay(Kelp::Duration(5));
  loop_.turn(0);
  EXPECT_EQ(runs, 0);
  clock_.advance(Kelp::Duration(5));
  loop_.turn(-1);
  EXPECT_EQ(runs, 1) << "and nobody has waited for a descriptor";
}

TEST_F(EventLoopTest, PacketsTasksAndHandlersTakeTurnsUnderLoad) {
  std::string log;
  CountingPoller poller;
  poller.left = 1000;
  poller.log = &log;
  loop_.pollerIs(&poller);
  Bell bell;
  bell.ring();
  loop_.fdIs(bell.fd(), EPOLLIN, [&](uint32_t) { log += 'h'; });
  Kelp::Ptr<Kiv::TimerTask> busy = task("busy", [&] {
    log += 't';
    busy->scheduleTask();
  });
  busy->scheduleTask();
  for (int i = 0; i < 5; ++i) loop_.turn(-1);
  EXPECT_EQ(log, "hppppthppppthppppthppppthppppt");
  busy->cancelTask();
  busy->dispatchIs(nullptr);
  loop_.pollerDel(&poller);
}

TEST_F(EventLoopTest, PacketsWaitForAThirdOfASliceOfHandlersAndTasksTogether) {
  const bool alwaysYielded = Kiv::alwaysYield();
  Kiv::alwaysYieldIs(false);
  const auto scheduler = Kiv::TaskSchedulerRoot::findOrCreateScheduler();
  scheduler->sliceClockIs(clock_);
  const Kelp::Duration piece(Kiv::TaskScheduler::defaultSlice.seconds() * 0.15);
  std::string log;
  CountingPoller packets;
  packets.log = &log;
  loop_.pollerIs(&packets);
  const auto a = task("a", [&] {
    log += 'a';
    clock_.advance(piece);
  });
  Kelp::Ptr<Kiv::TimerTask> b;
  b = task("b", [&] {
    do {
      log += 'b';
      clock_.advance(piece);
    } while (!b->taskShouldYield());
    b->scheduleTask();
  });
  a->scheduleTask();
  b->scheduleTask();
  for (int i = 0; i < 2; ++i) loop_.turn(0);
  EXPECT_EQ(log, "pabbpbbb") << "the third piece of a turn is the one in which a third of a slice ends";
  log.clear();
  Bell bell;
  bell.ring();
  loop_.fdIs(bell.fd(), EPOLLIN, [&](uint32_t) {
    log += 'h';
    clock_.advance(Kelp::Duration(2 * piece.seconds()));
  });
  loop_.turn(0);
  EXPECT_EQ(log, "hpb");
  loop_.fdDel(bell.fd());
  b->cancelTask();
  for (const auto& one : {a, b}) one->dispatchIs(nullptr);
  loop_.pollerDel(&packets);
  scheduler->sliceClockIs(Kiv::steadyClock());
  Kiv::alwaysYieldIs(alwaysYielded);
}

TEST_F(EventLoopTest, APollerThatMayHaveMoreIsAskedAgainWithoutWaiting) {
  CountingPoller poller;
  constexpr int polls = 2 * EventLoop::burstsATurn + 1;
  poller.left = polls;
  loop_.pollerIs(&poller);
  Bell bell;
  loop_.fdIs(bell.fd(), EPOLLIN, [&](uint32_t) { loop_.stop(); });
  loop_.turn(-1);
  EXPECT_EQ(poller.polls, EventLoop::burstsATurn) << "other work has its turn, too";
  loop_.turn(-1);
  loop_.turn(-1);
  EXPECT_EQ(poller.polls, polls) << "it had more until then, so that no turn has waited for the bell";
  bell.ring();
  loop_.run();
  EXPECT_EQ(poller.polls, polls + 1) << "stopped from within, at the end of the turn";
  loop_.pollerDel(&poller);
}

TEST_F(EventLoopTest, TheTimeOfATurnStandsStill) {
  EXPECT_EQ(loop_.turnClock().now(), Kelp::Duration(100));
  clock_.advance(Kelp::Duration(1));
  wall_.advance(Kelp::Duration(2));
  EXPECT_EQ(Zeb::System::currentTime(), Kelp::Duration(5000)) << "no turn has begun since";
  loop_.turn(0);
  EXPECT_EQ(loop_.turnClock().now(), Kelp::Duration(101));
  EXPECT_EQ(Zeb::System::currentTime(), Kelp::Duration(5002));
}

}  // namespace
