#pragma once

#include <Acl/Types.h>
#include <agent/change/Sources.h>

#include <optional>
#include <string>

namespace Agent {

/// Commands that change one list of the command line's source, a command a line, carried out in their order
/// as one change:
///
///   [NUMBER] permit|deny ..., remark TEXT, no NUMBER, no RULE    as below the list in a configuration text
///   move NUMBER before|after NUMBER     the rule gets a number that is free there
///   resequence [START [STEP]]           all rules get new numbers, START (10) and then every STEP (10)
///
/// A rule that replaces another one keeps its remark, unless it brings one of its own. Mistakes have the
/// place `edit:LINE:COLUMN`, where the line is the number of the command.
struct Edit {
  /// Commands of one edit: each one is carried out on a whole configuration.
  static constexpr size_t mostCommands = 1000;

  std::string list;
  std::optional<Acl::AclType> type;  ///< needed when lists of several types have this name
  std::string commands;
};

/// The command line's source after an edit, or what is wrong with the edit. Only reads `inForce`, so that any
/// thread may call it while nobody writes; the model that is returned shares nothing with it.
MadeModel edited(const Sources& inForce, const Edit& edit);

}  // namespace Agent
