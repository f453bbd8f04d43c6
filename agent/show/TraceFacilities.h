#pragma once

#include <agent/core/Core.h>
#include <agent/show/RuleNames.h>

#include <optional>
#include <string>
#include <string_view>

namespace Agent {

// Which facilities can be traced is known when the plugin is loaded.

/// Why a facility cannot be switched on: nothing traces there. The text names the nearest one that can;
/// nothing when it can be switched on.
std::optional<std::string> whyNoFacility(std::string_view name);
/// The same of a facility with fast traces.
std::optional<std::string> whyNoFastFacility(std::string_view name);

/// Begins to name rules in what is traced to a stream. Returns why `--trace`, which has switched its
/// facilities on already, did so in vain.
std::optional<std::string> traceByName(const Core& core, std::optional<NamedTraces>& named);

}  // namespace Agent
