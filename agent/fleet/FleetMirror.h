#pragma once

#include <agent/change/FleetContent.h>
#include <agent/fleet/Etcd.h>
#include <agent/fleet/FleetPlace.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// What operators ask an agent: requests of the control protocol, by name.
using FleetQuestions = std::map<std::string, std::string>;

/// What the store has for one agent, kept up to date by the differences: pure, without a connection. All of
/// it is asked for in one question, so it is as it was at one moment: a transaction is seen whole or not at
/// all, and what came while nobody asked is not missed, even when the store has forgotten it.
class FleetMirror {
 public:
  /// So many texts of one place are taken at most.
  static constexpr int64_t mostTexts = 1000;

  explicit FleetMirror(FleetIdentity identity);

  /// Where the texts are, what counts more first.
  const std::vector<std::string>& prefixes() const { return prefixes_; }
  /// What to ask next, for take().
  std::vector<EtcdRange> question() const;
  /// Whether this answers it. Otherwise it comes from another store, or from one that was taken back to an
  /// earlier state, even if it has been written to since: then forget() and ask anew.
  bool isAnswer(const EtcdResult& answer) const;
  /// Takes an answer. Null when it says nothing new.
  SharedFleetContent take(const EtcdResult& answer);
  /// What to ask when the answer to question() is more than can be taken, for takeKeys(): that is content
  /// without texts which says so.
  std::vector<EtcdRange> keysQuestion() const;
  SharedFleetContent takeKeys(const EtcdResult& answer);
  /// The revision of the store up to which everything is known; 0: nothing is.
  int64_t revision() const { return revision_; }
  /// Asks for everything next.
  void forget() {
    revision_ = 0;
    cluster_.clear();
  }
  /// Some of the keys that are not of the form of the layout, and are not read.
  const std::set<std::string>& ignored() const { return ignored_; }
  /// What somebody asks the agent, by name.
  FleetQuestions questions() const;
  UndrivenRollouts undriven() const;
  /// Tells the rollouts whose new texts it is the agent's turn to try; empty: there is none.
  std::string tried() const;

 private:
  using Entries = std::map<std::string, EtcdEntry>;

  bool isRead(size_t place, std::string_view key) const;
  bool continues(size_t place, const std::vector<EtcdEntry>& changes,
                 const std::vector<EtcdEntry>& keys) const;
  Entries entriesOf(size_t place, const std::vector<EtcdEntry>& changes, const std::vector<EtcdEntry>& keys);
  SharedFleetContent content(int64_t revision) const;
  SharedFleetContent news(SharedFleetContent now);

  const FleetIdentity identity_;
  const std::vector<std::string> prefixes_;
  std::vector<Entries> entries_;  // by prefix
  std::set<std::string> ignored_;
  std::vector<std::string> wrong_;  // why some places were not taken
  int64_t revision_ = 0;
  std::string cluster_;
  SharedFleetContent told_;
};

}  // namespace Agent
