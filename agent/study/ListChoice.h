#pragma once

#include <Acl/Types.h>
#include <agent/change/Effective.h>

#include <optional>
#include <string>

namespace Agent {

/// The one list that a user means by a name and, where there are several, its kind. Nothing, and what is
/// wrong, if there is none.
std::optional<Config::ListKey> chosenList(const Effective& effective, const std::string& name,
                                          std::optional<Acl::AclType> type, std::string* wrong);

}  // namespace Agent
