#pragma once

#include <agent/models/Lists.h>

namespace Models {

// Each reads the document of one model, from below its root, into a configuration text.

/// `ietf-access-control-list` (RFC 8519): `acls`.
void readIetf(const Found& acls, Lines& lines);
/// `openconfig-acl`: `acl`.
void readOpenConfig(const Found& acl, Lines& lines);
/// The tables of SONiC's configuration database: the whole document.
void readSonic(const Found& document, Lines& lines);
/// Whether a member of the root is one of those tables.
bool isSonicTable(std::string_view name);

/// What no other entry matches is dropped here, and the models do not say so: the lists that we write have a
/// last entry that does, told by its name or its number and description.
inline constexpr std::string_view endName = "implicit-drop", endDescription = endName;
inline constexpr uint32_t endNumber = 0xffffffff;

inline constexpr std::string_view ietfModule = "ietf-access-control-list";
inline constexpr std::string_view openConfigModule = "openconfig-acl";

}  // namespace Models
