#pragma once

#include <agent/core/Core.h>
#include <agent/show/ZeroLine.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Agent {

struct RuleReport {
  uint32_t sequence = 0;
  std::string text;
  std::string remark;
  std::string id;
  MatchCount matches;
  std::optional<uint64_t> mirrored{};  ///< packets given to the rule's mirror session, if it names one
};

struct BindingReport {
  std::string interface;
  Acl::AclDirection direction = Acl::AclDirection::in;
  std::vector<std::string> sources{};  ///< the one in force first
};

/// A list with its rules, in the order in which they are tried. A list that is bound but not defined has
/// neither rules nor sources.
struct ListReport {
  Acl::AclType type = Acl::AclType::ip;
  std::string name;
  std::vector<std::string> sources;  ///< the one in force first; empty: not defined
  std::vector<BindingReport> bindings;
  std::vector<RuleReport> rules;
  std::optional<MatchCount> implicitDrop;  ///< nothing while the packet path has no id for it
  std::vector<std::string> remarks{};      ///< those behind the last rule
};

/// Whether a list with this name, of any type, is in force.
bool isDefined(const Core& core, const Kelp::String& name);

/// That there is no list of this name, in force or bound, and which names come near.
std::string noSuchList(const Core& core, const std::string& name);

/// Whether a list of this type has a rule with this id.
bool isRule(const Acl::AclSubConfig& rules, Acl::AclType type, const Kiv::UniqueId& id);

/// Reads lists as they are now: rules and bindings from the merged configuration, matches from the counters.
/// Matches below the zero line are left out, if there is one. Bindings are read once, when the reader is
/// made. `core` and `zero` outlive it; `zero` may be null.
class ListReader {
 public:
  using Key = std::pair<Acl::AclType, Kelp::String>;
  /// Asked for the remarks that stand behind the last rule of a list in a source.
  using Remarks = std::function<std::vector<std::string>(const std::string& source, const Key& list)>;

  explicit ListReader(const Core& core, const ZeroLine* zero = nullptr, Remarks remarks = {});

  /// The lists in force, by type and name.
  std::vector<Key> defined() const;
  /// The lists that are bound but not defined, by type and name.
  std::vector<Key> undefined() const;

  /// A list without its rules.
  ListReport head(const Key& key) const;
  /// How many rules a list has.
  size_t ruleCount(const Key& key) const;
  /// The ids of the rules of a list, in the order in which they are tried; the first ones alone when there
  /// are more than `most`.
  std::vector<Kiv::UniqueId> ruleIds(const Key& key, size_t most = SIZE_MAX) const;
  /// One of these rules; nothing when it has been deleted since.
  std::optional<RuleReport> rule(const Key& key, const Kiv::UniqueId& id) const;
  /// A list with all its rules.
  ListReport list(const Key& key) const;

 private:
  Kelp::Ptr<const Acl::AclSubConfig> rulesOf(const Key& key) const;
  MatchCount matches(const Key& key, const Kiv::UniqueId& id) const;
  std::map<Key, std::vector<BindingReport>> bindings() const;
  template <class Visit>
  void forEachBinding(Acl::AclType type, const Visit& visit) const;

  const Core& core_;
  const ZeroLine* const zero_;
  const Remarks remarks_;
  const std::vector<Kelp::Ptr<Velo::Counter::VeloDpAclCounterColl>> counters_;
  /// By list. To walk all bindings again for each of many lists would take seconds.
  const std::map<Key, std::vector<BindingReport>> bindings_;
};

/// How many of its matches a rule has given to its mirror session; nothing when it names none.
std::optional<uint64_t> mirroredOf(const Acl::RuleConfig& rule, const MatchCount& met);

}  // namespace Agent
