#pragma once

#include <agent/state/StateFile.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace Agent {

/// Writes states to their file on a thread of its own, at low priority. Of states that come faster than they
/// can be written the last one counts.
class StateWriter {
 public:
  explicit StateWriter(std::unique_ptr<StateFile> file);
  /// Writes the last state to its end.
  ~StateWriter();
  StateWriter(const StateWriter&) = delete;
  StateWriter& operator=(const StateWriter&) = delete;

  void put(Saved::State state);
  /// What has gone wrong with a write since it was asked last. That state is lost; the next one has to bring
  /// its rules again.
  std::optional<std::string> takeFailure();

 private:
  void run();

  const std::unique_ptr<StateFile> file_;  // the thread's
  std::mutex mutex_;
  std::condition_variable wake_;
  std::optional<Saved::State> next_;  // under the mutex, like all below
  std::optional<std::string> failure_;
  bool stopped_ = false;
  std::thread thread_;  // last: it starts when the others are there
};

}  // namespace Agent
