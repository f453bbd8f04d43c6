#pragma once

#include <agent/core/Texts.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace CLI {
class App;
}

namespace Agent {

// Values of command line options. What is wrong with one is thrown as CLI::ValidationError, with the option.

/// Pairs of the form A=B (at '=': a port and what it is on, each port once) or A,B (at ',': two ports). A
/// mistake says that `form` was expected; empty: NAME=FILE or A,B.
std::vector<std::pair<std::string, std::string>> splitAll(const std::string& option,
                                                          const std::vector<std::string>& texts, char at,
                                                          std::string_view form = {});

/// Names of ports, two at least, separated by commas.
std::vector<std::string> splitNames(const std::string& option, const std::string& text);

/// Adds the options for how much configuration text a command takes; `limits` stays where it is until they
/// are parsed.
void addTextLimits(CLI::App& command, TextLimits& limits);

}  // namespace Agent
