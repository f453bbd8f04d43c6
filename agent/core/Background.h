#pragma once

#include <agent/core/EventLoop.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace Agent {

/// Has the calling thread give way to the loop's: it gets less of a processor that both want, and does not
/// take it away when it wakes up (Linux: SCHED_BATCH and a nice value, of the thread).
void giveWay();

/// Does one piece of long work at a time on a thread of its own, at low priority, while the loop goes on.
///
/// The work may use plain values only: nothing that it touches may be in use on the loop's thread meanwhile,
/// shared texts and counted objects included, because their counts are not atomic. Texts that it makes itself
/// are its own until `then` runs.
class Background {
 public:
  /// Told why the work did not get to its end, if so: memory ran out, or there is no thread to be had.
  using Then = std::function<void(const std::optional<std::string>& failed)>;

  explicit Background(EventLoop& loop);
  /// Waits for the work that is under way; its `then` is not called.
  ~Background();
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;

  /// True from run() until its `then` is called.
  bool busy() const;
  /// Runs `work` on the thread and then `then` on the loop's thread. Not while busy.
  void run(std::function<void()> work, Then then);

 private:
  struct State;
  EventLoop& loop_;
  const std::unique_ptr<State> state_;
};

}  // namespace Agent
