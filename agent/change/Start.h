#pragma once

#include <agent/change/Apply.h>
#include <agent/change/Sources.h>
#include <agent/core/Core.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// How an agent starts: the one that forwards packets, the one that replays captures, and the one that only
/// explains what would become of a frame.
struct Start {
  std::string plugin;                ///< the library
  std::vector<std::string> further;  ///< and those beside it
  std::function<void()> settle;      ///< runs tasks until none is due
  /// Called once the plugin is there and before anything is published. What it returns ends the start.
  std::function<std::optional<std::string>()> loaded{};
  RuleIdMemory memory{};  ///< the ids that rules had before
};

/// Puts the sources in force in a core that has no plugin yet, loads the plugins, and waits until all that is
/// in force is published: only then packets are judged by it. Returns why not.
std::optional<std::string> start(Core& core, const Sources& sources, const Start& how);

}  // namespace Agent
