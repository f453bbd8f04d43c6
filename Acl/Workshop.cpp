#include <Acl/Workshop.h>
#include <Kiv/OwnedTask.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <new>
#include <thread>
#include <utility>
#include <vector>

namespace Acl {

void BuildJob::tryBuild() {
  try {
    build();
  } catch (const std::bad_alloc&) {
    failed_ = true;
  }
  done_.store(true, std::memory_order_release);
}

/// The thread, and the task of the loop that serves it: it collects the rules for jobs, gives the jobs to the
/// thread, and looks from time to time whether any are done.
class Workshop::Thread {
 public:
  explicit Thread(std::function<void()> atStart)
      : atStart_(std::move(atStart)),
        task_(0, "aclCompile", [this] { collectAndHandOver(); }),
        thread_([this] { run(); }) {}
  ~Thread() { stop(); }

  /// Returns the jobs that are still to be finished.
  std::vector<std::shared_ptr<BuildJob>> stop() {
    if (!thread_.joinable()) return {};
    {
      const std::lock_guard lock(mutex_);
      stopped_ = true;
    }
    wake_.notify_one();
    thread_.join();
    std::vector<std::shared_ptr<BuildJob>> left = std::exchange(underWay_, {});
    for (const auto& job : collecting_) job->collect(nullptr);
    left.insert(left.end(), collecting_.begin(), collecting_.end());
    collecting_.clear();
    return left;
  }

  bool idle() const { return collecting_.empty() && underWay_.empty(); }

  void add(const std::shared_ptr<BuildJob>& job) {
    collecting_.push_back(job);
    task_->scheduleTask();
  }

 private:
  static constexpr Kelp::Duration interval{0.001};

  void run() {
    if (atStart_) atStart_();
    for (;;) {
      std::unique_lock lock(mutex_);
      wake_.wait(lock, [this] { return stopped_ || !waiting_.empty(); });
      if (stopped_) return;
      // A job that comes a second time is freed here, because it can hold much memory.
      std::shared_ptr<BuildJob> job = std::move(waiting_.front());
      waiting_.pop_front();
      lock.unlock();
      if (!job->done_) job->tryBuild();
    }
  }

  void put(const std::shared_ptr<BuildJob>& job) {
    {
      const std::lock_guard lock(mutex_);
      waiting_.push_back(job);
    }
    wake_.notify_one();
  }

  void collectAndHandOver() {
    while (!collecting_.empty() && collecting_.front()->collect(task_.get().get())) {
      put(collecting_.front());
      underWay_.push_back(std::move(collecting_.front()));
      collecting_.pop_front();
    }
    std::vector<std::shared_ptr<BuildJob>> done;
    std::erase_if(underWay_, [&done](const auto& job) {
      if (!job->done_.load(std::memory_order_acquire)) return false;
      done.push_back(job);
      return true;
    });
    for (auto& job : done) {
      job->handOver();
      put(std::exchange(job, nullptr));
    }
    if (!collecting_.empty()) return task_->scheduleTask();
    if (!underWay_.empty()) task_->scheduleTaskDelay(interval);
  }

  const std::function<void()> atStart_;
  Kiv::OwnedTask task_;
  std::deque<std::shared_ptr<BuildJob>> collecting_;
  std::vector<std::shared_ptr<BuildJob>> underWay_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::shared_ptr<BuildJob>> waiting_;  // under the mutex
  bool stopped_ = false;                           // under the mutex
  std::thread thread_;                             // last: it starts when the others are there
};

Workshop::Workshop() = default;
Workshop::~Workshop() = default;

Workshop& Workshop::singleton() {
  static Workshop workshop;
  return workshop;
}

void Workshop::threadIs(bool on, std::function<void()> atStart) {
  if (on == hasThread()) return;
  if (on) {
    thread_ = std::make_unique<Thread>(std::move(atStart));
    return;
  }
  const auto left = thread_->stop();
  thread_ = nullptr;
  for (const auto& job : left) {
    if (!job->done_) job->tryBuild();
    job->handOver();
  }
}

bool Workshop::hasThread() const { return thread_ != nullptr; }

bool Workshop::idle() const { return !thread_ || thread_->idle(); }

void Workshop::build(const std::shared_ptr<BuildJob>& job) {
  if (thread_) return thread_->add(job);
  job->collect(nullptr);
  job->build();
  job->handleDone();
}

}  // namespace Acl
