#pragma once

#include <agent/change/ChangeEvents.h>
#include <agent/change/Commit.h>
#include <agent/change/History.h>
#include <agent/change/PreparedChange.h>

#include <optional>

namespace Agent {

/// The configuration that is in force, with what was told and is remembered of it. All changes work on it,
/// one at a time: those that people ask for, and those of files.
///
/// Part of Configuration.
struct CurrentConfig {
  /// The ports that the agent has; nothing: every interface may be one.
  const std::optional<PortNames> ports;
  const TellLog tell;
  Commit commit;
  Warnings warnings;             ///< what it is warned of
  SharedFilteredPorts filtered;  ///< by it
  History history;

  const Sources& sources() const { return commit.sources(); }
  const PortNames* portNames() const { return ports ? &*ports : nullptr; }
  /// What a change is compared with.
  PreparedChange::Before before() const { return {sources(), warnings, portNames()}; }
};

}  // namespace Agent
