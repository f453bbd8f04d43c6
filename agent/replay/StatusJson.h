#pragma once

#include <Acl/Status.h>
#include <nlohmann/json.hpp>

namespace Agent {

/// The published status as a document, with the names of the model's attributes as members: the capability
/// flags, and below `status` the lists and bindings by type. Times are seconds since the epoch.
nlohmann::ordered_json statusJson(const Acl::StatusDp& status);

}  // namespace Agent
