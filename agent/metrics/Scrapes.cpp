#include <Kelp/Assert.h>
#include <agent/core/EventLoop.h>
#include <agent/core/Reserve.h>
#include <agent/metrics/Scrapes.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <chrono>
#include <new>

namespace Agent {

namespace {

constexpr std::chrono::seconds scrapePatience{10};

}  // namespace

Scrapes::Scrapes(EventLoop& loop, const Watched& watched, RuleChoice choice, size_t most)
    : loop_(loop),
      watched_(watched),
      choice_(choice),
      most_(most),
      ledger_(4 * most),  // both directions, and as much again of rules that are not in force now
      task_(sweepPriority, "Metrics", [this] { run(); }),
      bell_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  KELP_ASSERT(bell_.get() >= 0, "an eventfd can be had");
  loop_.fdIs(bell_.get(), EPOLLIN, [this](uint32_t) { handleAsked(); });
}

Scrapes::~Scrapes() {
  stop();
  loop_.fdDel(bell_.get());
}

std::shared_ptr<const Samples> Scrapes::take() {
  std::unique_lock lock(mutex_);
  const uint64_t mine = ++asked_;
  eventfd_write(bell_.get(), 1);
  answered_.wait_for(lock, scrapePatience, [&] { return stopped_ || done_ >= mine; });
  return done_ >= mine ? last_ : nullptr;
}

void Scrapes::stop() {
  const std::lock_guard lock(mutex_);
  stopped_ = true;
  answered_.notify_all();
}

void Scrapes::handleAsked() {
  eventfd_t rung = 0;
  eventfd_read(bell_.get(), &rung);
  if (gathering_) return;  // run() sees to it
  if (gathered_ && loop_.turnClock().now() - *gathered_ < freshFor) {
    const std::lock_guard lock(mutex_);
    done_ = asked_;
    answered_.notify_all();
    return;
  }
  task_->scheduleTask();
}

void Scrapes::run() {
  Refusable memory;
  try {
    if (!gathering_) {
      if (watched_.look) watched_.look();
      gathering_ = std::make_unique<Gathering>(watched_, choice_, most_, ledger_);
    }
    while (gathering_->next()) {
      if (task_->taskShouldYield()) return task_->scheduleTask();
    }
    Refusable::check();
    answer(std::make_shared<const Samples>(gathering_->take()));
  } catch (const std::bad_alloc&) {
    answer(nullptr);
  }
}

void Scrapes::answer(std::shared_ptr<const Samples> samples) {
  gathering_.reset();
  gathered_ = loop_.turnClock().now();
  const std::lock_guard lock(mutex_);
  last_.swap(samples);
  // Who asked while this was gathered has asked within the time for which it is fresh.
  done_ = asked_;
  answered_.notify_all();
}

}  // namespace Agent
