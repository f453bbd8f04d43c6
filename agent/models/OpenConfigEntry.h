#pragma once

#include <agent/models/Documents.h>

#include <optional>

namespace Models {

/// Reads an entry of a list of a kind; nothing when it has no number. Other mistakes leave the rule without
/// words.
std::optional<DraftRule> openConfigEntry(Acl::AclType list, const Found& found);

}  // namespace Models
