#pragma once

#include <string>

namespace CLI {
class App;
}

namespace Agent {

/// The manual page, in roff, of a command, or of the program itself: what --help says, and nothing else.
std::string manualPage(const CLI::App& program, const CLI::App& command);

/// "velo-show" for the command show; for the program its own name.
std::string pageName(const CLI::App& program, const CLI::App& command);

}  // namespace Agent
