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

std::optional<std::string> StateWriter::takeFailure() {
  const std::lock_guard lock(mutex_);
  return std::exchange(failure_, std::nullopt);
}

std::optional<std::string> StateWriter::write(Saved::State state) {
  try {
    return file_->write(std::move(state));
  } catch (const std::bad_alloc&) {
    return outOfMemory;  // short enough to need none
  }
}

void StateWriter::run() {
  // For this thread only. If it is not allowed, the writer has the loop's priority.
  (void)setpriority(PRIO_PROCESS, 0, lowPriority);
  for (;;) {
    std::unique_lock lock(mutex_);
    wake_.wait(lock, [this] { return stopped_ || next_; });
    if (!next_) return;
    Saved::State state = std::move(*next_);
    next_.reset();
    lock.unlock();
    auto failure = write(std::move(state));
    lock.lock();
    if (failure) failure_ = std::move(failure);
  }
}

}  // namespace Agent
