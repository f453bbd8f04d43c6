#pragma once

#include <Classify/Forest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

namespace Acl {

/// A list to be compiled. While it is being built nobody else touches `images` and `forest`.
struct BuildJob {
  std::vector<Classify::Image> images;  ///< in the order of trial
  uint32_t slots = 0;
  bool wide = false;
  Classify::Forest forest;           ///< the result
  std::function<void()> handleDone;  ///< called on the event-loop thread; empty when nobody wants the result

  std::atomic<bool> done = false;
};

/// Where lists are compiled: at once, in the call; or, once it has a thread, beside the event loop, which a
/// large list would hold up for many slices. With a thread the result is handed over by a task of the loop.
/// One a process.
class Workshop {
 public:
  static Workshop& singleton();

  /// Whether to use a thread. Without one again, jobs under way are finished first and their results dropped.
  void threadIs(bool on);
  bool hasThread() const;
  /// Whether no job is under way.
  bool idle() const;

  /// Builds a job's forest, and calls its handleDone: before this returns, or later from a task.
  void build(const std::shared_ptr<BuildJob>& job);

 private:
  Workshop();
  ~Workshop();
  class Thread;
  std::unique_ptr<Thread> thread_;
};

}  // namespace Acl
