#pragma once

#include <Acl/Status.h>
#include <nlohmann/json.hpp>

namespace Agent {

// The published status in pieces, for documents that are made piece by piece.
nlohmann::ordered_json ruleStatusJson(const Acl::RuleStatus& rule);
/// Without the rules.
nlohmann::ordered_json listStatusJson(const Acl::AclStatus& list);
nlohmann::ordered_json bindingsStatusJson(const Acl::AclTypeStatus& lists);

}  // namespace Agent
