#pragma once

#include <string_view>

namespace Agent {

/// The version of the program, as "0.1.0": in every JSON document, the state file and the log.
std::string_view version();

}  // namespace Agent
