#pragma once

#include <Kiv/OwnedTask.h>
#include <agent/core/Core.h>
#include <agent/state/StateWriter.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// Keeps the state file up to date while an agent runs. It copies the state, a slice a turn, gives the copy
/// to the writer, and begins again half a second later, or at once when the configuration has changed. For
/// the loop's thread. The past of the configuration is written at once.
class StateKeeper final : public ChangeJournal {
 public:
  /// The core outlives it. The first copy begins at once.
  StateKeeper(const Core& core, std::unique_ptr<StateFile> file);
  /// Copies once more, and returns when that is written.
  ~StateKeeper() override;
  StateKeeper(const StateKeeper&) = delete;
  StateKeeper& operator=(const StateKeeper&) = delete;

  void keep(Past past) override { writer_.put(std::move(past)); }
  ChangeJournal::State state() const override { return writer_.pastState(); }

  StateWriter::Writes writes() const { return writer_.writes(); }

  /// To be called after every change of the configuration.
  void handleApplied();

 private:
  /// A piece of the copy: a list of a source, the status of a list, or a collection of counters.
  struct Piece;

  void begin();
  void beginRules();
  void beginStatus();
  void run();
  /// Copies pieces; false when the slice is used up before the last one. `whole`: without regard to slices.
  bool copy(bool whole);
  void finish();
  /// A state could not be copied or written: the next one must have the rules again.
  void handleFailure(const std::string& failure);
  void noteId(const Kiv::UniqueId& id);
  bool yields(bool whole) const { return !whole && task_->taskShouldYield(); }
  bool copyRules(Piece& piece, bool whole);
  bool copyStatus(Piece& piece, bool whole);
  bool copyCounters(Piece& piece, bool whole);
  template <class Map, class Resume, class Take>
  bool copyMap(const Map& map, std::optional<Resume>& resume, bool whole, const Take& take);

  const Core& core_;
  Kiv::OwnedTask task_;
  Saved::State state_;       ///< the copy, as far as it is made
  bool rulesKnown_ = false;  ///< the writer has the rules of the present configuration
  std::string failure_;      ///< the last failure to write, as it was told
  uint64_t highestId_ = 0;
  std::vector<Piece> pieces_;  ///< still to be copied, from the last to the first
  StateWriter writer_;
};

}  // namespace Agent
