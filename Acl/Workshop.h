#pragma once

#include <Kiv/Task.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

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
  /// There was not the memory to make it.
  virtual void handleFailed() = 0;

 private:
  friend class Workshop;
  /// Builds; running out of memory is what may go wrong.
  void tryBuild();
  void handOver() { failed_ ? handleFailed() : handleDone(); }

  bool failed_ = false;  // written before done_ is
  std::atomic<bool> done_ = false;
};

/// Where lists are compiled: at once, in the call; or, once it has a thread, beside the event loop, which a
/// large list would hold up for many slices. Running out of memory in the call is the caller's to answer; of
/// what is carried out beside the loop nobody waits for an answer, so the job is told (handleFailed). One a
/// process.
class Workshop {
 public:
  static Workshop& singleton();

  /// Whether to use a thread, which first calls `atStart`. Before there is none again, all jobs are finished
  /// and handed over.
  void threadIs(bool on, std::function<void()> atStart = {});
  bool hasThread() const;
  /// Whether no job is under way.
  bool idle() const;

  /// Carries a job out: before this returns, or in tasks of the loop and on the thread.
  void build(const std::shared_ptr<BuildJob>& job);

  /// Has something freed where jobs are carried out, for giving much memory back can take longer than a
  /// slice. It may hold nothing that others hold, too.
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
