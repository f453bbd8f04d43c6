#pragma once

#include <Acl/Types.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

/// The state that an agent leaves for the next one, as plain values: they are handed to another thread.
namespace Agent::Saved {

/// The id of a rule, any number of 64 bits. A database has signed integers only: an id is stored there with
/// the same bits, whereas a count is stored with the same value.
class Id {
 public:
  constexpr Id(uint64_t value = 0) : value_(value) {}
  constexpr operator uint64_t() const { return value_; }

 private:
  uint64_t value_;
};

/// The id that a rule of a source has.
struct Rule {
  std::string source;  ///< "cli", or "input/" and the name
  Acl::AclType type = Acl::AclType::ip;
  std::string list;
  uint32_t sequence = 0;
  Id id;
  std::string text;  ///< as it was typed, without the number; see RuleText.h
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

/// A whole state. When it comes from a file, the rows of each vector are in the order of their keys (see
/// Table.h).
struct State {
  uint64_t highestId = 0;  ///< no id above this has been used
  std::vector<Rule> rules;
  bool rulesUnchanged = false;  ///< the rules are those of the state before, and not repeated here
  std::vector<Counter> counters;
  std::vector<List> lists;
  std::vector<RuleStatus> ruleStatus;
  std::vector<Binding> bindings;
};

}  // namespace Agent::Saved
