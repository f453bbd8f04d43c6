#pragma once

#include <Acl/Rule.h>
#include <agent/config/Addresses.h>
#include <agent/config/Model.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Config {

/// An object-group that a rule names, and where in its line.
struct NamedGroup {
  std::string name;  ///< empty: none
  size_t column = 0;

  bool operator==(const NamedGroup& other) const { return name == other.name; }
};

/// The object-groups that a rule names in the place of its protocol, or of the ports behind its destination,
/// and of its addresses.
struct GroupNames {
  NamedGroup service, source, destination;

  bool any() const { return !service.name.empty() || !source.name.empty() || !destination.name.empty(); }
  bool operator==(const GroupNames&) const = default;
};

/// The most combinations of members that one rule, and all rules of the texts that are read together, may
/// stand for.
inline constexpr size_t mostCombinations = 4096, mostCombinationsOfAll = 65536;
/// How deep groups may contain each other.
inline constexpr size_t deepestGroup = 16;

inline constexpr std::string_view groupWord = "object-group";

/// Reads `object-group NAME`; the cursor stands in front of the first word.
bool readGroupName(Cursor& at, NamedGroup* group);

/// Reads a member of a group to the end of the line, `group-object NAME` included. Nothing is kept of it: a
/// group has its members as texts.
bool readMember(Cursor& at, const ObjectGroup& group);

/// Whether two members of a group say the same, in whatever words.
bool isSameMember(const ObjectGroup& group, const std::string& a, const std::string& b);

/// What is wrong with a group or with a rule that names it.
struct GroupMistake {
  std::string group, member;  ///< the place; empty: the mistake is the rule's
  size_t column = 0;          ///< of the rule's line
  std::string found, expected;
};

/// What groups stand for. The groups must outlive it.
class GroupTable {
 public:
  using Groups = std::map<std::string, ObjectGroup>;

  explicit GroupTable(const Groups& groups) : groups_(groups) {}

  /// What is wrong with a group itself: it contains itself, or what is not there, or one of the other kind.
  std::optional<GroupMistake> check(const std::string& name);

  /// Has a rule match what its groups stand for: any combination of their members. Groups that are wrong
  /// in themselves are left to check().
  std::optional<GroupMistake> expand(const GroupNames& names, Rule* rule);

 private:
  using Members = std::vector<std::string>;

  struct Flat {
    Members members;    ///< without those that are groups, sorted
    size_t height = 1;  ///< how many groups contain each other, this one included
  };

  /// A group that lies in `depth` others, which are all open.
  std::optional<GroupMistake> flatten(const std::string& name, size_t depth, const Flat** flat);
  /// A member of a group that is a group itself.
  std::optional<GroupMistake> flattenNested(const std::string& name, const std::string& member, size_t depth,
                                            const Flat** inner);
  /// A group that a rule names; null when the group is wrong in itself.
  std::optional<GroupMistake> find(const NamedGroup& group, bool service, const Flat** flat);
  /// Adds the combinations of a rule to those of all.
  std::optional<GroupMistake> count(const GroupNames& names, size_t combinations);
  template <class Filter>
  std::optional<GroupMistake> expandFilter(const GroupNames& names, Filter* filter);

  const Groups& groups_;
  std::map<std::string, Flat> flat_;
  std::map<std::string, bool> open_;  ///< those that are being looked into
  size_t combinations_ = 0;
};

}  // namespace Config
