#pragma once

#include <cstdio>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "classbench/Table.h"

namespace Bench {

/// A classifier that answers wrongly: there is nothing to time.
class WrongAnswer : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A goal, what was reached, and the limit it is compared with.
struct Goal {
  std::string what;
  double reached;
  double limit;
  bool atLeast;  ///< else at most

  bool met() const { return atLeast ? reached >= limit : reached <= limit; }
};

/// What it took librte_acl to build a list.
struct PeerBuild {
  double ns;
  int64_t bytes;
};

/// What a run of the program does and finds. Tables are printed as soon as they are complete; progress goes
/// to a terminal only, on one line.
class Run {
 public:
  int rounds = 15;
  size_t headers = 100000;  ///< of a generated trace
  uint64_t seed = 1;
  std::vector<std::string> against = {"rte_acl", "DBTable"};  ///< peers, where sets are measured
  /// By set, where it was built already, which can take minutes; nothing where it cannot be.
  std::map<std::string, std::optional<PeerBuild>> peers;

  Run();
  void tableIs(const Table& table);
  void goalIs(Goal goal) { goals_.push_back(std::move(goal)); }
  void progress(const std::string& what);
  bool isAgainst(const std::string& peer) const;

  /// The goals that this run could look at.
  Table goals() const;
  nlohmann::json json() const;
  bool coloured() const { return coloured_; }

 private:
  const bool coloured_, onTerminal_;
  std::vector<Goal> goals_;
  nlohmann::json tables_ = nlohmann::json::array();
};

}  // namespace Bench
