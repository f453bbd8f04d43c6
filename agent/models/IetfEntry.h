#pragma once

#include <agent/models/EntryDraft.h>

namespace Models {

/// Reads an access control entry and puts it behind the others of its list, unless a leaf of it was refused.
/// Other mistakes leave the rule without words.
void readAce(DraftList& list, const Found& found);

}  // namespace Models
