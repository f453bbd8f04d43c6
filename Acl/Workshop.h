#pragma once

#include <Kiv/Task.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

namespace Acl {

/// The job of compiling a list. Its rules are copied on the event loop's thread, a slice at a time; then the
/// compiled form is made from the copies, on any thread; then it is handed over on the loop's thread. So the
/// list can change or be deleted while it is compiled.
class BuildJob {
 public:
  virtual ~BuildJob() = default;

  /// Copies rules until the slice of `task` is used up; true when all are copied. Null: there is no slice.
  virtual bool collect(const Kiv::Task* task) = 0;
  /// Makes the compiled form. It uses nothing outside the job.
  virtual void build() = 0;
  virtual void handleDone() = 0;
  /// There was not enough memory to make it.
  virtual void handleFailed() = 0;

 private:
  friend class Workshop;
  /// Calls build(), and notes when memory ran out.
  void tryBuild();
  void handOver() { failed_ ? handleFailed() : handleDone(); }

  bool failed_ = false;  // written before done_ is
  std::atomic<bool> done_ = false;
};

/// Compiles lists: at once, within the call; or, if it has a thread, beside the event loop, because a large
/// list would take many slices. If memory runs out within the call, the caller gets the exception. If it runs
/// out later, the job is told (handleFailed). A process has one workshop.
class Workshop {
 public:
  static Workshop& singleton();

  /// Starts a thread, which first calls `atStart`, or ends it; then all jobs are finished and handed over
  /// before this returns.
  void threadIs(bool on, std::function<void()> atStart = {});
  bool hasThread() const;
  /// Whether all jobs are finished.
  bool idle() const;

  /// Carries out a job: before this returns, or in tasks of the loop and on the thread.
  void build(const std::shared_ptr<BuildJob>& job);

  /// Frees a value as a job, because to free much memory can take longer than a slice. Nobody else may hold a
  /// part of the value.
  template <class T>
  void dispose(T&& gone);

 private:
  Workshop();
  ~Workshop();
  class Thread;
  std::unique_ptr<Thread> thread_;
};

template <class T>
void Workshop::dispose(T&& gone) {
  static_assert(std::is_rvalue_reference_v<T&&>, "it is the workshop's from now on");
  class Disposal final : public BuildJob {
   public:
    explicit Disposal(T&& all) : gone_(std::move(all)) {}
    bool collect(const Kiv::Task*) override { return true; }
    void build() override { gone_.reset(); }
    void handleDone() override {}
    void handleFailed() override {}

   private:
    std::optional<T> gone_;
  };
  build(std::make_shared<Disposal>(std::move(gone)));
}

}  // namespace Acl
