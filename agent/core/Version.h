#pragma once

#include <string_view>

namespace Agent {

/// The version of the program, as "0.1.0" or "0.1.0+5.g1a2b3c4" (cmake/VeloVersion.cmake): in every JSON
/// document, the state file and the log.
std::string_view version();

}  // namespace Agent
