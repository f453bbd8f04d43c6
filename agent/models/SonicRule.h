#pragma once

#include <agent/models/Documents.h>

#include <map>
#include <optional>

namespace Models {

/// Reads a row of ACL_RULE, of a table of a kind; nothing without a priority. Other mistakes leave the rule
/// without words. Its number is the priority, which no rule of the table before it may have.
std::optional<DraftRule> sonicRule(Acl::AclType list, std::string_view name,
                                   std::map<uint32_t, std::string>& priorities, const Found& found);

}  // namespace Models
