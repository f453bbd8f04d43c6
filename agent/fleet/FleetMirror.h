#pragma once

#include <agent/change/FleetContent.h>
#include <agent/fleet/Etcd.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// What the store has for one agent, kept up to date by the differences: pure, without a connection. All of
/// it is asked for in one question, so it is as it was at one moment: a transaction is seen whole or not at
/// all, and what came while nobody asked is not missed, even when the store has forgotten it.
class FleetMirror {
 public:
  /// So many texts of one place are taken at most.
  static constexpr int64_t mostTexts = 1000;

  /// `prefixes`: where the texts are, what counts more first.
  explicit FleetMirror(std::vector<std::string> prefixes);

  const std::vector<std::string>& prefixes() const { return prefixes_; }
  /// What to ask next, for take().
  std::vector<EtcdRange> question() const;
  /// Whether this answers it. Otherwise it comes from another store, or from one that was taken back to an
  /// earlier state, even if it has been written to since: then forget() and ask anew.
  bool isAnswer(const EtcdResult& answer) const;
  /// Takes an answer. Null when it says nothing new.
  SharedFleetContent take(const EtcdResult& answer);
  /// The revision of the store up to which everything is known; 0: nothing is.
  int64_t revision() const { return revision_; }
  /// Asks for everything next.
  void forget() {
    revision_ = 0;
    cluster_.clear();
  }
  /// Some of the keys that are not of the form of the layout, and are not read.
  const std::set<std::string>& ignored() const { return ignored_; }

 private:
  struct Text {
    std::string text;
    int64_t modified = 0;
    bool operator==(const Text&) const = default;
  };
  using Texts = std::map<std::string, Text>;

  bool isText(size_t place, std::string_view key) const;
  bool continues(size_t place, const std::vector<EtcdEntry>& changes,
                 const std::vector<EtcdEntry>& keys) const;
  Texts textsOf(size_t place, const std::vector<EtcdEntry>& changes, const std::vector<EtcdEntry>& keys);
  SharedFleetContent content(int64_t revision) const;

  const std::vector<std::string> prefixes_;
  std::vector<Texts> texts_;  // by prefix
  std::set<std::string> ignored_;
  std::vector<std::string> wrong_;  // why some places were not taken
  int64_t revision_ = 0;
  std::string cluster_;
  bool isTold_ = false;
};

}  // namespace Agent
