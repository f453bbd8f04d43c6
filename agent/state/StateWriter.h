#pragma once

#include <agent/state/StateFile.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace Agent {

/// Writes states to their file on a thread of its own, at low priority. When states come faster than they can
/// be written, only the last one is.
class StateWriter {
 public:
  explicit StateWriter(std::unique_ptr<StateFile> file);
  /// As end().
  ~StateWriter();
  StateWriter(const StateWriter&) = delete;
  StateWriter& operator=(const StateWriter&) = delete;

  void put(Saved::State state);
  /// What went wrong with a write since the last call. That state is lost, and the next one must have the
  /// rules again.
  std::optional<std::string> takeFailure();
  /// Returns when the last state is written; what went wrong, as takeFailure().
  std::optional<std::string> end();

 private:
  void run();
  std::optional<std::string> write(Saved::State state);

  const std::unique_ptr<StateFile> file_;  // used by the thread only
  std::mutex mutex_;
  std::condition_variable wake_;
  std::optional<Saved::State> next_;  // protected by the mutex, like the two below
  std::optional<std::string> failure_;
  bool stopped_ = false;
  std::thread thread_;  // last member: it starts when the others are made
};

}  // namespace Agent
