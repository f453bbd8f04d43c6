#pragma once

#include <Kiv/TaskScheduler.h>
#include <agent/core/Core.h>
#include <agent/state/StateWriter.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// Keeps the state file up with a running agent: copies what there is to be kept, a slice a turn, gives the
/// copy to the writer, and begins again after half a second; at once when the configuration has changed. The
/// loop's thread.
class StateKeeper {
 public:
  /// The core outlives it. Begins with a copy.
  StateKeeper(const Core& core, std::unique_ptr<StateFile> file);
  /// Copies once more, and returns when that is written.
  ~StateKeeper();
  StateKeeper(const StateKeeper&) = delete;
  StateKeeper& operator=(const StateKeeper&) = delete;

  /// To be called behind every change of the configuration.
  void handleApplied();

 private:
  /// A piece of the copy: a list of a source, the status of a list, or a collection of counters.
  struct Piece;

  void begin();
  void beginRules();
  void beginStatus();
  void run();
  /// Copies pieces; false when the slice is used up before the last.
  bool copy(bool whole);
  void finish();
  /// A state was lost: the next one is whole again.
  void handleFailure(const std::string& failure);
  void noteId(const Kiv::UniqueId& id);
  bool yields(bool whole) const { return !whole && task_->taskShouldYield(); }
  bool copyRules(Piece& piece, bool whole);
  bool copyStatus(Piece& piece, bool whole);
  bool copyCounters(Piece& piece, bool whole);
  template <class Map, class Resume, class Take>
  bool copyMap(const Map& map, std::optional<Resume>& resume, bool whole, const Take& take);

  const Core& core_;
  const Kelp::Ptr<Kiv::TimerTask> task_;
  Saved::State state_;       ///< as far as it is copied
  bool rulesKnown_ = false;  ///< the writer has the rules of the configuration as it is
  std::string failure_;      ///< to write, the last one
  uint64_t highestId_ = 0;
  std::vector<Piece> pieces_;  ///< to be copied, the last first
  StateWriter writer_;
};

}  // namespace Agent
