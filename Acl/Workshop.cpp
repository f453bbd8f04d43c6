#include <Acl/Workshop.h>
#include <Kiv/TaskScheduler.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace Acl {

namespace {

void buildForest(BuildJob& job) { job.forest.build(job.images, job.slots, job.wide); }

}  // namespace

/// The thread with its two ends: jobs go in on the loop's thread, and come out there in a task that looks
/// from time to time while any are under way.
class Workshop::Thread {
 public:
  Thread()
      : task_(Kiv::TaskSchedulerRoot::findOrCreateScheduler()->taskIs(0, "aclCompile")),
        thread_([this] { run(); }) {
    task_->dispatchIs([this] { handOver(); }, this);
  }
  ~Thread() {
    task_->dispatchDel(this);
    {
      const std::lock_guard lock(mutex_);
      stopped_ = true;
    }
    wake_.notify_one();
    thread_.join();
  }

  bool idle() const { return underWay_.empty(); }

  void add(const std::shared_ptr<BuildJob>& job) {
    underWay_.push_back(job);
    {
      const std::lock_guard lock(mutex_);
      waiting_.push_back(job);
    }
    wake_.notify_one();
    task_->scheduleTaskDelay(interval);
  }

 private:
  static constexpr Kelp::Duration interval{0.001};

  void run() {
    for (;;) {
      std::unique_lock lock(mutex_);
      wake_.wait(lock, [this] { return stopped_ || !waiting_.empty(); });
      if (stopped_) return;
      BuildJob& job = *waiting_.front();
      lock.unlock();
      buildForest(job);
      job.done.store(true, std::memory_order_release);
      lock.lock();
      waiting_.pop_front();
    }
  }

  void handOver() {
    std::vector<std::shared_ptr<BuildJob>> done;
    std::erase_if(underWay_, [&done](const auto& job) {
      if (!job->done.load(std::memory_order_acquire)) return false;
      done.push_back(job);
      return true;
    });
    for (const auto& job : done) {
      if (job->handleDone) job->handleDone();
    }
    if (!underWay_.empty()) task_->scheduleTaskDelay(interval);
  }

  const Kelp::Ptr<Kiv::TimerTask> task_;
  std::vector<std::shared_ptr<BuildJob>> underWay_;  // the loop's
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::shared_ptr<BuildJob>> waiting_;  // under the mutex; the first is being built
  bool stopped_ = false;                           // under the mutex
  std::thread thread_;                             // last: it starts when the others are there
};

Workshop::Workshop() = default;
Workshop::~Workshop() = default;

Workshop& Workshop::singleton() {
  static Workshop workshop;
  return workshop;
}

void Workshop::threadIs(bool on) {
  if (on == hasThread()) return;
  thread_ = on ? std::make_unique<Thread>() : nullptr;
}

bool Workshop::hasThread() const { return thread_ != nullptr; }

bool Workshop::idle() const { return !thread_ || thread_->idle(); }

void Workshop::build(const std::shared_ptr<BuildJob>& job) {
  if (thread_) return thread_->add(job);
  buildForest(*job);
  if (job->handleDone) job->handleDone();
}

}  // namespace Acl
