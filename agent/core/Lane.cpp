#include <Kelp/Assert.h>
#include <agent/core/Lane.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>

namespace Agent {

namespace {

/// A rest itself costs time, so a lane that is overrun takes few long rests instead of many short ones.
constexpr double shortestRest = 0.01;

}  // namespace

Lane::Lane(EventLoop& loop, const char* name, double share, Kelp::Duration burst, Handler handler,
           const Kiv::Clock& watch)
    : loop_(loop),
      share_(share),
      burst_(burst),
      handler_(std::move(handler)),
      watch_(watch),
      epoll_(epoll_create1(EPOLL_CLOEXEC)),
      task_(0, name, [this] { open(); }),
      budget_(burst.seconds()),
      earnedUntil_(loop.turnClock().now()) {
  KELP_ASSERT(epoll_ >= 0, "descriptors cannot be watched");
  open();
}

Lane::~Lane() {
  loop_.fdDel(epoll_);
  close(epoll_);
}

void Lane::open() {
  loop_.fdIs(epoll_, EPOLLIN, [this](uint32_t) { handle(); });
}

void Lane::fdIs(int fd, uint32_t events) {
  epoll_event event{};
  event.events = events;
  event.data.fd = fd;
  if (epoll_ctl(epoll_, EPOLL_CTL_MOD, fd, &event) != 0) epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event);
}

void Lane::fdDel(int fd) { epoll_ctl(epoll_, EPOLL_CTL_DEL, fd, nullptr); }

void Lane::handle() {
  const Kelp::Duration now = loop_.turnClock().now();
  budget_ = std::min(burst_.seconds(), budget_ + (now - earnedUntil_).seconds() * share_);
  earnedUntil_ = now;
  const Kelp::Duration start = watch_.now();
  // One event a turn. The kernel hands the events of different descriptors out in rotation.
  epoll_event event{};
  if (epoll_wait(epoll_, &event, 1, 0) == 1) handler_(event.data.fd, event.events);
  const double took = (watch_.now() - start).seconds();
  used_ += took;
  budget_ -= took;
  if (budget_ > 0) return;
  loop_.fdDel(epoll_);
  task_->scheduleTaskDelay(Kelp::Duration(std::max(shortestRest, -budget_ / share_)));
}

}  // namespace Agent
