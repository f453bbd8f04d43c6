#pragma once

#include <agent/state/StateFile.h>

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace Agent {

/// Writes states, and the past of the configuration, to their file on a thread of its own, at low priority.
/// When they come faster than they can be written, only the last ones are.
class StateWriter {
 public:
  explicit StateWriter(std::unique_ptr<StateFile> file);
  /// As end().
  ~StateWriter();
  StateWriter(const StateWriter&) = delete;
  StateWriter& operator=(const StateWriter&) = delete;

  void put(Saved::State state);
  void put(Past past);
  /// Writes of states and of the past since the start.
  struct Writes {
    uint64_t done = 0;
    uint64_t failed = 0;
    double lastDone = 0;  ///< seconds since the epoch; 0: none yet
  };
  Writes writes() const;
  /// What became of the last past.
  ChangeJournal::State pastState() const;
  /// What went wrong with a write since the last call. That state is lost, and the next one must have the
  /// rules again.
  std::optional<std::string> takeFailure();
  /// Returns when the last state is written; what went wrong, as takeFailure().
  std::optional<std::string> end();

 private:
  void run();
  template <class What>
  std::optional<std::string> write(What what);
  void count(bool done);

  const std::unique_ptr<StateFile> file_;  // used by the thread only
  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::optional<Saved::State> next_;  // protected by the mutex, like those below
  std::optional<Past> nextPast_;
  ChangeJournal::State pastState_ = ChangeJournal::State::kept;
  std::optional<std::string> failure_;
  Writes writes_;
  bool stopped_ = false;
  std::thread thread_;  // last member: it starts when the others are made
};

}  // namespace Agent
