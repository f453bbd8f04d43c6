#pragma once

#include <Acl/Status.h>
#include <nlohmann/json.hpp>

namespace Agent {

// Pieces of the published status, for documents that are made piece by piece.

nlohmann::ordered_json ruleStatusJson(const Acl::RuleStatus& rule);
/// A list without its rules.
nlohmann::ordered_json listStatusJson(const Acl::AclStatus& list);
nlohmann::ordered_json bindingsStatusJson(const Acl::AclTypeStatus& lists);

}  // namespace Agent
