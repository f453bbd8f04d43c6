#pragma once

#include <agent/log/Journal.h>
#include <agent/log/LogEvent.h>

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace Agent {

/// Writes the log of an agent: to the journal when it runs under systemd, otherwise to standard error. A
/// thread of its own writes, because readers of a log may be slow and packets must not wait for them. What is
/// told when too much is waiting is left out, and the log says how much that was.
class EventLog {
 public:
  static constexpr size_t mostWaiting = 1000;

  EventLog() = default;
  /// Writes what waits, and ends the thread.
  ~EventLog();
  EventLog(const EventLog&) = delete;
  EventLog& operator=(const EventLog&) = delete;

  /// Starts the thread, which has the rights of the one that calls. Until then events wait.
  void start();
  /// Whether it goes to the journal; known from the start on.
  bool isJournal() const { return toJournal_; }
  /// May be called on any thread; never waits for a reader.
  void tell(LogEvent event);
  /// The same for events that take long to make: `make` is called on the log's thread.
  void tellMade(std::function<std::vector<LogEvent>()> make);

 private:
  using Make = std::function<std::vector<LogEvent>()>;

  void run();
  void write(const LogEvent& event) const;

  Journal journal_;
  bool toJournal_ = false;
  std::mutex mutex_;  // guards what follows
  std::condition_variable more_;
  std::deque<Make> waiting_;
  size_t leftOut_ = 0;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace Agent
