#pragma once

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

/// The same of the first one that is on already and in vain.
std::optional<std::string> unusedFacility();

}  // namespace Agent
