#include <agent/core/Output.h>
#include <agent/log/EventLog.h>
#include <fmt/format.h>

#include <new>
#include <utility>

namespace Agent {

EventLog::~EventLog() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  more_.notify_one();
  thread_.join();
}

void EventLog::start() {
  toJournal_ = journal_.open();
  thread_ = std::thread([this] { run(); });
}

void EventLog::tell(LogEvent event) {
  tellMade([event = std::move(event)] { return std::vector{event}; });
}

void EventLog::tellMade(Make make) {
  {
    const std::lock_guard lock(mutex_);
    if (waiting_.size() >= mostWaiting) {
      ++leftOut_;
      return;
    }
    waiting_.push_back(std::move(make));
  }
  more_.notify_one();
}

void EventLog::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    more_.wait(lock, [this] { return ending_ || !waiting_.empty(); });
    if (waiting_.empty()) return;
    const Make make = std::move(waiting_.front());
    waiting_.pop_front();
    const size_t leftOut = std::exchange(leftOut_, 0);
    lock.unlock();
    try {
      for (const LogEvent& event : make()) write(event);
    } catch (const std::bad_alloc&) {
      complain("memory ran out for a line of the log");
    }
    if (leftOut > 0)
      write({Severity::warning, fmt::format("{} lines were left out of the log here", leftOut)});
    lock.lock();
  }
}

void EventLog::write(const LogEvent& event) const {
  if (!toJournal_ || !journal_.send(event)) complain(event.text);
}

}  // namespace Agent
