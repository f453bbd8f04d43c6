#pragma once

#include <Acl/Types.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

/// What an agent leaves to its successor, as plain values: they go to a thread of their own.
namespace Agent::Saved {

/// The id of a rule: of all numbers of 64 bits. A file, which has none beyond half of them, keeps its bits,
/// where of a count it keeps the value.
class Id {
 public:
  constexpr Id(uint64_t value = 0) : value_(value) {}
  constexpr operator uint64_t() const { return value_; }

 private:
  uint64_t value_;
};

/// Whose id a rule of a source has.
struct Rule {
  std::string source;  ///< "cli", or "input/" and the name
  Acl::AclType type = Acl::AclType::ip;
  std::string list;
  uint32_t sequence = 0;
  Id id;
  std::string text;  ///< as it was typed, without the number
};

/// A counter of a collection.
struct Counter {
  std::string collection;
  Acl::AclDirection direction = Acl::AclDirection::in;
  Acl::AclType type = Acl::AclType::ip;
  std::string list;
  Id id;
  uint64_t packets = 0;
  uint64_t bytes = 0;
  double lastMatch = 0;  ///< seconds since the epoch
};

/// The published status of a list, and of its implicit drop.
struct List {
  Acl::AclType type = Acl::AclType::ip;
  std::string name;
  double counterUpdateTime = 0;
  Id implicitId;
  uint64_t packets = 0;
  double lastMatch = 0;
};

/// The published status of a rule.
struct RuleStatus {
  Acl::AclType type = Acl::AclType::ip;
  std::string list;
  Id id;
  uint64_t packets = 0;
  double lastMatch = 0;
};

/// A published binding.
struct Binding {
  Acl::AclType type = Acl::AclType::ip;
  Acl::AclDirection direction = Acl::AclDirection::in;
  std::string interface;
  std::string list;
};

/// All of it. Each list of rows is in the order of its keys, see Table.h, when it comes from a file.
struct State {
  uint64_t highestId = 0;  ///< that was given out, or may have been
  std::vector<Rule> rules;
  bool rulesUnchanged = false;  ///< since the state before: then they are not repeated
  std::vector<Counter> counters;
  std::vector<List> lists;
  std::vector<RuleStatus> ruleStatus;
  std::vector<Binding> bindings;
};

}  // namespace Agent::Saved
