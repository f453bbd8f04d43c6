#pragma once

#include <agent/core/EventLoop.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace Agent {

/// Lowers the priority of the calling thread below that of the loop's thread: it gets less of a processor
/// that both want, and does not interrupt the loop when it wakes up (Linux: SCHED_BATCH and a nice value).
void giveWay();

/// Does one piece of long work at a time on a thread of its own, at low priority, while the loop goes on.
///
/// The work may use plain values only. Nothing that it touches may be used on the loop's thread at the same
/// time, not even shared texts or counted objects, because their counts are not atomic. Texts that the work
/// makes belong to it until `then` runs.
class Background {
 public:
  /// Called when the work is over. `failed`: why it did not get to its end (memory ran out, or no thread
  /// could be started); nothing when it did.
  using Then = std::function<void(const std::optional<std::string>& failed)>;

  explicit Background(EventLoop& loop);
  /// Waits for work that is going on; its `then` is not called.
  ~Background();
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;

  /// True from run() until its `then` is called.
  bool busy() const;
  /// Runs `work` on the thread and then `then` on the loop's thread. Must not be called while busy.
  void run(std::function<void()> work, Then then);

 private:
  struct State;
  EventLoop& loop_;
  const std::unique_ptr<State> state_;
};

}  // namespace Agent
