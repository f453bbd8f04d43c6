#pragma once

#include <string>
#include <string_view>

namespace Agent {

/// Writes a result to standard output, at once. False, after a complaint, when it did not all get there.
bool print(std::string_view text);

/// One line on standard error.
void complain(std::string_view text);

/// What went wrong with a file or a device, by the system's last error (errno): "WHAT: No such file".
std::string failureOf(std::string_view what);

}  // namespace Agent
