#pragma once

#include <agent/core/Core.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace Agent {

/// Names rules by list and number where only their ids are known. Rules are looked up as they are now: of one
/// that is in force no more nothing is known. The core outlives it.
class RuleNames {
 public:
  explicit RuleNames(const Core& core) : core_(core) {}

  /// The number of a rule of a list; 0 is the list's implicit drop. Nothing when the list has no such rule.
  std::optional<uint32_t> number(Acl::AclType type, const Kelp::String& list, const Kiv::UniqueId& id) const;

  /// For each id in a line of a trace that is of a rule of a list that the line names, too:
  ///   " (rule 10 of ip access-list A)"
  /// Empty when there is none.
  std::string beside(std::string_view line) const;

 private:
  std::string titleOf(std::string_view list, const Kiv::UniqueId& id) const;

  const Core& core_;
};

/// What stands for a number of RuleNames in documents: the number, "implicit" or null.
nlohmann::ordered_json numberJson(const std::optional<uint32_t>& number);

/// As long as it lives, the lines that are traced to a stream have behind them what RuleNames says. To be
/// made when the core has a plugin.
class NamedTraces {
 public:
  explicit NamedTraces(const Core& core);
  ~NamedTraces();
  NamedTraces(const NamedTraces&) = delete;
  NamedTraces& operator=(const NamedTraces&) = delete;

 private:
  std::function<void()> restore_;
};

}  // namespace Agent
