#pragma once

#include <agent/core/Core.h>
#include <agent/show/ZeroLine.h>
#include <nlohmann/json.hpp>

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

/// A list with its rules in the order of trial. A list that is only bound has no rules and no source.
struct ListReport {
  Acl::AclType type = Acl::AclType::ip;
  std::string name;
  std::vector<std::string> sources;  ///< the one in force first; empty: bound, but not defined
  std::vector<BindingReport> bindings;
  std::vector<RuleReport> rules;
  std::optional<MatchCount> implicitDrop;  ///< nothing as long as the dataplane has no id for it
  std::vector<std::string> remarks{};      ///< typed behind the last rule
};

/// Whether a list of a name, of any kind, is in force.
bool isDefined(const Core& core, const Kelp::String& name);

/// Whether a list of a kind has a rule.
bool isRule(const Acl::AclSubConfig& rules, Acl::AclType type, const Kiv::UniqueId& id);

/// Reads lists as they are now: what is in force and where it is bound out of the merged configuration, the
/// matches out of the counters, what lies below a zero line left out. Bindings are those there were when the
/// reader was made. `core` and `zero` outlive it; `zero` may be null.
class ListReader {
 public:
  using Key = std::pair<Acl::AclType, Kelp::String>;
  /// The remarks that a source has behind the last rule of a list.
  using Remarks = std::function<std::vector<std::string>(const std::string& source, const Key& list)>;

  explicit ListReader(const Core& core, const ZeroLine* zero = nullptr, Remarks remarks = {});

  /// The lists in force, by type and name.
  std::vector<Key> defined() const;
  /// The lists that are bound but not defined, by type and name.
  std::vector<Key> undefined() const;

  /// A list without its rules.
  ListReport head(const Key& key) const;
  /// The ids of its rules in the order of trial, and one of them; nothing when it has gone since.
  std::vector<Kiv::UniqueId> ruleIds(const Key& key) const;
  std::optional<RuleReport> rule(const Key& key, const Kiv::UniqueId& id) const;
  /// All of it at once.
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
  /// By list, looked for once: walking all of them for each of many lists takes seconds.
  const std::map<Key, std::vector<BindingReport>> bindings_;
};

// The documents, as docs/replay.md describes them.
nlohmann::ordered_json ruleJson(const RuleReport& rule);
/// Without the rules.
nlohmann::ordered_json headJson(const ListReport& list);
nlohmann::ordered_json listJson(const ListReport& list);
nlohmann::ordered_json undefinedJson(const ListReport& list);
nlohmann::ordered_json matchesJson(const MatchCount& count);
nlohmann::ordered_json lastMatchJson(const MatchCount& count);

/// What a rule's mirror session got of its matches.
std::optional<uint64_t> mirroredOf(const Acl::RuleConfig& rule, const MatchCount& met);

}  // namespace Agent
