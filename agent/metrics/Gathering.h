#pragma once

#include <agent/metrics/Ledger.h>
#include <agent/metrics/Table.h>

#include <deque>
#include <optional>
#include <vector>

namespace Agent {

/// Gathers the values of all metrics, piece by piece: between two pieces packets flow, and the configuration
/// may change. Lists and rules that are deleted before their turn comes are left out.
class Gathering {
 public:
  /// `most`: rules that have metrics of their own. The others outlive it.
  Gathering(const Watched& watched, RuleChoice choice, size_t most, Ledger& ledger);

  /// Gathers the next piece; false when that was the last one.
  bool next();
  Samples take() { return std::move(samples_); }

 private:
  void addDrops();
  void addPorts();
  void addTasks();
  void addAgent();
  void beginList();
  void addRule();
  Counts counts(const MatchCount& counted, std::optional<uint32_t> number, const Kiv::UniqueId& id);

  const Watched& watched_;
  const RuleChoice choice_;
  Ledger& ledger_;
  const ListReader reader_;
  Samples samples_;
  size_t most_;  // rules that may still have metrics
  size_t leftOut_ = 0;
  std::deque<ListReader::Key> lists_;

  // The list whose rules are being gathered.
  ListReader::Key list_;
  std::array<bool, 2> bound_{};  // by direction
  std::vector<Kiv::UniqueId> ids_;
  size_t nextId_ = 0;
};

}  // namespace Agent
