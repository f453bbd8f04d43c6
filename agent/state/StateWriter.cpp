#include <Kiv/Clock.h>
#include <agent/core/Memory.h>
#include <agent/state/StateWriter.h>
#include <sys/resource.h>

#include <new>
#include <utility>

namespace Agent {

namespace {

constexpr int lowPriority = 10;

}  // namespace

StateWriter::StateWriter(std::unique_ptr<StateFile> file)
    : file_(std::move(file)), thread_([this] { run(); }) {}

StateWriter::~StateWriter() { end(); }

std::optional<std::string> StateWriter::end() {
  if (!thread_.joinable()) return std::nullopt;
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  wake_.notify_one();
  thread_.join();
  return takeFailure();
}

void StateWriter::put(Saved::State state) {
  std::optional<Saved::State> replaced(std::move(state));  // freed outside the lock
  {
    const std::lock_guard lock(mutex_);
    if (next_ && replaced->rulesUnchanged) {
      replaced->rules = std::move(next_->rules);
      replaced->rulesUnchanged = next_->rulesUnchanged;
    }
    next_.swap(replaced);
  }
  wake_.notify_one();
}

void StateWriter::put(Past past) {
  std::optional<Past> replaced(std::move(past));  // freed outside the lock
  {
    const std::lock_guard lock(mutex_);
    nextPast_.swap(replaced);
    pastState_ = ChangeJournal::State::writing;
  }
  wake_.notify_one();
}

ChangeJournal::State StateWriter::pastState() const {
  const std::lock_guard lock(mutex_);
  return pastState_;
}

std::optional<std::string> StateWriter::takeFailure() {
  const std::lock_guard lock(mutex_);
  return std::exchange(failure_, std::nullopt);
}

template <class What>
std::optional<std::string> StateWriter::write(What what) {
  std::optional<std::string> failure;
  try {
    failure = file_->write(std::move(what));
  } catch (const std::bad_alloc&) {
    failure = outOfMemory;  // short enough to need none
  }
  count(!failure);
  return failure;
}

void StateWriter::count(bool done) {
  const double now = Kiv::wallClock().now().seconds();
  const std::lock_guard lock(mutex_);
  ++(done ? writes_.done : writes_.failed);
  if (done) writes_.lastDone = now;
}

StateWriter::Writes StateWriter::writes() const {
  const std::lock_guard lock(mutex_);
  return writes_;
}

void StateWriter::run() {
  // For this thread only. If it is not allowed, the writer has the loop's priority.
  (void)setpriority(PRIO_PROCESS, 0, lowPriority);
  for (;;) {
    std::unique_lock lock(mutex_);
    wake_.wait(lock, [this] { return stopped_ || next_ || nextPast_; });
    if (!next_ && !nextPast_) return;
    std::optional<Saved::State> state = std::exchange(next_, std::nullopt);
    std::optional<Past> past = std::exchange(nextPast_, std::nullopt);
    lock.unlock();
    // The past first: a change may wait for it.
    auto notKept = past ? write(std::move(*past)) : std::nullopt;
    if (past) {
      lock.lock();
      if (!nextPast_) pastState_ = notKept ? ChangeJournal::State::failed : ChangeJournal::State::kept;
      if (notKept) failure_ = std::move(notKept);
      lock.unlock();
    }
    auto failure = state ? write(std::move(*state)) : std::nullopt;
    lock.lock();
    if (failure) failure_ = std::move(failure);
  }
}

}  // namespace Agent
