#pragma once

#include <agent/change/CurrentConfig.h>

#include <string>

namespace Agent {

/// What an agent starts with is a change if it is not what the last one ended with: adds such changes to the
/// history, and tells the log. `dir` is the configuration directory. Returns the text of the command line's
/// source.
SharedText rememberStart(CurrentConfig& current, const std::string& dir);

}  // namespace Agent
