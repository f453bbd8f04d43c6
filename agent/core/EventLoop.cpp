#include <Kelp/Assert.h>
#include <Zeb/System.h>
#include <agent/core/EventLoop.h>
#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <ctime>

namespace Agent {

namespace {

timespec timespecOf(double seconds) {
  const double whole = std::floor(seconds);
  const long nanoseconds = static_cast<long>((seconds - whole) * 1e9) + 1;  // never early
  return {static_cast<time_t>(whole), std::min(nanoseconds, 999999999L)};
}

// The longest sleep. It keeps times within the range of a timespec.
constexpr double longestWait = 3600;

// Packets wait for the handlers and tasks of a turn. These may run over this budget by one element of a task,
// and by freeing memory behind it; together that should take less than a slice.
constexpr Kelp::Duration turnBudget{Kiv::TaskScheduler::defaultSlice.seconds() / 3};

// A loop that does not sleep looks at its wakers so often.
constexpr Kelp::Duration looksEvery{0.01};

}  // namespace

EventLoop::EventLoop(const Kiv::Clock& clock, const Kiv::Clock& wall)
    : clock_(clock), wall_(wall), tasks_(clock, turnBudget), epoll_(epoll_create1(EPOLL_CLOEXEC)) {
  KELP_ASSERT(epoll_ >= 0, "an epoll descriptor can be had");
  asleep_.push_back({epoll_, POLLIN, 0});
  clocksAre();
  looked_ = turnClock_.now();
  Zeb::System::clockIs(&turnWall_);
}

EventLoop::~EventLoop() {
  Zeb::System::clockIs(nullptr);
  close(epoll_);
}

void EventLoop::clocksAre() {
  turnClock_.nowIs(clock_.now());
  turnWall_.nowIs(wall_.now());
}

void EventLoop::fdIs(int fd, uint32_t events, Handler handler) {
  Watched& watched = watched_[fd];
  watched = {std::make_shared<const Handler>(std::move(handler)), ++generation_};
  epoll_event event{};
  event.events = events;
  event.data.u64 = uint64_t{watched.generation} << 32 | static_cast<uint32_t>(fd);
  // The kernel itself stops watching a descriptor that is closed. Its number may be in use again.
  if (epoll_ctl(epoll_, EPOLL_CTL_MOD, fd, &event) == 0) return;
  const bool added = epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event) == 0;
  KELP_ASSERT(added, "a watched descriptor is open and can be waited for");
}

void EventLoop::fdDel(int fd) {
  if (watched_.erase(fd) != 0) epoll_ctl(epoll_, EPOLL_CTL_DEL, fd, nullptr);
}

void EventLoop::wakerIs(int fd, std::function<void()> failed) {
  wakerDel(fd);
  wakers_.push_back(std::make_shared<const Waker>(Waker{fd, std::move(failed)}));
  asleep_.push_back({fd, POLLIN, 0});
}

void EventLoop::wakerDel(int fd) {
  for (size_t i = wakers_.size(); i > 0; --i) {
    if (wakers_[i - 1]->fd != fd) continue;
    wakers_.erase(wakers_.begin() + static_cast<ptrdiff_t>(i - 1));
    asleep_.erase(asleep_.begin() + static_cast<ptrdiff_t>(i));
  }
}

void EventLoop::pollerIs(Poller* poller) { pollers_.push_back(poller); }

void EventLoop::pollerDel(Poller* poller) {
  std::replace(pollers_.begin(), pollers_.end(), poller, static_cast<Poller*>(nullptr));
}

void EventLoop::run() {
  stopped_ = false;
  while (!stopped_) turn(-1);
}

void EventLoop::turn(int maxWaitMs) {
  reserve_.refill();
  const Kelp::Duration used = dispatch(maxWaitMs);
  const Kelp::Duration asked = clock_.now();
  pollAll();
  const Kelp::Duration answered = clock_.now();
  if (tasks_.due()) tasks_.turn(used);
  countTurn(asked, answered);
}

void EventLoop::countTurn(Kelp::Duration asked, Kelp::Duration answered) {
  const double seconds = (clock_.now() - turnClock_.now()).seconds();
  ++times_.turns;
  times_.busy += seconds;
  times_.packets += (answered - asked).seconds();
  times_.longestTurn = std::max(times_.longestTurn, seconds);
}

Kelp::Duration EventLoop::dispatch(int maxWaitMs) {
  double wait = maxWaitMs < 0 ? longestWait : std::min(maxWaitMs / 1e3, longestWait);
  if (const auto due = tasks_.timeUntilDue()) wait = std::min(wait, std::max(0.0, due->seconds()));
  wait = std::min(wait, pause_.next(turnClock_.now(), !mayHaveMore_, Kelp::Duration(longestWait)).seconds());
  const bool looks = wait > 0 || turnClock_.now() - looked_ >= looksEvery;
  if (looks) sleep(wait);
  epoll_event events[eventsATurn];
  const int count = epoll_wait(epoll_, events, eventsATurn, 0);
  KELP_ASSERT(count >= 0 || errno == EINTR, "descriptors can be waited for");
  clocksAre();
  tasks_.turnBegin();
  if (looks) tellWakers();
  for (int i = 0; i < count; ++i) {
    const auto at = watched_.find(static_cast<int>(static_cast<uint32_t>(events[i].data.u64)));
    if (at == watched_.end() || at->second.generation != events[i].data.u64 >> 32) continue;
    const auto handler = at->second.handler;
    (*handler)(events[i].events);
  }
  if (count <= 0) return Kelp::Duration();
  Rix::Gen::zebDoZombieReactors();
  return tasks_.age();
}

void EventLoop::sleep(double wait) {
  const timespec timeout = timespecOf(wait);
  const int count = ppoll(asleep_.data(), asleep_.size(), &timeout, nullptr);
  KELP_ASSERT(count >= 0 || errno == EINTR, "descriptors can be waited for");
  if (count < 0) {
    for (pollfd& each : asleep_) each.revents = 0;
  }
}

void EventLoop::tellWakers() {
  looked_ = turnClock_.now();
  // By index: one that is told may take away any.
  for (size_t i = 1; i < asleep_.size(); ++i) {
    const short failures = asleep_[i].revents & ~POLLIN;
    if (failures == 0) continue;
    KELP_ASSERT((failures & POLLNVAL) == 0, "a waker is open until it is taken away");
    const auto waker = wakers_[i - 1];
    waker->failed();
  }
}

void EventLoop::pollAll() {
  mayHaveMore_ = true;
  for (int asked = 0; asked < burstsATurn && mayHaveMore_; ++asked) {
    mayHaveMore_ = false;
    // By index: a poller may add another.
    for (size_t i = 0; i < pollers_.size(); ++i) {
      if (pollers_[i] && pollers_[i]->poll()) mayHaveMore_ = true;
    }
  }
  std::erase(pollers_, nullptr);
}

}  // namespace Agent
