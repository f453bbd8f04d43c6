#pragma once

#include <agent/config/Model.h>

#include <string>

namespace Agent {

/// What changes when one configuration replaces another, in a few words: "+1 list, 3 rules changed, 1 binding
/// removed". Rules are counted by their numbers, and those of lists that come or go are not. "no change" when
/// nothing does.
std::string changeSummary(const Config::Model& before, const Config::Model& after);

}  // namespace Agent
