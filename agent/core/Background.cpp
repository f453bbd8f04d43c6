#include <Kelp/Assert.h>
#include <agent/core/Background.h>
#include <agent/core/Memory.h>
#include <agent/core/Reserve.h>
#include <sched.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <new>
#include <system_error>
#include <thread>

namespace Agent {

struct Background::State {
  int done = -1;  // an event descriptor: readable when the work is done
  std::thread thread;
  Then then;
  const char* failed = nullptr;  // belongs to the thread until the work is done
};

namespace {

/// A thread that no signal is delivered to: signals are for the loop's thread.
std::thread quietThread(std::function<void()> body) {
  const struct Mask {
    Mask() {
      sigset_t all;
      sigfillset(&all);
      pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    ~Mask() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    sigset_t before;
  } mask;
  return std::thread([body = std::move(body)] {
    giveWay();
    body();
  });
}

}  // namespace

void giveWay() {
  // Both calls concern the calling thread only. If they are not allowed, the work has the loop's priority.
  const sched_param none{};
  (void)sched_setscheduler(0, SCHED_BATCH, &none);
  constexpr int lowPriority = 10;
  (void)setpriority(PRIO_PROCESS, 0, lowPriority);
}

Background::Background(EventLoop& loop) : loop_(loop), state_(std::make_unique<State>()) {
  state_->done = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  KELP_ASSERT(state_->done >= 0, "an event descriptor cannot be made");
  loop_.fdIs(state_->done, EPOLLIN, [this](uint32_t) {
    eventfd_t count;
    (void)eventfd_read(state_->done, &count);
    if (state_->thread.joinable()) state_->thread.join();
    const auto then = std::exchange(state_->then, nullptr);
    const char* failed = std::exchange(state_->failed, nullptr);
    then(failed ? std::optional<std::string>(failed) : std::nullopt);
  });
}

Background::~Background() {
  loop_.fdDel(state_->done);
  if (state_->thread.joinable()) state_->thread.join();
  close(state_->done);
}

bool Background::busy() const { return state_->then != nullptr; }

void Background::run(std::function<void()> work, Then then) {
  KELP_ASSERT(!busy(), "one piece of work at a time");
  Refusable::check();  // the last moment at which the caller can be refused
  state_->then = std::move(then);
  const auto failed = [state = state_.get()](const char* why) {
    state->failed = why;
    (void)eventfd_write(state->done, 1);
  };
  try {
    state_->thread = quietThread([work = std::move(work), failed, done = state_->done] {
      Refusable memory;
      try {
        work();
        Refusable::check();
      } catch (const std::bad_alloc&) {
        return failed(outOfMemory);
      }
      (void)eventfd_write(done, 1);
    });
  } catch (const std::bad_alloc&) {
    failed(outOfMemory);
  } catch (const std::system_error&) {
    failed("no thread can be started");
  }
}

}  // namespace Agent
