#pragma once

#include <string_view>

namespace Agent {

/// Writes a result to standard output, at once. False, after a complaint, when it did not all get there.
bool print(std::string_view text);

/// One line on standard error.
void complain(std::string_view text);

}  // namespace Agent
