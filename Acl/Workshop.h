#pragma once

#include <Kiv/Task.h>

#include <atomic>
#include <memory>

namespace Acl {

/// A list to be compiled: its rules are copied on the event loop's thread, a slice at a time, the form is
/// made of the copies on any thread, and handed over on the loop's thread. So a list can change, and go,
/// while it is being compiled.
class BuildJob {
 public:
  virtual ~BuildJob() = default;

  /// Copies rules until all are copied, true, or until the slice of `task` is used up. Null: no slice.
  virtual bool collect(const Kiv::Task* task) = 0;
  /// Makes the form; it touches nothing but the job.
  virtual void build() = 0;
  virtual void handleDone() = 0;

 private:
  friend class Workshop;
  std::atomic<bool> done_ = false;
};

/// Where lists are compiled: at once, in the call; or, once it has a thread, beside the event loop, which a
/// large list would hold up for many slices. One a process.
class Workshop {
 public:
  static Workshop& singleton();

  /// Whether to use a thread. Before there is none again, all jobs are finished and handed over.
  void threadIs(bool on);
  bool hasThread() const;
  /// Whether no job is under way.
  bool idle() const;

  /// Carries a job out: before this returns, or in tasks of the loop and on the thread.
  void build(const std::shared_ptr<BuildJob>& job);

 private:
  Workshop();
  ~Workshop();
  class Thread;
  std::unique_ptr<Thread> thread_;
};

}  // namespace Acl
