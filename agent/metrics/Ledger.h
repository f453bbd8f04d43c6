#pragma once

#include <Acl/Types.h>
#include <Kelp/String.h>
#include <Kiv/UniqueId.h>
#include <agent/show/ZeroLine.h>

#include <cstdint>
#include <map>
#include <optional>
#include <tuple>
#include <utility>

namespace Agent {

/// Keeps the counters that are told by rule number from jumping. What is counted goes by the id of a rule:
/// when rules get other numbers, or a number gets another rule, each number goes on from where it was, by
/// what the rule that has it now has counted since.
class Ledger {
 public:
  using Counted = ZeroLine::Counted;
  /// A counter as it is told: list, number (nothing: the implicit drop) and direction.
  struct Series {
    Acl::AclType type;
    Kelp::String list;
    std::optional<uint32_t> number;
    Acl::AclDirection direction;
    bool operator<(const Series& other) const {
      return std::tie(type, list, number, direction) <
             std::tie(other.type, other.list, other.number, other.direction);
    }
  };

  /// Series and rules that are remembered when nobody asks for them; `most` of each.
  explicit Ledger(size_t most) : most_(most) {}

  /// What a series has come to, when the rule that it is of has counted so much.
  Counted told(const Series& series, const Kiv::UniqueId& rule, const Counted& now);

  /// To be called when all series have been asked for: forgets others, a few each time, if there are too
  /// many. False when there is nothing more to forget.
  bool tidy();
  size_t size() const { return series_.size(); }

 private:
  struct Entry {
    Counted counted;
    uint64_t round = 0;  ///< in which it was asked for
  };
  using RuleKey = std::pair<Kiv::UniqueId, Acl::AclDirection>;

  template <class Map>
  bool tidy(Map& map, std::optional<typename Map::key_type>& from) const;

  const size_t most_;
  uint64_t round_ = 1;
  std::map<Series, Entry> series_;  // what was told
  std::map<RuleKey, Entry> rules_;  // what they had counted then
  std::optional<Series> fromSeries_;
  std::optional<RuleKey> fromRule_;
};

}  // namespace Agent
